// A query string, as a map of its pairs, and as the object made of them.
#include "backup/runtime/http_query_string.h"
#include "request.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::map<std::string, std::string> pairs;
  HTTP_Query_String_Iterator const end(nullptr, 0);
  for (HTTP_Query_String_Iterator it({data, data + size}, 0); it != end; ++it) pairs[it->first] = it->second;
  bool const has_groups = pairs.count("AND") + pairs.count("OR") > 0;  // an object has their members in another order
  Rendered const of_pairs = check_request(pairs);
  Rendered const of_object = check_request(SQL_Filter_Parser(allowed_keys).convert_qs_to_params(pairs));
  require(has_groups || of_pairs == of_object, "the object of the pairs makes the same statement");
  return 0;
}
