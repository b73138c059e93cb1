#include "json_spirit/json_spirit.h"

#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace json_spirit {

static_assert(sizeof(void*) != 8 || sizeof(Value) <= 40);
static_assert(std::is_nothrow_move_constructible_v<Value> && std::is_nothrow_move_assignable_v<Value>);

char const* value_type_to_string(Value_type type) noexcept {
  switch (type) {
    case obj_type: return "object";
    case array_type: return "array";
    case str_type: return "string";
    case secure_str_type: return "secure string";
    case bool_type: return "bool";
    case int_type: return "int";
    case real_type: return "real";
    case null_type: return "null";
  }
  return "unknown";
}

// A container's address stays when its value moves. `next` chains the boxes that wait for their end.
struct Value::Object_Box {
  Object map;
  Object_Box* next = nullptr;
};
struct Value::Array_Box {
  Array array;
  Array_Box* next = nullptr;
};

namespace {

bool is_container(Value const& value) noexcept { return value.type() <= array_type; }

// Containers whose content is still to be copied or compared. The pointers stay valid: a copied array has its full
// capacity before its first element.
template <class Other>
using Container_Pairs = std::vector<std::pair<Value const*, Other*>>;

template <class Pairs>
auto take_last(Pairs& pairs) {
  auto const last = pairs.back();
  pairs.pop_back();
  return last;
}

}  // namespace

struct Value_Access {
  // In all of these `to` is null at first.
  static void steal(Value& from, Value& to) noexcept;
  static void copy_leaf(Value const& from, Value& to);
  static void copy_tree(Value const& from, Value& to);
  static void copy_children(Value const& from, Value& to, Container_Pairs<Value>& pending);
  static void copy_child(Value const& from, Value& to, Container_Pairs<Value>& pending) {
    if (is_container(from)) {
      pending.emplace_back(&from, &to);
    } else {
      copy_leaf(from, to);
    }
  }

  static bool equal(Value const& a, Value const& b, Container_Pairs<Value const>& pending);
  static bool equal_objects(Object const& a, Object const& b, Container_Pairs<Value const>& pending);
  static bool equal_arrays(Array const& a, Array const& b, Container_Pairs<Value const>& pending);

  // The string's own buffer may hold the secret.
  static void end_secure_str(Value& value) noexcept {
    value.secure_str_.~basic_string();
    secure_memset(&value.secure_str_, 0, sizeof(Secure_String));
  }

  class Doomed_Boxes;
};

// Ends containers one by one, each only after its own containers were cut off and chained: any depth, no allocation.
class Value_Access::Doomed_Boxes {
public:
  void add(Value& value) noexcept {
    if (value.type_ == obj_type) {
      value.object_->next = std::exchange(objects_, value.object_);
    } else if (value.type_ == array_type) {
      value.array_->next = std::exchange(arrays_, value.array_);
    } else {
      return;
    }
    value.type_ = null_type;
  }
  void end_all() noexcept {
    while (objects_ != nullptr || arrays_ != nullptr) {
      if (objects_ != nullptr) {
        std::unique_ptr<Value::Object_Box> const box(std::exchange(objects_, objects_->next));
        for (auto& member : box->map) add(member.second);
      } else {
        std::unique_ptr<Value::Array_Box> const box(std::exchange(arrays_, arrays_->next));
        for (Value& element : box->array) add(element);
      }
    }
  }

private:
  Value::Object_Box* objects_ = nullptr;
  Value::Array_Box* arrays_ = nullptr;
};

void Value_Access::steal(Value& from, Value& to) noexcept {
  switch (from.type_) {
    case obj_type: to.object_ = from.object_; break;
    case array_type: to.array_ = from.array_; break;
    case str_type:
      new (&to.str_) std::string(std::move(from.str_));
      from.str_.~basic_string();
      break;
    case secure_str_type:
      new (&to.secure_str_) Secure_String(std::move(from.secure_str_));
      end_secure_str(from);
      break;
    case bool_type: to.bool_ = from.bool_; break;
    case int_type: to.int_ = from.int_; break;
    case real_type: to.real_ = from.real_; break;
    case null_type: break;
  }
  to.type_ = std::exchange(from.type_, null_type);
  to.is_uint64_ = std::exchange(from.is_uint64_, false);
}

void Value_Access::copy_leaf(Value const& from, Value& to) {
  switch (from.type_) {
    case str_type: new (&to.str_) std::string(from.str_); break;
    case secure_str_type: new (&to.secure_str_) Secure_String(from.secure_str_); break;
    case bool_type: to.bool_ = from.bool_; break;
    case int_type: to.int_ = from.int_; break;
    case real_type: to.real_ = from.real_; break;
    default: return;
  }
  to.type_ = from.type_;
  to.is_uint64_ = from.is_uint64_;
}

void Value_Access::copy_children(Value const& from, Value& to, Container_Pairs<Value>& pending) {
  if (from.type_ == obj_type) {
    to = Object();
    Object& target = to.object_->map;
    for (auto const& [key, value] : from.object_->map) {
      copy_child(value, target.emplace_hint(target.end(), key, Value())->second, pending);
    }
  } else {
    to = Array();
    Array& target = to.array_->array;
    target.reserve(from.array_->array.size());
    for (Value const& element : from.array_->array) copy_child(element, target.emplace_back(), pending);
  }
}

void Value_Access::copy_tree(Value const& from, Value& to) {
  Container_Pairs<Value> pending;
  copy_children(from, to, pending);
  while (!pending.empty()) {
    auto const [source, target] = take_last(pending);
    copy_children(*source, *target, pending);
  }
}

bool Value_Access::equal(Value const& a, Value const& b, Container_Pairs<Value const>& pending) {
  if (a.type_ != b.type_) return false;
  switch (a.type_) {
    case str_type: return a.str_ == b.str_;
    case secure_str_type: return a.secure_str_ == b.secure_str_;
    case bool_type: return a.bool_ == b.bool_;
    case int_type: return a.int_ == b.int_ && a.is_uint64_ == b.is_uint64_;
    case real_type: return a.real_ == b.real_;
    case null_type: return true;
    default: pending.emplace_back(&a, &b); return true;
  }
}

bool Value_Access::equal_objects(Object const& a, Object const& b, Container_Pairs<Value const>& pending) {
  if (a.size() != b.size()) return false;
  auto other = b.begin();
  for (auto const& [key, value] : a) {
    if (key != other->first || !equal(value, other->second, pending)) return false;
    ++other;
  }
  return true;
}

bool Value_Access::equal_arrays(Array const& a, Array const& b, Container_Pairs<Value const>& pending) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!equal(a[i], b[i], pending)) return false;
  }
  return true;
}

bool operator==(Value const& a, Value const& b) {
  Container_Pairs<Value const> pending;
  if (!Value_Access::equal(a, b, pending)) return false;
  while (!pending.empty()) {
    auto const [x, y] = take_last(pending);
    bool const same = x->type() == obj_type ? Value_Access::equal_objects(x->get_obj(), y->get_obj(), pending)
                                            : Value_Access::equal_arrays(x->get_array(), y->get_array(), pending);
    if (!same) return false;
  }
  return true;
}

Value::Value(char const* text) : Value(std::string(text != nullptr ? text : "")) {}
Value::Value(std::string const& text) : str_(text), type_(str_type), is_uint64_(false) {}
Value::Value(std::string&& text) noexcept : str_(std::move(text)), type_(str_type), is_uint64_(false) {}
Value::Value(Secure_String const& text) : secure_str_(text), type_(secure_str_type), is_uint64_(false) {}
Value::Value(Object const& object) : object_(new Object_Box{object}), type_(obj_type), is_uint64_(false) {}
Value::Value(Object&& object) : object_(new Object_Box{std::move(object)}), type_(obj_type), is_uint64_(false) {}
Value::Value(Array const& array) : array_(new Array_Box{array}), type_(array_type), is_uint64_(false) {}
Value::Value(Array&& array) : array_(new Array_Box{std::move(array)}), type_(array_type), is_uint64_(false) {}
Value::Value(bool value) noexcept : bool_(value), type_(bool_type), is_uint64_(false) {}
Value::Value(int value) noexcept : Value(static_cast<long long>(value)) {}
Value::Value(unsigned int value) noexcept : Value(static_cast<unsigned long long>(value)) {}
Value::Value(long value) noexcept : Value(static_cast<long long>(value)) {}
Value::Value(unsigned long value) noexcept : Value(static_cast<unsigned long long>(value)) {}
Value::Value(long long value) noexcept : int_(value), type_(int_type), is_uint64_(false) {}
Value::Value(unsigned long long value) noexcept
    : int_(static_cast<std::int64_t>(value)), type_(int_type), is_uint64_(true) {}
Value::Value(double value) noexcept : real_(value), type_(real_type), is_uint64_(false) {}

// Delegating: when the copy fails half-way, the destructor takes back what it has.
Value::Value(Value const& other) : Value() {
  if (is_container(other)) {
    Value_Access::copy_tree(other, *this);
  } else {
    Value_Access::copy_leaf(other, *this);
  }
}

Value::Value(Value&& other) noexcept : Value() { Value_Access::steal(other, *this); }

// By way of a copy: `other` may lie in this value or this value in it.
Value& Value::operator=(Value const& other) { return *this = Value(other); }

// The old content ends last: `other` may be part of it.
Value& Value::operator=(Value&& other) noexcept {
  if (this != &other) {
    Value const old(std::move(*this));
    Value_Access::steal(other, *this);
  }
  return *this;
}

void Value::destroy() noexcept {
  if (type_ == str_type) {
    str_.~basic_string();
  } else if (type_ == secure_str_type) {
    Value_Access::end_secure_str(*this);
  } else {
    Value_Access::Doomed_Boxes boxes;
    boxes.add(*this);
    boxes.end_all();
  }
}

void Value::check(Value_type wanted) const {
  if (type_ == wanted) return;
  throw std::runtime_error(std::string("value is of type ") + value_type_to_string(type_) + ", not " +
                           value_type_to_string(wanted));
}

std::string const& Value::get_str() const {
  check(str_type);
  return str_;
}

Secure_String const& Value::get_secure_str() const {
  check(secure_str_type);
  return secure_str_;
}

Object const& Value::get_obj() const {
  check(obj_type);
  return object_->map;
}

Object& Value::get_obj() {
  check(obj_type);
  return object_->map;
}

Array const& Value::get_array() const {
  check(array_type);
  return array_->array;
}

Array& Value::get_array() {
  check(array_type);
  return array_->array;
}

bool Value::get_bool() const {
  check(bool_type);
  return bool_;
}

std::int64_t Value::get_int64() const {
  check(int_type);
  if (is_uint64_ && int_ < 0) {
    throw std::range_error("integer " + std::to_string(static_cast<std::uint64_t>(int_)) + " does not fit int64");
  }
  return int_;
}

std::uint64_t Value::get_uint64() const {
  check(int_type);
  if (!is_uint64_ && int_ < 0) throw std::range_error("integer " + std::to_string(int_) + " does not fit uint64");
  return static_cast<std::uint64_t>(int_);
}

double Value::get_real() const {
  if (type_ == int_type) return is_uint64_ ? static_cast<double>(get_uint64()) : static_cast<double>(int_);
  check(real_type);
  return real_;
}

}  // namespace json_spirit
