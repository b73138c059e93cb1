#pragma once

#include <array>
#include <charconv>
#include <string>
#include <utility>

#include "backup/utils/sql/binding_value.h"

/// Shared by the code written by hand.
namespace by_hand {

inline void append_number(std::string& sql, unsigned long long number) {
  std::array<char, 20> digits;
  sql.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

// The cheapest way to fill the map: in the order of its names.
template <class Value_Of>
void fill(Bindings& bindings, unsigned long long count, Value_Of value_of) {
  unsigned long long number = 1;
  for (unsigned long long i = 0; i < count; ++i) {
    std::string name = ":";
    append_number(name, number);
    bindings.emplace_hint(bindings.end(), std::move(name), value_of(number));
    if (number * 10 <= count) {
      number *= 10;
    } else {
      if (number >= count) number /= 10;
      for (++number; number % 10 == 0;) number /= 10;
    }
  }
}

inline void append_name(std::string& sql, unsigned long long number) {
  sql += ':';
  append_number(sql, number);
}

}  // namespace by_hand
