#include "bench/workloads.h"

#include <algorithm>
#include <memory>

#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/select_sql.h"
#include "bench/by_hand.h"

namespace workloads {

namespace {

using namespace by_hand;

// ---- a SELECT

std::unique_ptr<Select_SQL> select_held;

std::unique_ptr<Select_SQL> make_select() {
  auto select = std::make_unique<Select_SQL>("file", "f");
  select->add_key("id", nullptr).add_key("name", nullptr).add_key("size", nullptr);
  Filter_SQL* const filter = select->and_filter();
  filter->add_kv_item(Item_SQL::OP_GE, "size", 1024, 0);
  filter->add_kv_item(Item_SQL::OP_LK, "name", "%report%", 0);
  Filter_SQL* const either = filter->add_or_filter();
  either->add_null_item("deleted");
  either->add_kv_item(Item_SQL::OP_NE, "kind", 2, 0);
  select->sort_by("name", false).limit(20).offset(40);
  return select;
}

void hold_select() { select_held = make_select(); }

constexpr char const* select_head = "SELECT id,name,size FROM `file` `f` WHERE (`size`>=";
constexpr char const* select_tail = ")) ORDER BY name ASC LIMIT 20 OFFSET 40";

Binding_Value select_value(unsigned long long number) {
  if (number == 1) return 1024;
  return number == 2 ? Binding_Value("%report%") : Binding_Value(2);
}

void hand_select_map(Result& out) {
  out.sql.reserve(1024);
  out.sql += select_head;
  append_name(out.sql, 1);
  out.sql += ") AND (`name` LIKE ";
  append_name(out.sql, 2);
  out.sql += ") AND ((`deleted` IS NULL) OR (`kind`!=";
  append_name(out.sql, 3);
  out.sql += select_tail;
  fill(out.bindings, 3, select_value);
}

void hand_select_list(Result& out) {
  out.sql.reserve(1024);
  out.values.reserve(3);
  out.sql += select_head;
  out.sql += "?) AND (`name` LIKE ?) AND ((`deleted` IS NULL) OR (`kind`!=?";
  out.sql += select_tail;
  for (unsigned long long number = 1; number <= 3; ++number) out.values.push_back(select_value(number));
}

// ---- an AND of many

std::vector<std::string> const columns = [] {
  std::vector<std::string> names;
  for (int i = 0; i < 100; ++i) names.push_back("column_" + std::to_string(i));
  return names;
}();

std::unique_ptr<And_Filter_SQL> filter_held;

std::unique_ptr<And_Filter_SQL> make_and() {
  auto filter = std::make_unique<And_Filter_SQL>();
  for (std::string const& column : columns) filter->add_kv_eq_item(column, 5);
  return filter;
}

void hand_and(Result& out) {
  out.sql.reserve(1024);
  char const* separator = "(`";
  unsigned long long number = 0;
  for (std::string const& column : columns) {
    out.sql += separator;
    out.sql += column;
    out.sql += "`=";
    append_name(out.sql, ++number);
    separator = ") AND (`";
  }
  out.sql += ')';
  fill(out.bindings, number, [](unsigned long long) { return Binding_Value(5); });
}

// ---- lists

constexpr int list_size = 1000;
std::vector<json_spirit::Value> const integers = [] {
  std::vector<json_spirit::Value> list;
  for (int i = 0; i < list_size; ++i) list.emplace_back(100000 + i);
  return list;
}();
std::vector<json_spirit::Value> const texts = [] {
  std::vector<json_spirit::Value> list;
  for (int i = 0; i < list_size; ++i) list.emplace_back("/home/user/documents/it is file " + std::to_string(1000 + i));
  return list;
}();

std::unique_ptr<And_Filter_SQL> make_list(std::vector<json_spirit::Value> const& list) {
  auto filter = std::make_unique<And_Filter_SQL>();
  filter->add_in_item("path", list, 0);
  return filter;
}

void hand_integers(Result& out) {
  out.sql.reserve(8 * integers.size() + 20);
  char const* separator = "(`path` IN (";
  for (json_spirit::Value const& value : integers) {
    out.sql += separator;
    append_number(out.sql, value.get_uint64());
    separator = ",";
  }
  out.sql += "))";
}

void hand_texts(Result& out) {
  out.sql.reserve(40 * texts.size() + 20);
  char const* separator = "(`path` IN (";
  for (json_spirit::Value const& value : texts) {
    out.sql += separator;
    out.sql += '\'';
    for (char const c : value.get_str()) {
      if (c == '\'') out.sql += c;
      out.sql += c;
    }
    out.sql += '\'';
    separator = ",";
  }
  out.sql += "))";
}

// ---- rows

std::string const fields[] = {"id", "path", "name", "kind", "size", "mtime", "owner", "run_id"};
std::string const path = "/usr/share/doc/package/examples";

// Short and long texts, integers, a null.
Binding_Value field_value(unsigned long long row, unsigned long long field) {
  switch (field) {
    case 1: return path;
    case 2: return "readme.txt";
    case 6: return "root";
    case 7: return {};
    default: return row * 10 + field;
  }
}

std::unique_ptr<Insert_SQL> insert_held;

template <unsigned long long rows>
std::unique_ptr<Insert_SQL> make_insert() {
  auto insert = std::make_unique<Insert_SQL>("file");
  for (unsigned long long row = 0; row < rows; ++row) {
    if (row > 0) insert->new_entry();
    for (unsigned long long field = 0; field < 8; ++field)
      insert->value(fields[field], field_value(row, field), nullptr);
  }
  return insert;
}

template <unsigned long long rows>
std::vector<std::vector<Binding_Value>> const& row_values() {
  static std::vector<std::vector<Binding_Value>> const values = [] {
    std::vector<std::vector<Binding_Value>> all(rows);
    for (unsigned long long row = 0; row < rows; ++row) {
      for (unsigned long long field = 0; field < 8; ++field) all[row].push_back(field_value(row, field));
    }
    return all;
  }();
  return values;
}

template <unsigned long long rows, class Value>
void hand_rows(std::string& sql, Value append_value) {
  sql += "INSERT INTO `file`(";
  char const* separator = "`";
  for (std::string const& field : fields) {
    sql += separator;
    sql += field;
    separator = "`,`";
  }
  separator = "`) VALUES(";
  for (unsigned long long row = 0; row < rows; ++row) {
    sql += separator;
    for (unsigned long long field = 0; field < 8; ++field) {
      if (field > 0) sql += ',';
      append_value(row, field);
    }
    separator = "),(";
  }
  sql += ')';
}

template <unsigned long long rows>
void hand_insert_map(Result& out) {
  auto const& values = row_values<rows>();
  out.sql.reserve(rows * 8 * 7 + 100);
  unsigned long long number = 0;
  hand_rows<rows>(out.sql, [&](unsigned long long, unsigned long long) { append_name(out.sql, ++number); });
  fill(out.bindings, number,
       [&](unsigned long long n) -> Binding_Value const& { return values[(n - 1) / 8][(n - 1) % 8]; });
}

template <unsigned long long rows>
void hand_insert_list(Result& out) {
  auto const& values = row_values<rows>();
  out.sql.reserve(rows * 8 * 3 + 100);
  out.values.reserve(rows * 8);
  hand_rows<rows>(out.sql, [&](unsigned long long row, unsigned long long field) {
    out.sql += '?';
    out.values.push_back(values[row][field]);
  });
}

// ---- groups in groups

template <int levels>
std::unique_ptr<And_Filter_SQL> make_deep() {
  auto filter = std::make_unique<And_Filter_SQL>();
  Filter_SQL* level = filter.get();
  for (int i = 0; i < levels; ++i) {
    level->add_kv_eq_item("column", i);
    level = i % 2 == 0 ? static_cast<Filter_SQL*>(level->add_or_filter()) : level->add_and_filter();
  }
  level->add_null_item("end");
  return filter;
}

template <int levels>
void hand_deep(Result& out) {
  out.sql.reserve(levels * 24 + 20);
  out.values.reserve(levels);
  for (int i = 0; i < levels; ++i) {
    out.sql += i % 2 == 0 ? "(`column`=?) AND (" : "(`column`=?) OR (";
    out.values.emplace_back(i);
  }
  out.sql += "(`end` IS NULL)";
  out.sql.append(levels, ')');
}

// ---- names to marks

Result named;

template <int count, bool in_map_order>
void make_named() {
  named = Result();
  fill(named.bindings, count, [](unsigned long long n) { return Binding_Value(n); });
  named.sql = "SELECT 1 WHERE 1";
  if (in_map_order) {
    for (auto const& binding : named.bindings) named.sql += " AND `column`!=" + binding.first;
  } else {
    for (int i = 1; i <= count; ++i) named.sql += " AND `column`!=:" + std::to_string(i);
  }
}

void library_marks(Result& out) {
  out.sql = named.sql;
  Question_Mask_SQL_Converter().convert(out.sql, named.bindings, out.values);
}

void hand_marks(Result& out) {
  std::string const& sql = named.sql;
  out.sql.reserve(sql.size());
  std::string name;
  for (std::size_t i = 0; i < sql.size();) {
    std::size_t const colon = std::min(sql.find(':', i), sql.size());
    out.sql.append(sql, i, colon - i);
    if (colon == sql.size()) break;
    for (i = colon + 1; i < sql.size() && sql[i] >= '0' && sql[i] <= '9';) ++i;
    name.assign(sql, colon, i - colon);
    out.sql += '?';
    out.values.push_back(named.bindings.find(name)->second);
  }
}

// ---- the library's side

template <auto& held>
void render_map(Result& out) {
  held->get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

template <auto& held>
void render_list(Result& out) {
  held->get_sql(SQL::DB_SQLITE, out.sql, out.values);
}

template <auto make>
void build_map(Result& out) {
  make()->get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

template <auto make>
void build_list(Result& out) {
  make()->get_sql(SQL::DB_SQLITE, out.sql, out.values);
}

std::unique_ptr<And_Filter_SQL> make_integers() { return make_list(integers); }
std::unique_ptr<And_Filter_SQL> make_texts() { return make_list(texts); }

template <auto make>
void hold_filter() {
  filter_held = make();
}
template <unsigned long long rows>
void hold_insert() {
  insert_held = make_insert<rows>();
  row_values<rows>();
}

}  // namespace

std::vector<Workload> statements() {
  return {
      {"SELECT: build, render, free", "C", 2.5, nullptr, build_map<make_select>, hand_select_map},
      {"SELECT: render", "C", 1.1, hold_select, render_map<select_held>, hand_select_map},
      {"SELECT: render with marks", "V", 1.7, hold_select, render_list<select_held>, hand_select_list},
      {"AND of 100: render", "C", 0.9, hold_filter<make_and>, render_map<filter_held>, hand_and},
      {"AND of 100: build and render", "C", 1.5, nullptr, build_map<make_and>, hand_and},
      {"IN of 1,000 integers: render", "V", 1.1, hold_filter<make_integers>, render_list<filter_held>, hand_integers},
      {"IN of 1,000 texts: render", "V", 1.2, hold_filter<make_texts>, render_list<filter_held>, hand_texts},
      {"IN of 1,000 texts: build and render", "V", 3, nullptr, build_list<make_texts>, hand_texts},
      {"INSERT of 1,000 x 8: render", "C", 0.9, hold_insert<1000>, render_map<insert_held>, hand_insert_map<1000>},
      {"INSERT of 1,000 x 8: build and render", "C", 1.5, hold_insert<1000>, build_map<make_insert<1000>>,
       hand_insert_map<1000>},
      {"INSERT of 100 x 8: render", "C", 0.9, hold_insert<100>, render_map<insert_held>, hand_insert_map<100>},
      {"INSERT of 100 x 8: build and render", "C", 1.5, hold_insert<100>, build_map<make_insert<100>>,
       hand_insert_map<100>},
      {"INSERT of 1,000 x 8: render with marks", "V", 1.3, hold_insert<1000>, render_list<insert_held>,
       hand_insert_list<1000>},
      {"INSERT of 1,000 x 8: build, with marks", "V", 4, hold_insert<1000>, build_list<make_insert<1000>>,
       hand_insert_list<1000>},
      {"1,000 levels of groups: render", "V", 4, hold_filter<make_deep<1000>>, render_list<filter_held>,
       hand_deep<1000>},
      {"1,000 levels of groups: build, render, free", "V", 18, nullptr, build_list<make_deep<1000>>, hand_deep<1000>},
      {"10,000 levels of groups: render", "V", 4, hold_filter<make_deep<10000>>, render_list<filter_held>,
       hand_deep<10000>},
      {"10,000 levels of groups: build, render, free", "V", 18, nullptr, build_list<make_deep<10000>>,
       hand_deep<10000>},
      {"20 names to marks, text order", "loop", 0.6, make_named<20, false>, library_marks, hand_marks},
      {"20 names to marks, map order", "loop", 0.6, make_named<20, true>, library_marks, hand_marks},
      {"2,000 names to marks, text order", "loop", 0.6, make_named<2000, false>, library_marks, hand_marks},
      {"2,000 names to marks, map order", "loop", 0.6, make_named<2000, true>, library_marks, hand_marks},
      {"20,000 names to marks, text order", "loop", 0.6, make_named<20000, false>, library_marks, hand_marks},
      {"20,000 names to marks, map order", "loop", 0.6, make_named<20000, true>, library_marks, hand_marks},
  };
}

}  // namespace workloads
