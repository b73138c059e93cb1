#pragma once

#include <mysql.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace backup {

/// A driver for `hand_over`: a value in the client library's form. Numbers are copied. Texts and bytes are not: they
/// must live until the statement ends.
class MySQL_Binder {
public:
  void null() { bind_.buffer_type = MYSQL_TYPE_NULL; }
  void integer(long long value) { number(MYSQL_TYPE_LONGLONG, value); }
  void natural(unsigned long long value) {
    number(MYSQL_TYPE_LONGLONG, value);
    bind_.is_unsigned = 1;
  }
  void real(double value) { number(MYSQL_TYPE_DOUBLE, value); }
  void text(char const* data, std::size_t size) { characters(MYSQL_TYPE_STRING, data, size); }
  void bytes(char const* data, std::size_t size) { characters(MYSQL_TYPE_BLOB, data, size); }

  /// The value for the client library; it points into this object.
  MYSQL_BIND bound() {
    if (bind_.buffer == nullptr) bind_.buffer = number_.data();
    return bind_;
  }

private:
  template <class Number>
  void number(enum_field_types type, Number value) {
    static_assert(sizeof value == sizeof number_);
    std::memcpy(number_.data(), &value, sizeof value);
    bind_.buffer_type = type;
  }

  void characters(enum_field_types type, char const* data, std::size_t size) {
    bind_.buffer_type = type;
    bind_.buffer = const_cast<char*>(data);  // the driver only reads it
    bind_.buffer_length = static_cast<unsigned long>(size);
  }

  MYSQL_BIND bind_{};
  std::array<char, 8> number_{};
};

}  // namespace backup
