#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "backup/runtime/secure_memory.h"
#include "json_spirit/json_spirit_export.h"

/// JSON values, and their text in and out. No function recurses on the depth of a value or fails on depth: a value
/// nested a million levels deep is read, copied, compared, written and destroyed in constant stack and linear time.
/// (Pretty text grows with the square of the depth, since each level is indented.)
namespace json_spirit {

class Value;
using Object = std::map<std::string, Value>;
using Array = std::vector<Value>;

/// The numbers are fixed: callers store them and write them into messages.
enum Value_type : int {
  obj_type = 0,
  array_type = 1,
  str_type = 2,
  secure_str_type = 3,
  bool_type = 4,
  int_type = 5,
  real_type = 6,
  null_type = 7
};

/// "object", "array", "string", "secure string", "bool", "int", "real" or "null"; "unknown" for any other number.
JSON_SPIRIT_API char const* value_type_to_string(Value_type type) noexcept;

/// One JSON value: 40 bytes on 64-bit platforms. Texts that fit std::string's own buffer are held without an
/// allocation. Integers keep their signedness: signed 1 and unsigned 1 differ. When a value is assigned to, moved from
/// or destroyed, it wipes its secure string, inside the value and on the heap. A getter of another kind throws
/// std::runtime_error, "value is of type string, not int". A reference from a getter is valid until the value is moved,
/// assigned to or destroyed. When a copy throws std::bad_alloc, its target is unchanged.
class JSON_SPIRIT_API Value {
public:
  Value() noexcept : int_(0), type_(null_type), is_uint64_(false) {}
  // NOLINTBEGIN(google-explicit-constructor): a value stands wherever one of these does
  Value(char const* text);  ///< a null pointer gives the empty text
  Value(std::string const& text);
  Value(std::string&& text) noexcept;
  Value(Secure_String const& text);
  Value(Object const& object);
  Value(Object&& object);
  Value(Array const& array);
  Value(Array&& array) noexcept;
  Value(bool value) noexcept;
  Value(int value) noexcept;
  Value(unsigned int value) noexcept;
  Value(long value) noexcept;
  Value(unsigned long value) noexcept;
  Value(long long value) noexcept;
  Value(unsigned long long value) noexcept;
  Value(double value) noexcept;
  // NOLINTEND(google-explicit-constructor)
  template <class T>
  Value(T const* pointer) = delete;  // would become a bool

  Value(Value const& other) : Value() {
    if (other.holds_more()) {
      copy(other);
    } else {
      copy_scalar(other);
    }
  }
  /// Leaves `other` null.
  Value(Value&& other) noexcept : Value() { take(other); }
  Value& operator=(Value const& other);
  /// The same. `other` may be part of this value; this value must not be part of `other`.
  Value& operator=(Value&& other) noexcept;
  ~Value() {
    if (holds_more()) destroy();
  }

  Value_type type() const noexcept { return type_; }
  bool is_null() const noexcept { return type_ == null_type; }
  /// True for an integer stored as unsigned.
  bool is_uint64() const noexcept { return is_uint64_; }

  std::string const& get_str() const;
  Secure_String const& get_secure_str() const;
  Object const& get_obj() const;
  Object& get_obj();
  Array const& get_array() const;
  Array& get_array();
  bool get_bool() const;
  /// Also throws std::range_error, "integer 9223372036854775808 does not fit int64", instead of changing the number.
  std::int64_t get_int64() const;
  /// The same for a negative number.
  std::uint64_t get_uint64() const;
  /// Reads an integer too, rounded to the nearest double.
  double get_real() const;

  /// True for the same kind and content: members of objects, elements of arrays in order, integers by value and
  /// signedness, reals by ==.
  friend JSON_SPIRIT_API bool operator==(Value const& a, Value const& b);
  friend bool operator!=(Value const& a, Value const& b) { return !(a == b); }

private:
  struct Object_Box;
  friend struct Value_Access;

  // True for kinds that are more than one word.
  bool holds_more() const noexcept { return type_ <= secure_str_type; }
  void copy_scalar(Value const& other) noexcept {
    std::memcpy(&int_, &other.int_, sizeof int_);
    type_ = other.type_;
    is_uint64_ = other.is_uint64_;
  }
  // The old content must have ended.
  void become_null() noexcept {
    int_ = 0;
    type_ = null_type;
    is_uint64_ = false;
  }
  // In these this value must be null.
  void take(Value& other) noexcept {
    if (other.holds_more()) {
      steal(other);
    } else {
      copy_scalar(other);
      other.become_null();
    }
  }
  void copy(Value const& other);
  void steal(Value& other) noexcept;
  void destroy() noexcept;
  void check(Value_type wanted) const;

  union {
    Object_Box* object_;
    Array array_;
    std::string str_;
    Secure_String secure_str_;
    std::int64_t int_;  // an unsigned one as its bits, a boolean as 0 or 1
    double real_;
  };
  Value_type type_ : 8;
  bool is_uint64_;
  // A class derived from Value may use the six bytes behind.
};

/// The member `key`, or null when there is none. Points into `object`.
JSON_SPIRIT_API Value const* object_get_value(Object const& object, std::string const& key);
/// The same for a member that is a string; null for any other kind.
JSON_SPIRIT_API std::string const* object_get_str(Object const& object, std::string const& key);
/// The same for a member that is an array; null for any other kind.
JSON_SPIRIT_API Array const* object_get_array(Object const& object, std::string const& key);
/// The array member `key`. Throws std::out_of_range without it, and std::runtime_error when it is no array.
JSON_SPIRIT_API Array const& object_get_array_or_throw(Object const& object, std::string const& key);
JSON_SPIRIT_API Array& object_get_array_or_throw(Object& object, std::string const& key);

/// The JSON text of a value (RFC 8259), made at construction; keeps nothing of the value.
/// Compact text has no blanks; pretty text has one member or element in each line, indented by 4. In strings only
/// quotes, backslashes and control characters are escaped. Secure strings are written in clear. Reals are the shortest
/// text that reads back the same, always with a fraction or an exponent; infinities and NaN become null.
class JSON_SPIRIT_API JSON_Dump {
public:
  JSON_Dump(Value const& value, bool pretty);
  JSON_Dump(JSON_Dump const&) = delete;
  JSON_Dump& operator=(JSON_Dump const&) = delete;
  /// Wipes the text.
  ~JSON_Dump();
  /// Bytes of the text.
  std::size_t size() const noexcept { return text_.size(); }
  /// Valid as long as this object.
  char const* c_str() const noexcept { return text_.c_str(); }

private:
  Secure_String text_;  // it may hold a secret
};

/// The error that `read_string` found, and its place.
struct JSON_SPIRIT_API Read_Error {
  std::size_t line = 0;    ///< from 1; 0: no error
  std::size_t column = 0;  ///< from 1, in bytes
  std::string reason;
};

/// How `read_string` treats a second member with the same name in an object.
enum class Repeated_Members { last_counts, refused };

/// Reads one JSON text (RFC 8259, UTF-8 checked, nothing but blanks after it) into `value`. Integers that fit are
/// signed, larger ones up to 2^64-1 unsigned, all other numbers real. Of two members with one name the last counts,
/// unless `repeated` refuses them. Zero bytes are kept. False, with `value` unchanged and `error` filled, when the text
/// is malformed or a number exceeds a double. A number with 309 digits before its point or an exponent above 308 may be
/// refused even when it fits ("0e400"). A number too small for a double is 0.
JSON_SPIRIT_API bool read_string(std::string const& text, Value& value, Read_Error& error,
                                 Repeated_Members repeated = Repeated_Members::last_counts);
/// The same, throwing std::runtime_error "line 1, column 5: REASON" instead.
JSON_SPIRIT_API void read_string_or_throw(std::string const& text, Value& value);

}  // namespace json_spirit
