#include "json_spirit/json_spirit.h"

namespace json_spirit {

Value const* object_get_value(Object const& object, std::string const& key) {
  auto const member = object.find(key);
  return member == object.end() ? nullptr : &member->second;
}

std::string const* object_get_str(Object const& object, std::string const& key) {
  Value const* const value = object_get_value(object, key);
  return value != nullptr && value->type() == str_type ? &value->get_str() : nullptr;
}

Array const* object_get_array(Object const& object, std::string const& key) {
  Value const* const value = object_get_value(object, key);
  return value != nullptr && value->type() == array_type ? &value->get_array() : nullptr;
}

Array const& object_get_array_or_throw(Object const& object, std::string const& key) {
  return object.at(key).get_array();
}

Array& object_get_array_or_throw(Object& object, std::string const& key) { return object.at(key).get_array(); }

}  // namespace json_spirit
