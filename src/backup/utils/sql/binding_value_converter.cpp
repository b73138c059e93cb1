#include "backup/utils/sql/binding_value_converter.h"

#include <cstring>

#include "backup/runtime/aes_encoder.h"
#include "backup/runtime/hex_string.h"
#include "backup/runtime/uuid.h"

namespace {

constexpr std::size_t uuid_bytes = 16;

template <class Hex, class Text>
typename Hex::Bytes decode_hex(Text const& text) {
  Hex const hex(text.c_str(), std::strlen(text.c_str()));
  typename Hex::Bytes bytes;
  hex.get_bytes(bytes);
  return bytes;
}

// Sets `out` to the bytes that `decode` makes of the text in `in`; true for 16 bytes and for the empty text.
template <class Decode, class Decode_Secure>
bool convert_text(Binding_Value const& in, Binding_Value& out, Decode decode, Decode_Secure decode_secure) {
  if (in.type() == Binding_Value::str_type) {
    std::string const& text = in.val().get_str();
    Byte_String const bytes = text.empty() ? Byte_String() : decode(text);
    bool const accepted = text.empty() || bytes.size() == uuid_bytes;
    out = Binding_Value(bytes);
    return accepted;
  }
  if (in.type() == Binding_Value::secure_str_type) {
    Secure_String const& text = in.val().get_secure_str();
    Secure_Byte_String bytes = text.empty() ? Secure_Byte_String() : decode_secure(text);
    backup::Secure_Wipe_Guard<Secure_Byte_String> const wipe(bytes);
    bool const accepted = text.empty() || bytes.size() == uuid_bytes;
    out = Binding_Value(bytes);
    return accepted;
  }
  return false;
}

}  // namespace

Binding_Value_Converter::Binding_Value_Converter() = default;
Binding_Value_Converter::~Binding_Value_Converter() = default;

bool Binding_Value_UUID_Converter::convert(Binding_Value const& in, Binding_Value& out) const {
  return convert_text(
      in, out, [](std::string const& text) { return uuid_string_to_binary(text); },
      [](Secure_String const& text) { return uuid_string_to_binary_secure(text); });
}

bool Binding_Value_Hex_Converter::convert(Binding_Value const& in, Binding_Value& out) const {
  return convert_text(
      in, out, [](std::string const& text) { return decode_hex<Hex_String>(text); },
      [](Secure_String const& text) { return decode_hex<Secure_Hex_String>(text); });
}

Binding_Value_AES_Converter::Binding_Value_AES_Converter(Secure_Byte_String const& key, char const* param)
    : key_(&key), param_(param) {}

bool Binding_Value_AES_Converter::convert(Binding_Value const& in, Binding_Value& out) const {
  switch (in.type()) {
    case Binding_Value::array_type: {
      json_spirit::JSON_Dump const json(in.val(), false);
      return convert_i(json.c_str(), json.size(), out);
    }
    case Binding_Value::str_type:
    case Binding_Value::bin_type: {
      std::string const& text = in.val().get_str();
      return convert_i(text.data(), text.size(), out);
    }
    case Binding_Value::secure_str_type:
    case Binding_Value::secure_bin_type: {
      Secure_String const& text = in.val().get_secure_str();
      return convert_i(text.data(), text.size(), out);
    }
    default: return false;
  }
}

bool Binding_Value_AES_Converter::convert_i(char const* data, unsigned long long length, Binding_Value& out) const {
  AES_Encoder const encoder(data, length, key_->data(), key_->size(), false, param_, -1);
  unsigned char const* const buffer = encoder.buffer();
  out = Binding_Value(buffer == nullptr ? Byte_String() : Byte_String(buffer, encoder.length()));
  return buffer != nullptr;
}
