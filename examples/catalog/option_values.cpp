#include "option_values.h"

#include <CLI/Error.hpp>
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>

namespace {

// The unit's factor as an exponent of 2; -1 for a text that is no unit.
int unit_bits(std::string const& unit, std::string const& units) {
  if (unit.empty()) return 0;
  std::size_t const place = unit.size() == 1 ? units.find(unit) : std::string::npos;
  return place == std::string::npos ? -1 : 10 * (static_cast<int>(place) + 1);
}

}  // namespace

std::string joined(Words const& words) {
  std::string list;
  for (std::string const& word : words) list += (list.empty() ? "" : ", ") + word;
  return list;
}

void require_word(std::string const& option, std::string const& word, Words const& allowed) {
  if (std::find(allowed.begin(), allowed.end(), word) != allowed.end()) return;
  throw CLI::ValidationError(option, "unknown word '" + word + "', allowed: " + joined(allowed));
}

std::string host_name_error(std::string const& name) {
  static constexpr char const* allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
  bool const is_name = !name.empty() && name.size() <= 255 && name.find_first_not_of(allowed) == std::string::npos;
  return is_name ? "" : "'" + name + "' is not 1 to 255 ASCII letters, digits, '.', '-' and '_'";
}

long long read_number(std::string const& option, std::string const& text, std::string const& units) {
  constexpr unsigned long long largest = std::numeric_limits<long long>::max();
  unsigned long long number = 0;
  char const* const end = text.data() + text.size();
  auto const read = std::from_chars(text.data(), end, number);
  int const bits = read.ec == std::errc() ? unit_bits(std::string(read.ptr, end), units) : -1;
  if (bits < 0 || number > largest >> bits) {
    throw CLI::ValidationError(option, "'" + text + "' is no number from 0 to " + std::to_string(largest));
  }
  return static_cast<long long>(number << bits);
}
