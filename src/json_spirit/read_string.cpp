#include "backup/runtime/detail/block_stack.h"
#include "json_spirit/json_spirit.h"
#include "json_spirit/rapidjson_setup.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

namespace json_spirit {

namespace {

using Utf8 = rapidjson::UTF8<>;

// Numbers come as text: RapidJSON's own conversion reads outside of its tables for a fraction of some 350 zeros.
constexpr unsigned parse_flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;

struct Nowhere {
  void Put(char /*c*/) {}
};

// Looks at eight bytes of ASCII at once, where RapidJSON looks at each.
bool is_utf8(std::string_view text) {
  for (;;) {
    std::uint64_t eight = 0;
    while (text.size() >= sizeof eight) {
      std::memcpy(&eight, text.data(), sizeof eight);
      if ((eight & 0x8080808080808080U) != 0) break;
      text.remove_prefix(sizeof eight);
    }
    auto const* const next =
        std::find_if(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
    if (next == text.end()) return true;
    text.remove_prefix(static_cast<std::size_t>(next - text.begin()));
    rapidjson::MemoryStream stream(text.data(), text.size());
    Nowhere nowhere;
    if (!Utf8::Validate(stream, nowhere)) return false;
    text.remove_prefix(stream.Tell());
  }
}

// For a number that fits no double: whether its first digit other than 0 stands before the point once the exponent has
// moved the point.
bool is_too_big(std::string_view number) {
  std::size_t const mantissa_end = std::min(number.find_first_of("eE"), number.size());
  std::size_t const point = std::min(number.find('.'), mantissa_end);
  std::size_t const first = number.find_first_of("123456789");
  long long exponent = 0;
  if (mantissa_end != number.size()) {
    char const* const digits = number.data() + mantissa_end + 1;
    auto const parsed = std::from_chars(*digits == '+' ? digits + 1 : digits, number.data() + number.size(), exponent);
    if (parsed.ec != std::errc()) return *digits != '-';
  }
  return exponent > static_cast<long long>(first) - static_cast<long long>(point);  // a sum could overflow
}

// False when `number` is too big for a double.
bool read_real(std::string_view number, Value& value) {
  double real = 0;
  if (std::from_chars(number.data(), number.data() + number.size(), real).ec != std::errc()) {
    if (is_too_big(number)) return false;
    real = number.front() == '-' ? -0.0 : 0.0;
  }
  value = real;
  return true;
}

template <class Integer>
bool read_integer(std::string_view number, Value& value) {
  Integer integer = 0;
  if (std::from_chars(number.data(), number.data() + number.size(), integer).ec != std::errc()) return false;
  value = integer;
  return true;
}

bool read_number(std::string_view number, Value& value) {
  bool const is_integer =
      std::all_of(number.begin(), number.end(), [](char c) { return (c >= '0' && c <= '9') || c == '-'; });
  if (is_integer) {
    if (read_integer<long long>(number, value)) return true;
    if (number.front() != '-' && read_integer<unsigned long long>(number, value)) return true;
  }
  return read_real(number, value);
}

// Takes the reader's events. The places it keeps are stable: nothing is added to a container while another is open in
// it.
class Value_Builder : public rapidjson::BaseReaderHandler<Utf8, Value_Builder> {
public:
  Value_Builder(Value& root, Repeated_Members repeated) : root_(root), repeated_(repeated) {}

  // True when it stopped at a repeated member.
  bool has_refused() const { return has_refused_; }

  bool Null() {
    put(Value());
    return true;
  }
  bool Bool(bool value) {
    put(value);
    return true;
  }
  bool RawNumber(char const* text, std::size_t size, bool /*copy*/) {
    Value number;
    if (!read_number({text, size}, number)) return false;
    put(std::move(number));
    return true;
  }
  bool String(char const* text, std::size_t size, bool /*copy*/) {
    put(std::string(text, size));
    return true;
  }
  bool Key(char const* text, std::size_t size, bool /*copy*/) {
    auto const member = open_.top()->get_obj().try_emplace(std::string(text, size));
    member_ = &member.first->second;
    has_refused_ = !member.second && repeated_ == Repeated_Members::refused;
    return !has_refused_;
  }
  bool StartObject() {
    open_.push(&put(Object()));
    return true;
  }
  bool StartArray() {
    open_.push(&put(Array()));
    return true;
  }
  bool EndObject(std::size_t /*count*/) { return end(); }
  bool EndArray(std::size_t /*count*/) {
    fit(open_.top()->get_array());
    return end();
  }

private:
  bool end() {
    open_.pop();
    return true;
  }
  // Gives back what a long array has grown too large; of short ones there is less to gain than to do.
  static void fit(Array& array) {
    constexpr std::size_t is_long = 1024;
    if (array.size() >= is_long && array.capacity() - array.size() > array.size() / 8) array.shrink_to_fit();
  }
  Value& put(Value&& value) {
    if (!open_.empty() && open_.top()->type() == array_type) {
      return open_.top()->get_array().emplace_back(std::move(value));
    }
    return (open_.empty() ? root_ : *member_) = std::move(value);
  }

  Value& root_;
  Repeated_Members repeated_;
  bool has_refused_ = false;
  Value* member_ = nullptr;
  backup::Block_Stack<Value*> open_;
};

// Bytes of a well-formed escape, or of two that make a surrogate pair; 0 for the second half of a pair without its
// first.
std::size_t escape_size(char const* escape) {
  if (escape[1] != 'u') return 2;
  bool const is_surrogate = (escape[2] == 'd' || escape[2] == 'D') && escape[3] >= '8';
  if (!is_surrogate) return 6;
  return std::string_view("89abAB").find(escape[3]) != std::string_view::npos ? 12 : 0;
}

// RapidJSON lets such a half alone pass, which no UTF-8 text can hold. Elsewhere `text` is well-formed.
std::size_t find_lone_surrogate(std::string const& text) {
  std::size_t i = text.find('\\');
  while (i != std::string::npos) {
    std::size_t const size = escape_size(text.data() + i);
    if (size == 0) break;
    i = text.find('\\', i + size);
  }
  return i;
}

char const* reason_of(rapidjson::ParseErrorCode code) {
  switch (code) {
    case rapidjson::kParseErrorDocumentEmpty: return "there is no value";
    case rapidjson::kParseErrorDocumentRootNotSingular: return "there is more text after the value";
    case rapidjson::kParseErrorValueInvalid: return "a value is missing or misspelt";
    case rapidjson::kParseErrorObjectMissName: return "the name of a member is missing";
    case rapidjson::kParseErrorObjectMissColon: return "the colon after the name of a member is missing";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket: return "a comma or '}' is missing after a member";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket: return "a comma or ']' is missing after an element";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex: return "\\u needs four hexadecimal digits";
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid: return "half of a surrogate pair is missing";
    case rapidjson::kParseErrorStringEscapeInvalid: return "unknown escape or unescaped control character in a string";
    case rapidjson::kParseErrorStringMissQuotationMark: return "the closing quotation mark of a string is missing";
    case rapidjson::kParseErrorStringInvalidEncoding: return "a string is not valid UTF-8";
    case rapidjson::kParseErrorNumberTooBig:
    case rapidjson::kParseErrorTermination:
      return "the number is too big";  // the caller has excluded all else that stops the builder
    case rapidjson::kParseErrorNumberMissFraction: return "a digit is missing after the point of a number";
    case rapidjson::kParseErrorNumberMissExponent: return "a digit is missing in the exponent of a number";
    default: return "the text is not JSON";
  }
}

Read_Error error_at(std::string const& text, std::size_t offset, char const* reason) {
  auto const end = text.begin() + static_cast<std::ptrdiff_t>(offset);
  auto const newline = std::find(std::make_reverse_iterator(end), text.rend(), '\n');
  Read_Error error;
  error.line = 1 + static_cast<std::size_t>(std::count(text.begin(), end, '\n'));
  error.column = 1 + static_cast<std::size_t>(end - newline.base());
  error.reason = reason;
  return error;
}

// Looks at numbers only: the reader itself checks all else.
struct Validator : rapidjson::BaseReaderHandler<Utf8, Validator> {
  static bool RawNumber(char const* text, std::size_t size, bool /*copy*/) {
    Value number;
    return read_number({text, size}, number);
  }
};

char const* reason_of(rapidjson::ParseErrorCode code, Validator const& /*handler*/) { return reason_of(code); }

char const* reason_of(rapidjson::ParseErrorCode code, Value_Builder const& builder) {
  return builder.has_refused() ? "the object has a member of this name already" : reason_of(code);
}

// Hands the reader's events to `handler`. The error's line is 0 when there is none.
template <unsigned flags, class Handler>
Read_Error parse(std::string const& text, Handler& handler) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  Throwing_Allocator allocator;
  rapidjson::GenericReader<Utf8, Utf8, Throwing_Allocator> reader(&allocator);
  rapidjson::ParseResult const result = reader.Parse<flags>(stream, handler);
  std::size_t const end = result.IsError() ? result.Offset() : stream.Tell();
  // RapidJSON takes a zero byte for the end of the text.
  if (end < text.size() && text[end] == '\0') return error_at(text, end, "there is a zero byte in the text");
  if (result.IsError()) return error_at(text, end, reason_of(result.Code(), handler));
  std::size_t const surrogate = find_lone_surrogate(text);
  if (surrogate == std::string::npos) return {};
  return error_at(text, surrogate, reason_of(rapidjson::kParseErrorStringUnicodeSurrogateInvalid));
}

template <unsigned flags>
Read_Error read(std::string const& text, Value& root, Repeated_Members repeated) {
  // Of a large text no value is built in vain: it could take some hundred times the memory of the text.
  constexpr std::size_t large = 65536;
  if (text.size() >= large) {
    Validator validator;
    Read_Error error = parse<flags>(text, validator);
    if (error.line != 0) return error;
  }
  Value_Builder builder(root, repeated);
  return parse<flags>(text, builder);
}

}  // namespace

bool read_string(std::string const& text, Value& value, Read_Error& error, Repeated_Members repeated) {
  Value root;
  // What is no UTF-8 is read for the sake of the error's place.
  error = is_utf8(text) ? read<parse_flags>(text, root, repeated)
                        : read<parse_flags | rapidjson::kParseValidateEncodingFlag>(text, root, repeated);
  if (error.line != 0) return false;
  value = std::move(root);
  return true;
}

void read_string_or_throw(std::string const& text, Value& value) {
  Read_Error error;
  if (read_string(text, value, error)) return;
  throw std::runtime_error("line " + std::to_string(error.line) + ", column " + std::to_string(error.column) + ": " +
                           error.reason);
}

}  // namespace json_spirit
