// Positional conversion. The input: bound names, one in each line, an empty line, the text.
#include <sstream>

#include "backup/utils/sql/question_mask_sql_converter.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::istringstream input({data, data + size});
  Bindings bindings;
  for (std::string name; std::getline(input, name) && !name.empty();) bindings[name] = name;
  std::string const sql{std::istreambuf_iterator<char>(input), {}};
  if (sql.size() < bindings.size()) return 0;  // refused
  std::string marked;
  std::vector<Binding_Value> wanted;
  for (std::size_t i = 0, tail = 0; i < sql.size();) {
    std::size_t const begin = i++;
    if (sql[begin] == ':') {
      if (i == sql.size()) marked += sql.substr(tail, begin - tail);  // written twice, deliberately
      while (i < sql.size() && is_name_character(sql[i])) ++i;
      tail = i;
    }
    std::string const token = sql.substr(begin, i - begin);
    bool const is_bound = token.size() > 1 && bindings.count(token) > 0;
    marked += is_bound ? "?" : token;
    if (is_bound) wanted.push_back(bindings[token]);
  }
  std::string converted = sql;
  std::vector<Binding_Value> values;
  require(Question_Mask_SQL_Converter().convert(converted, bindings, values) == !sql.empty(), "a text is converted");
  require(converted == marked, "bound names become marks, the rest stays");
  require(values == wanted, "values stand in the order of their marks");
  return 0;
}
