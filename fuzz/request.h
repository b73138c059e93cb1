#pragma once

#include <algorithm>
#include <utility>

#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "fuzz.h"

/// Every type, every way to name a column, every flag. The word "secret" stands in no statement.
inline SQL_Filter_Parser::Filters const allowed_keys[] = {
    {"name", 4, {"f", 3, 2, 2}},          {"kind", 4, {nullptr, 3, 0, 0}}, {"size", 4, {"file_size", 2, 1, 0}},
    {"host_uuid", 9, {nullptr, 4, 0, 0}}, {"deleted", 7, {"d", 1, 1, 2}},  {"any", 3, {nullptr, 9, 0, 2}},
    {"lost", 4, {"x", 3, 7, 0}},          {"limit", 5, {"f", 2, 2, 0}},    {"hidden", 6, {"secret", 0, 1, 0}},
    {nullptr, 0, {nullptr, 0, 0, 0}}};

/// Allowed outside literals: words of SQL, names of the table.
constexpr char const* words =
    " SELECT COUNT FROM WHERE AND OR NOT IN LIKE IS NULL LOWER ORDER BY ASC DESC LIMIT OFFSET x file f id name kind "
    "file_size host_uuid d any lost limit ";

using Rendered = std::pair<std::string, Bindings>;
using Marked = std::pair<std::string, std::vector<Binding_Value>>;

/// Outside of closed literals, only numbers may come from the request. Parameters count up from 1, and each is bound.
inline void check(Rendered const& rendered) {
  std::string word;
  std::size_t count = 0;
  bool in_literal = false;
  for (char const c : rendered.first + ' ') {
    if (!in_literal && (is_name_character(c) || c == ':')) {
      word += c;
      continue;
    }
    bool const is_parameter =
        word[0] == ':' && rendered.second.count(word) == 1 && word == ':' + std::to_string(++count);
    bool const is_number = word.find_first_not_of("0123456789e") == std::string::npos;
    require(is_parameter || is_number || is_one_of(word, words), "words are parameters, numbers, SQL's or the table's");
    word.clear();
    in_literal ^= c == '\'';
    require(in_literal || c == ' ' || is_one_of({c}, " ( ) , . * = < > ! + - ` ' "), "characters are SQL's");
  }
  require(!in_literal && count == rendered.second.size(), "literals are closed, nothing else is bound");
}

/// Parses a request, a map or an object, and checks the result.
template <class Request>
Rendered check_request(Request const& request) {
  Select_SQL select("file", "f");
  SQL_Filter_Parser parser(select, allowed_keys);
  require(parser.parse(request, SQL_Filter_Parser::afresh) && parser.control(select), "parsing never fails");
  Rendered counted, rendered;
  select.get_count_sql(SQL::DB_MYSQL, counted.first, counted.second);
  select.get_sql(SQL::DB_SQLITE, rendered.first, rendered.second);
  check(counted);
  check(rendered);
  Marked marked, converted{rendered.first, {}};
  select.get_sql(SQL::DB_SQLITE, marked.first, marked.second);
  Question_Mask_SQL_Converter().convert(converted.first, rendered.second, converted.second);
  require(marked == converted, "marks are those that names are converted to");
  auto const kind = request.find("kind");
  auto const has_kind = [&](auto const& bound) { return bound.second == Binding_Value(kind->second); };
  require(kind == request.end() || std::any_of(rendered.second.begin(), rendered.second.end(), has_kind),
          "what a column of texts is compared with is bound as it came");
  return rendered;
}
