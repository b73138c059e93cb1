#pragma once

#include <mysql.h>

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <system_error>

#include "backup/utils/sql/binding_value.h"

namespace backup {

/// A column of a result: the driver writes its cells here, and `read` makes values of them.
class MySQL_Column {
public:
  explicit MySQL_Column(MYSQL_FIELD const& field) : is_unsigned_((field.flags & UNSIGNED_FLAG) != 0) {
    switch (field.type) {
      case MYSQL_TYPE_TINY:
      case MYSQL_TYPE_SHORT:
      case MYSQL_TYPE_INT24:
      case MYSQL_TYPE_LONG:
      case MYSQL_TYPE_LONGLONG:
      case MYSQL_TYPE_YEAR: kind_ = integer; break;
      case MYSQL_TYPE_FLOAT:
      case MYSQL_TYPE_DOUBLE: kind_ = real; break;
      case MYSQL_TYPE_NEWDECIMAL:
      case MYSQL_TYPE_DECIMAL: kind_ = field.decimals == 0 ? whole_decimal : text; break;
      case MYSQL_TYPE_DATE:
      case MYSQL_TYPE_TIME:
      case MYSQL_TYPE_DATETIME:
      case MYSQL_TYPE_TIMESTAMP:
      case MYSQL_TYPE_NULL: kind_ = text; break;
      default: kind_ = field.charsetnr == binary_charset ? bytes : text;
    }
  }

  /// The buffer for the client library; it points into this object.
  MYSQL_BIND bound() {
    MYSQL_BIND bind{};
    bind.buffer_type = kind_ == integer ? MYSQL_TYPE_LONGLONG : kind_ == real ? MYSQL_TYPE_DOUBLE : MYSQL_TYPE_STRING;
    bind.is_unsigned = is_unsigned_ ? 1 : 0;
    bind.buffer = buffer_.data();
    bind.buffer_length = static_cast<unsigned long>(buffer_.size());
    bind.length = &size_;
    bind.is_null = &is_null_;
    bind.error = &is_cut_;
    return bind;
  }

  /// Reads this column's cell of the row fetched last; `column` is its number. False when the driver cannot give it.
  bool read(MYSQL_STMT* statement, unsigned int column, Binding_Value& value) {
    if (is_null_ != 0) {
      value = Binding_Value();
      return true;
    }
    switch (kind_) {
      case integer:
        value = is_unsigned_ ? Binding_Value(number<unsigned long long>()) : Binding_Value(number<long long>());
        return true;
      case real: value = number<double>(); return true;
      case text:
      case bytes:
      case whole_decimal: break;
    }
    if (size_ <= buffer_.size()) {
      characters_.assign(buffer_.data(), size_);
    } else if (!fetch_rest(statement, column)) {
      return false;
    }
    if (kind_ == whole_decimal && (read_as<long long>(value) || read_as<unsigned long long>(value))) return true;
    value = characters_;
    if (kind_ == bytes) value.type(Binding_Value::bin_type);
    return true;
  }

private:
  enum Kind { integer, real, whole_decimal, text, bytes };

  static constexpr unsigned int binary_charset = 63;  // MySQL's number for bytes

  template <class Number>
  Number number() const {
    Number number;
    std::memcpy(&number, buffer_.data(), sizeof number);
    return number;
  }

  template <class Number>
  bool read_as(Binding_Value& value) const {
    Number number{};
    char const* const end = characters_.data() + characters_.size();
    auto const result = std::from_chars(characters_.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = number;
    return true;
  }

  // Copies a cell that is larger than the buffer a second time, whole.
  bool fetch_rest(MYSQL_STMT* statement, unsigned int column) {
    characters_.resize(size_);
    MYSQL_BIND whole{};
    whole.buffer_type = MYSQL_TYPE_STRING;
    whole.buffer = characters_.data();
    whole.buffer_length = size_;
    return mysql_stmt_fetch_column(statement, &whole, column, 0) == 0;
  }

  Kind kind_;
  bool is_unsigned_;
  my_bool is_null_ = 0;
  my_bool is_cut_ = 0;
  unsigned long size_ = 0;
  std::array<char, 256> buffer_;
  std::string characters_;  // keeps its storage from row to row
};

}  // namespace backup
