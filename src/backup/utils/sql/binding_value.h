#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "backup/runtime/secure_memory.h"
#include "backup/utils/sql/sql_export.h"
#include "json_spirit/json_spirit.h"

/// The value bound to one parameter of a statement: a type tag and a JSON value. Copying copies both.
///
/// Integers keep the signedness of the C++ type they came from. Secret kinds are held in secure strings and wiped with
/// the value. The only failure is missing memory (std::bad_alloc).
class BACKUP_SQL_API Binding_Value : json_spirit::Value {
public:
  /// 0 to 7 are the numbers of `json_spirit::Value_type`.
  enum Type : std::uint32_t {
    obj_type = 0,
    array_type = 1,
    str_type = 2,
    secure_str_type = 3,
    bool_type = 4,
    int_type = 5,  ///< 64-bit, signed or unsigned: see `val().is_uint64()`
    real_type = 6,
    null_type = 7,       ///< SQL NULL
    bin_type = 8,        ///< raw bytes, held as the characters of a std::string
    secure_bin_type = 9  ///< secret raw bytes, held as the characters of a secure string
  };

  /// `null_type`.
  Binding_Value() noexcept;
  // NOLINTBEGIN(google-explicit-constructor): a plain value stands wherever a bound one is taken
  Binding_Value(json_spirit::Object const& object);
  Binding_Value(json_spirit::Array const& array);
  /// Takes the JSON value's own type.
  Binding_Value(json_spirit::Value const& value);
  Binding_Value(std::string const& text);
  /// A null pointer gives the empty text, not NULL.
  Binding_Value(char const* text);
  Binding_Value(Secure_String const& text);
  /// Bytes keep their length, zero bytes included.
  Binding_Value(Byte_String const& bytes);
  Binding_Value(Secure_Byte_String const& bytes);
  Binding_Value(bool value) noexcept;
  Binding_Value(short value) noexcept;
  Binding_Value(unsigned short value) noexcept;
  Binding_Value(int value) noexcept;
  Binding_Value(unsigned int value) noexcept;
  Binding_Value(long value) noexcept;
  Binding_Value(unsigned long value) noexcept;
  Binding_Value(long long value) noexcept;
  Binding_Value(unsigned long long value) noexcept;
  Binding_Value(double value) noexcept;
  // NOLINTEND(google-explicit-constructor)
  template <class T>
  Binding_Value(T const* pointer) = delete;  // would become a bool

  Binding_Value(Binding_Value const& other);
  /// Leaves `other` null.
  Binding_Value(Binding_Value&& other) noexcept;
  Binding_Value& operator=(Binding_Value const& other);
  Binding_Value& operator=(Binding_Value&& other) noexcept;
  ~Binding_Value();

  Type type() const noexcept;
  /// Sets the tag only and leaves the value: deliberate. Build a new value to keep both in step.
  void type(Type type) noexcept;
  json_spirit::Value const& val() const noexcept;
  /// Sets the JSON value only and leaves the tag: deliberate.
  void val(json_spirit::Value const& value);

  /// Replaces `out` by the text for diagnostics: x"01AB" for bytes, compact JSON for everything else. Secret text is
  /// written in clear. When tag and value do not match, throws what the JSON value throws.
  void to_str(std::string& out) const;

private:
  Type type_;  // in the base's free bytes: why the value is a base and no member
};

/// The values of a statement by parameter name, each name with its leading colon.
using Bindings = std::map<std::string, Binding_Value>;
