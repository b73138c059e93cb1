#pragma once

#include <algorithm>
#include <boost/tokenizer.hpp>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "backup/runtime/http_query_string.h"
#include "backup/utils/sql/filter_sql.h"
#include "json_spirit/json_spirit.h"

/// Readers of request text, for query strings and JSON objects.
namespace backup::request_text {

/// The value of a pair, by address.
struct Operand {
  // NOLINTBEGIN(google-explicit-constructor): a pair's value is its operand
  Operand(std::string const& pair_text) : text(&pair_text), json(nullptr) {}
  Operand(json_spirit::Value const& value)
      : text(value.type() == json_spirit::str_type ? &value.get_str() : nullptr), json(&value) {}
  // NOLINTEND(google-explicit-constructor)

  std::string const* text;         ///< null for a JSON value that is no text
  json_spirit::Value const* json;  ///< null for a text that is no JSON value
};

/// The integer at the start of a text: an optional sign and digits up to the first other character. Never fails, and
/// sets ACE_OS::last_error: 0 without digits (EINVAL); 2^63-1 beyond 64 bits (ERANGE), also for a negative text.
long long read_integer(std::string_view text);

/// True unless the text is exactly "0".
bool read_boolean(std::string_view text);

/// For Boost's tokenizer: views of the pieces between commas, without the empty ones.
struct Comma_Separator {
  void reset() {}
  bool operator()(char const*& next, char const* end, std::string_view& piece) const {
    next = std::find_if(next, end, [](char c) { return c != ','; });
    char const* const begin = std::exchange(next, std::find(next, end, ','));
    piece = {begin, static_cast<std::size_t>(next - begin)};
    return !piece.empty();
  }
};

/// Calls `use(piece)` for each piece between commas that is not empty. Stops with false when `use` gives false.
template <class Use>
bool read_list(std::string_view text, Use use) {
  using Pieces = boost::token_iterator<Comma_Separator, char const*, std::string_view>;
  for (Pieces piece({}, text.data(), text.data() + text.size()); !piece.at_end(); ++piece) {
    if (!use(*piece)) return false;
  }
  return true;
}

/// How much text of groups one request may have read: 16 MiB plus 256 times the text of its groups. A group with
/// escapes is read again at each level. Without this limit a text with a few escapes at each of many levels would cost
/// the square of its size.
class Read_Allowance {
public:
  /// Raises the limit for `size` more bytes of groups.
  void add_text(std::size_t size) { left_ += 256 * size; }
  /// False when fewer than `size` bytes are left to read.
  bool read(std::size_t size) {
    if (size > left_) return false;
    left_ -= size;
    return true;
  }

private:
  std::size_t left_ = std::size_t{16} << 20;
};

inline bool is_group(std::string_view key) { return Filter_SQL::type_of_name(key).has_value(); }

/// True when `pair`, the first of `text`, is the whole text and nothing in it is escaped. Then the same holds for its
/// value, and so on inwards.
inline bool is_literal(std::string const& text, HTTP_Query_String_Iterator::Pair const& pair) {
  auto const& [key, value] = pair;
  return text.size() == key.size() + 1 + value.size() && text.compare(0, key.size(), key) == 0 &&
         text[key.size()] == '=' && text.compare(key.size() + 1, value.size(), value) == 0;
}

/// `walk_query_string` for a literal text: each pair's value is the next pair, so each key begins where the last one
/// ended.
template <class Target, class Pair, class Group>
bool walk_literal(std::string const& text, Target* target, Pair pair, Group group) {
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t const equals = std::min(text.find('=', begin), text.size());
    std::string const key(text, begin, equals - begin);
    begin = std::min(equals + 1, text.size());
    if (!is_group(key)) return pair(key, text.substr(begin), target);
    target = group(key, target);
    if (target == nullptr) return false;
  }
  return true;
}

/// Calls `pair(key, value, target)` for each pair of a query string. A key AND or OR opens a group instead: its value
/// is the query string of its members, and `group(key, target)` gives their target. Stops with false when `pair` gives
/// false or `group` gives null.
///
/// No recursion on the depth of groups. A literal group costs only its key. A group with escapes has its text read
/// again; false when `allowance` is used up.
template <class Target, class Pair, class Group>
bool walk_query_string(std::string const& text, Target* target, Read_Allowance& allowance, Pair pair, Group group) {
  struct Level {
    HTTP_Query_String_Iterator next;
    Target* target;
  };
  HTTP_Query_String_Iterator const end(nullptr, 0);
  allowance.add_text(text.size());
  std::vector<Level> levels;
  levels.push_back({HTTP_Query_String_Iterator(text, 0), target});
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == end) {
      levels.pop_back();
      continue;
    }
    auto const [key, value] = *level.next;
    target = level.target;
    ++level.next;
    if (level.next == end) levels.pop_back();  // before going deeper, to free its memory
    if (!is_group(key)) {
      if (!pair(key, value, target)) return false;
      continue;
    }
    target = group(key, target);
    if (target == nullptr || !allowance.read(value.size())) return false;
    HTTP_Query_String_Iterator members(value, 0);
    if (members == end) continue;
    if (!is_literal(value, *members)) {
      levels.push_back({std::move(members), target});
    } else if (!walk_literal(value, target, pair, group)) {
      return false;
    }
  }
  return true;
}

}  // namespace backup::request_text
