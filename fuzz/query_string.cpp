// Query strings: the pairs must equal the pieces between separators, decoded.
#include <sstream>

#include "backup/runtime/http_query_string.h"
#include "fuzz.h"

static std::string decoded(std::string const& piece) {
  std::string out;
  for (std::size_t i = 0; i < piece.size(); ++i) {
    std::string const digits = piece[i] == '%' ? piece.substr(i + 1, 2) : "";
    bool const is_escape =
        digits.size() == 2 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (is_escape) i += 2;
    out += is_escape ? static_cast<char>(std::stoi(digits, nullptr, 16)) : piece[i] == '+' ? ' ' : piece[i];
  }
  return out;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  HTTP_Query_String_Iterator const end(nullptr, 0);
  HTTP_Query_String_Iterator it(std::string(data, data + size), 0);
  std::istringstream pieces({data, data + size});
  for (std::string piece; std::getline(pieces, piece, '&');) {
    if (piece.empty()) continue;
    std::istringstream pair(piece);
    std::string key;
    std::getline(pair, key, '=');
    std::string const value{std::istreambuf_iterator<char>(pair), {}};
    require(it != end && it->first == decoded(key) && it->second == decoded(value), "a pair is read");
    ++it;
  }
  require(it == end, "nothing else is read");
  return 0;
}
