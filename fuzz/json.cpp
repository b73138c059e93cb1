// JSON text: a value that was read and is written reads back as the same value; plain text is written unchanged.
#include "fuzz.h"

using json_spirit::Value;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(data, data + size);
  Value value = "unchanged", strict, again;
  json_spirit::Read_Error error;
  bool const is_strict = json_spirit::read_string(text, strict, error, json_spirit::Repeated_Members::refused);
  if (!json_spirit::read_string(text, value, error)) {
    require(!is_strict && value == Value("unchanged"), "a failure changes nothing");
    require(error.line > 0 && error.column > 0 && error.column <= size + 1 && !error.reason.empty(), "it is told");
    return 0;
  }
  require(!is_strict || strict == value, "refusing repeated members changes nothing else");
  std::string const written = json_spirit::JSON_Dump(value, false).c_str();
  bool const is_plain = text.find_first_not_of("[],\"0123456789nul") == std::string::npos;
  require(!is_plain || written == text || written.find_first_of(".e") != std::string::npos, "plain text stays");
  for (bool const pretty : {false, true}) {
    if (pretty && size > 512) break;  // grows with the square of the depth
    json_spirit::JSON_Dump const dump(value, pretty);
    json_spirit::read_string_or_throw({dump.c_str(), dump.size()}, again);
    require(again == value, "what is written reads back the same");
  }
  return 0;
}
