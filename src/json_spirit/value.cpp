#include "json_spirit/json_spirit.h"

#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "backup/runtime/detail/block_stack.h"

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

// `next` chains the boxes that wait for their end.
struct Value::Object_Box {
  Object map;
  Object_Box* next = nullptr;
};

namespace {

bool is_container(Value const& value) noexcept { return value.type() <= array_type; }

// A container, and what it is copied to or compared with.
template <class Other>
struct Container_Pair {
  Value const* first;
  Other* second;
};

// Those whose content is still to be copied or compared. The pointers stay valid: a copied array has its full capacity
// before its first element.
template <class Other>
using Container_Pairs = backup::Block_Stack<Container_Pair<Other>>;

}  // namespace

struct Value_Access {
  // In all of these `to` is null at first.
  static void copy_tree(Value const& from, Value& to);
  static void copy_children(Value const& from, Value& to, Container_Pairs<Value>& pending);
  static void copy_child(Value const& from, Value& to, Container_Pairs<Value>& pending) {
    if (is_container(from)) {
      pending.push({&from, &to});
    } else if (from.holds_more()) {
      to.copy(from);
    } else {
      to.copy_scalar(from);
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

  // What they give up, `value` has no more.
  static Value::Object_Box* take_object(Value& value) noexcept {
    Value::Object_Box* const box = value.object_;
    value.become_null();
    return box;
  }
  static Array take_array(Value& value) noexcept {
    Array array = std::move(value.array_);
    end_array(value);
    return array;
  }
  static void end_array(Value& value) noexcept {
    value.array_.~vector();
    value.become_null();
  }

  class Doomed;
};

// Ends a container and all in it, of any depth, without recursion or allocation. The objects that are still to be ended
// are chained. Of arrays one is worked off from its end; its first element is the array around it.
class Value_Access::Doomed {
public:
  void end(Value& container) noexcept {
    end_arrays(container);
    while (objects_ != nullptr) {
      std::unique_ptr<Value::Object_Box> const box(std::exchange(objects_, objects_->next));
      for (auto& member : box->map) {
        if (is_container(member.second)) end_arrays(member.second);
      }
    }
  }

private:
  // Ends the arrays at `value` and chains the objects.
  void end_arrays(Value& value) noexcept {
    Array current;  // empty outside of the outermost one
    Value next(std::move(value));
    for (;;) {
      while (next.type_ == array_type && !next.array_.empty()) {
        Array inner = take_array(next);
        next = std::move(inner.front());
        inner.front() = Value(std::move(current));
        current = std::move(inner);
      }
      if (next.type_ == obj_type) {
        Value::Object_Box* const box = take_object(next);
        box->next = std::exchange(objects_, box);
      } else if (next.type_ == array_type) {
        end_array(next);
      }
      while (current.size() > 1 && !is_container(current.back())) current.pop_back();
      while (current.size() == 1) current = take_array(current.front());
      if (current.empty()) return;
      next = std::move(current.back());
      current.pop_back();
    }
  }

  Value::Object_Box* objects_ = nullptr;
};

void Value_Access::copy_children(Value const& from, Value& to, Container_Pairs<Value>& pending) {
  if (from.type_ == obj_type) {
    to = Object();
    Object& target = to.object_->map;
    for (auto const& [key, value] : from.object_->map) {
      copy_child(value, target.emplace_hint(target.end(), key, Value())->second, pending);
    }
  } else {
    to = Array();
    Array& target = to.array_;
    target.reserve(from.array_.size());
    for (Value const& element : from.array_) copy_child(element, target.emplace_back(), pending);
  }
}

void Value_Access::copy_tree(Value const& from, Value& to) {
  Container_Pairs<Value> pending;
  copy_children(from, to, pending);
  while (!pending.empty()) {
    auto const [source, target] = pending.take();
    copy_children(*source, *target, pending);
  }
}

bool Value_Access::equal(Value const& a, Value const& b, Container_Pairs<Value const>& pending) {
  if (a.type_ != b.type_) return false;
  switch (a.type_) {
    case str_type: return a.str_ == b.str_;
    case secure_str_type: return a.secure_str_ == b.secure_str_;
    case bool_type:
    case int_type: return a.int_ == b.int_ && a.is_uint64_ == b.is_uint64_;
    case real_type: return a.real_ == b.real_;
    case null_type: return true;
    default: pending.push({&a, &b}); return true;
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
    auto const [x, y] = pending.take();
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
Value::Value(Array const& array) : array_(array), type_(array_type), is_uint64_(false) {}
Value::Value(Array&& array) noexcept : array_(std::move(array)), type_(array_type), is_uint64_(false) {}
Value::Value(bool value) noexcept : int_(value ? 1 : 0), type_(bool_type), is_uint64_(false) {}
Value::Value(int value) noexcept : Value(static_cast<long long>(value)) {}
Value::Value(unsigned int value) noexcept : Value(static_cast<unsigned long long>(value)) {}
Value::Value(long value) noexcept : Value(static_cast<long long>(value)) {}
Value::Value(unsigned long value) noexcept : Value(static_cast<unsigned long long>(value)) {}
Value::Value(long long value) noexcept : int_(value), type_(int_type), is_uint64_(false) {}
Value::Value(unsigned long long value) noexcept
    : int_(static_cast<std::int64_t>(value)), type_(int_type), is_uint64_(true) {}
Value::Value(double value) noexcept : real_(value), type_(real_type), is_uint64_(false) {}

// When the copy of a container fails half-way, the destructor takes back what it has.
void Value::copy(Value const& other) {
  if (other.type_ == str_type) {
    new (&str_) std::string(other.str_);
  } else if (other.type_ == secure_str_type) {
    new (&secure_str_) Secure_String(other.secure_str_);
  } else {
    Value_Access::copy_tree(other, *this);
  }
  type_ = other.type_;
}

void Value::steal(Value& other) noexcept {
  switch (other.type_) {
    case str_type:
      new (&str_) std::string(std::move(other.str_));
      other.str_.~basic_string();
      break;
    case secure_str_type:
      new (&secure_str_) Secure_String(std::move(other.secure_str_));
      Value_Access::end_secure_str(other);
      break;
    case array_type:
      new (&array_) Array(std::move(other.array_));
      other.array_.~vector();
      break;
    default: object_ = other.object_;
  }
  type_ = other.type_;
  other.become_null();
}

// By way of a copy: `other` may lie in this value or this value in it.
Value& Value::operator=(Value const& other) { return *this = Value(other); }

// The old content ends last: `other` may be part of it.
Value& Value::operator=(Value&& other) noexcept {
  if (this != &other) {
    Value const old(std::move(*this));
    take(other);
  }
  return *this;
}

void Value::destroy() noexcept {
  if (type_ == str_type) {
    str_.~basic_string();
  } else if (type_ == secure_str_type) {
    Value_Access::end_secure_str(*this);
  } else {
    Value_Access::Doomed().end(*this);
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
  return array_;
}

Array& Value::get_array() {
  check(array_type);
  return array_;
}

bool Value::get_bool() const {
  check(bool_type);
  return int_ != 0;
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
