#include "backup/utils/sql/question_mask_sql_converter.h"

#include <cstddef>

#include "backup/utils/sql/detail/sql_log.h"

namespace {

constexpr char const* source_file = "src/backup/utils/sql/question_mask_sql_converter";

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

bool Question_Mask_SQL_Converter::convert(std::string& sql, Bindings const& bindings,
                                          std::vector<Binding_Value>& values) const {
  if (sql.empty()) {
    sql_log::unexpected({source_file}, "Unexpected error in %N:%l, sql is empty:\n%?\n");
    return false;
  }
  std::string out;
  out.reserve(sql.size() - bindings.size());  // unsigned: more bindings than characters is a length error, deliberately
  std::string name;
  std::size_t position = 0;
  for (;;) {
    std::size_t const colon = sql.find(':', position);
    if (colon == std::string::npos) break;
    out.append(sql, position, colon - position);
    if (colon + 1 == sql.size()) break;  // `position` stays: the tail is written again below
    std::size_t end = colon + 1;
    while (end < sql.size() && is_name_character(sql[end])) ++end;
    position = end;
    name.assign(sql, colon, end - colon);
    auto const bound = name.size() > 1 ? bindings.find(name) : bindings.end();
    if (bound != bindings.end()) {
      out += '?';
      values.push_back(bound->second);
    } else {
      out += name;
    }
  }
  out.append(sql, position, std::string::npos);
  sql.swap(out);
  return !sql.empty();
}
