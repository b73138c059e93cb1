#include "backup/utils/sql/binding_value.h"

#include <utility>

#include "backup/runtime/hex_string.h"

static_assert(sizeof(void*) != 8 || sizeof(Binding_Value) <= 40);

namespace {

template <class Characters, class Bytes>
Characters to_characters(Bytes const& bytes) {
  return Characters(bytes.begin(), bytes.end());
}

json_spirit::Value secure_characters(Secure_Byte_String const& bytes) {
  Secure_String text = to_characters<Secure_String>(bytes);
  backup::Secure_Wipe_Guard<Secure_String> const wipe(text);
  return text;
}

// x"<digits>"
template <class Hex, class Text>
void write_hex(Text const& bytes, std::string& out) {
  Hex const hex(static_cast<void const*>(bytes.data()), bytes.size());
  out = "x\"";
  out.append(hex.hex().data(), hex.hex().size());
  out += '"';
}

}  // namespace

Binding_Value::Binding_Value() noexcept : type_(null_type) {}
Binding_Value::Binding_Value(json_spirit::Object const& object) : Value(object), type_(obj_type) {}
Binding_Value::Binding_Value(json_spirit::Array const& array) : Value(array), type_(array_type) {}
Binding_Value::Binding_Value(json_spirit::Value const& value) : Value(value), type_(static_cast<Type>(value.type())) {}
Binding_Value::Binding_Value(std::string const& text) : Value(text), type_(str_type) {}
Binding_Value::Binding_Value(char const* text) : Value(text), type_(str_type) {}
Binding_Value::Binding_Value(Secure_String const& text) : Value(text), type_(secure_str_type) {}
Binding_Value::Binding_Value(Byte_String const& bytes) : Value(to_characters<std::string>(bytes)), type_(bin_type) {}
Binding_Value::Binding_Value(Secure_Byte_String const& bytes)
    : Value(secure_characters(bytes)), type_(secure_bin_type) {}
Binding_Value::Binding_Value(bool value) noexcept : Value(value), type_(bool_type) {}
Binding_Value::Binding_Value(short value) noexcept : Value(static_cast<long long>(value)), type_(int_type) {}
Binding_Value::Binding_Value(unsigned short value) noexcept
    : Value(static_cast<unsigned long long>(value)), type_(int_type) {}
Binding_Value::Binding_Value(int value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(unsigned int value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(long value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(unsigned long value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(long long value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(unsigned long long value) noexcept : Value(value), type_(int_type) {}
Binding_Value::Binding_Value(double value) noexcept : Value(value), type_(real_type) {}

Binding_Value::Binding_Value(Binding_Value const& other) = default;

Binding_Value::Binding_Value(Binding_Value&& other) noexcept
    : Value(static_cast<Value&&>(other)), type_(std::exchange(other.type_, null_type)) {}

Binding_Value& Binding_Value::operator=(Binding_Value const& other) {
  Binding_Value copy(other);  // may throw, so it comes first
  return *this = std::move(copy);
}

Binding_Value& Binding_Value::operator=(Binding_Value&& other) noexcept {
  if (this == &other) return *this;
  Value::operator=(static_cast<Value&&>(other));
  type_ = std::exchange(other.type_, null_type);
  return *this;
}

Binding_Value::~Binding_Value() = default;

Binding_Value::Type Binding_Value::type() const noexcept { return type_; }
void Binding_Value::type(Type type) noexcept { type_ = type; }
json_spirit::Value const& Binding_Value::val() const noexcept { return *this; }
void Binding_Value::val(json_spirit::Value const& value) { Value::operator=(value); }

void Binding_Value::to_str(std::string& out) const {
  if (type_ == bin_type) {
    write_hex<Hex_String>(get_str(), out);
  } else if (type_ == secure_bin_type) {
    write_hex<Secure_Hex_String>(get_secure_str(), out);
  } else {
    json_spirit::JSON_Dump const json(*this, false);
    out.assign(json.c_str(), json.size());
  }
}
