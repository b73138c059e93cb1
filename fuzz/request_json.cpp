// A request as JSON text.
#include "request.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  json_spirit::Value request;
  json_spirit::Read_Error error;
  json_spirit::read_string({data, data + size}, request, error);
  if (request.type() == json_spirit::obj_type) check_request(request.get_obj());
  return 0;
}
