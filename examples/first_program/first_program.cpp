#include <iostream>
#include <string>
#include <vector>

#include "backup/utils/sql/select_sql.h"

int main() {
  Select_SQL files("file", "f");
  files.add_key("f.path", nullptr).add_key("f.size", nullptr);
  files.left_join("host", "h", "h.id=f.host_id");
  files.and_filter()->add_kv_eq_item("h.name", "mail1");
  files.and_filter()->add_kv_item(Item_SQL::OP_GE, "f.size", 1048576, Filter_SQL::no_flags);
  files.sort_by("f.size", true).limit(10);

  std::string sql;
  Bindings bindings;
  std::cout << files.get_sql(SQL::DB_SQLITE, sql, bindings) << '\n';
  for (auto const& [name, value] : bindings) {
    std::string text;
    value.to_str(text);
    std::cout << name << " is " << text << '\n';
  }
  std::vector<Binding_Value> values;
  std::cout << files.get_sql(SQL::DB_MYSQL, sql, values) << '\n' << values.size() << " values\n";
}
