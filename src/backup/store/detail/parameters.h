#pragma once

#include <cmath>
#include <cstddef>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "backup/store/store.h"

namespace backup {

/// The parameters of a prepared statement.
struct Parameters {
  /// The names with their places, in order of name. Places count from 0; a name may have several.
  std::vector<std::pair<std::string, std::size_t>> names;
  /// The number of places.
  std::size_t places = 0;
};

/// Why a value cannot be bound, with the driver's code.
struct Unfit_Value : std::runtime_error {
  explicit Unfit_Value(std::string const& reason, int driver_code = 0)
      : std::runtime_error(reason), code(driver_code) {}
  int code;
};

/// Calls `bind(place, value)` for each place with its value of `command`. Throws Store_Error unless places and values
/// match one by one, and when `bind` throws Unfit_Value or another std::runtime_error.
template <class Bind>
void bind_all(Store::Command const& command, Parameters const& parameters, Bind bind) {
  auto const refuse = [&](std::string const& reason, int code = 0) { throw Store_Error(reason, code, command.text); };
  auto const bind_one = [&](std::size_t place, std::string const& name, Binding_Value const& value) {
    try {
      bind(place, value);
    } catch (Unfit_Value const& error) {
      refuse("parameter " + name + ": " + error.what(), error.code);
    } catch (std::runtime_error const& error) {
      refuse("parameter " + name + ": " + error.what());
    }
  };
  auto const& names = parameters.names;
  if (auto const* const values = std::get_if<std::vector<Binding_Value>>(&command.values)) {
    if (!names.empty()) refuse("parameter " + names.front().first + " has a name, but values come by position");
    if (parameters.places != values->size()) {
      refuse(std::to_string(values->size()) + " values for " + std::to_string(parameters.places) + " parameters");
    }
    std::size_t place = 0;
    for (Binding_Value const& value : *values) {
      bind_one(place, std::to_string(place + 1), value);
      ++place;
    }
    return;
  }
  if (names.size() != parameters.places) refuse("a parameter has no name, but values come by name");
  auto parameter = names.begin();  // both are in order of name
  for (auto const& [name, value] : std::get<Bindings>(command.values)) {
    if (parameter == names.end() || name < parameter->first) refuse("no parameter " + name + " for the value");
    for (; parameter != names.end() && parameter->first == name; ++parameter) {
      bind_one(parameter->second, name, value);
    }
    if (parameter != names.end() && parameter->first < name) break;
  }
  if (parameter != names.end()) refuse("no value for the parameter " + parameter->first);
}

/// The texts of objects and arrays while they are bound, at fixed addresses.
using JSON_Texts = std::list<json_spirit::JSON_Dump>;

/// Passes the value to the driver by its kind: `driver.null()`, `.integer(long long)`, `.natural(unsigned long long)`,
/// `.real(double)`, `.text(char const*, std::size_t)` or `.bytes(char const*, std::size_t)`. Pointers are valid while
/// `value` and `json_texts` live. Throws std::runtime_error when the value's kind and its content do not agree, and for
/// a NaN, which no database stores.
template <class Driver>
void hand_over(Binding_Value const& value, JSON_Texts& json_texts, Driver& driver) {
  json_spirit::Value const& json = value.val();
  auto const text = [&](auto const& characters) { driver.text(characters.c_str(), characters.size()); };
  auto const bytes = [&](auto const& characters) { driver.bytes(characters.data(), characters.size()); };
  switch (value.type()) {
    case Binding_Value::null_type: return driver.null();
    case Binding_Value::bool_type: return driver.integer(json.get_bool() ? 1 : 0);
    case Binding_Value::int_type:
      return json.is_uint64() ? driver.natural(json.get_uint64()) : driver.integer(json.get_int64());
    case Binding_Value::real_type:
      if (std::isnan(json.get_real())) throw Unfit_Value("not a number, which would be stored as NULL");
      return driver.real(json.get_real());
    case Binding_Value::str_type: return text(json.get_str());
    case Binding_Value::secure_str_type: return text(json.get_secure_str());
    case Binding_Value::bin_type: return bytes(json.get_str());
    case Binding_Value::secure_bin_type: return bytes(json.get_secure_str());
    case Binding_Value::obj_type:
    case Binding_Value::array_type: return text(json_texts.emplace_back(json, false));
  }
  throw Unfit_Value("unknown kind of value");
}

}  // namespace backup
