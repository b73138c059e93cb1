#include "backup/utils/sql/question_mask_sql_converter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "backup/utils/sql/detail/reserve_more.h"
#include "backup/utils/sql/detail/sql_log.h"

namespace {

constexpr char const* source_file = "src/backup/utils/sql/question_mask_sql_converter";

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Finds the value of a name. Generated names, ":" and a number without leading zeros, are found by number: a search in
// a large map compares a dozen texts. Other names are first compared with the entry after the last one found, as texts
// are often made in the map's order.
class Lookup {
public:
  explicit Lookup(Bindings const& bindings) : bindings_(bindings), next_(bindings.begin()) {
    if (bindings.size() < worth_it) return;
    numbered_.resize(bindings.size() + 1);
    for (Bindings::value_type const& binding : bindings) {
      std::size_t const number = number_of(binding.first);
      if (number < numbered_.size()) numbered_[number] = &binding.second;
    }
  }

  // Null when the name is not bound.
  Binding_Value const* find(std::string_view name) {
    std::size_t const number = number_of(name);
    if (number > 0 && number < numbered_.size()) return numbered_[number];
    if (next_ == bindings_.end() || next_->first != name) next_ = bindings_.find(std::string(name));
    if (next_ == bindings_.end()) return nullptr;
    return &(next_++)->second;
  }

private:
  static constexpr std::size_t worth_it = 8;

  // The number of a generated name; 0 for any other name.
  static std::size_t number_of(std::string_view name) {
    std::size_t number = 0;
    if (name.size() < 2 || name.size() > 10 || name[0] != ':' || name[1] == '0') return 0;
    for (char const c : name.substr(1)) {
      if (c < '0' || c > '9') return 0;
      number = 10 * number + static_cast<std::size_t>(c - '0');
    }
    return number;
  }

  Bindings const& bindings_;
  Bindings::const_iterator next_;
  std::vector<Binding_Value const*> numbered_;
};

}  // namespace

bool Question_Mask_SQL_Converter::convert(std::string& sql, Bindings const& bindings,
                                          std::vector<Binding_Value>& values) const {
  if (sql.empty()) {
    sql_log::unexpected({source_file}, "Unexpected error in %N:%l, sql is empty:\n%?\n");
    return false;
  }
  std::string out;
  out.reserve(sql.size() - bindings.size());  // deliberate: a length error when there are more bindings than characters
  backup::reserve_more(values, std::min(bindings.size(), sql.size() / 2));
  backup::Take_Back added(values);
  Lookup lookup(bindings);
  std::size_t position = 0;
  for (;;) {
    std::size_t const colon = sql.find(':', position);
    if (colon == std::string::npos) break;
    out.append(sql, position, colon - position);
    if (colon + 1 == sql.size()) break;  // `position` stays, so the tail is written again below
    std::size_t end = colon + 1;
    while (end < sql.size() && is_name_character(sql[end])) ++end;
    position = end;
    std::string_view const name(sql.data() + colon, end - colon);
    Binding_Value const* const value = name.size() > 1 ? lookup.find(name) : nullptr;
    if (value != nullptr) {
      out += '?';
      values.push_back(*value);
    } else {
      out += name;
    }
  }
  out.append(sql, position, std::string::npos);
  added.keep();
  sql.swap(out);
  return !sql.empty();
}
