#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"

/// All steps of nested groups through the library. Each uses the results of the steps before it.
namespace depth_steps {

struct Deep {
  explicit Deep(std::size_t levels) : depth(levels) {}

  std::size_t depth;  // even
  json_spirit::Value request;
  json_spirit::Value document;
  Select_SQL select{"t"};
  And_Filter_SQL filter;
  And_Filter_SQL copy;
};

/// `run` gives false for a wrong result.
struct Step {
  char const* name;
  bool (*run)(Deep& deep);
};

inline SQL_Filter_Parser::Filters const keys[] = {{"k", 1, {"t", SQL_Filter_Parser::Filter::TYPE_INT, 0, 0}},
                                                  {nullptr, 0, {nullptr, 0, 0, 0}}};

inline std::string nested(std::size_t depth, std::string const& open, char const* inner, std::string const& close) {
  std::string text;
  text.reserve(depth * (open.size() + close.size()) + 64);
  for (std::size_t i = 0; i < depth; ++i) text += open;
  text += inner;
  for (std::size_t i = 0; i < depth; ++i) text += close;
  return text;
}

inline std::string rendered(SQL const& statement) {
  std::string text;
  Bindings bindings;
  return statement.get_sql(SQL::DB_SQLITE, text, bindings);
}

inline std::map<std::string, std::string> query_string(std::size_t depth) {
  return {{"OR", nested(depth - 1, "OR=", "k=1", "")}};
}

// "(`k`=:1)" in as many parentheses as there are levels
inline bool is_nested(std::string const& text, std::string const& before, std::size_t depth) {
  return text == before + nested(depth, "(", "`k`=:1", ")");
}

inline Step const steps[] = {
    {"read JSON",
     [](Deep& d) {
       json_spirit::Read_Error error;
       std::string text = nested(d.depth, R"({"OR":)", R"({"k":1})", "}");
       bool const whole = json_spirit::read_string(text, d.request, error);
       text.pop_back();
       return whole && !json_spirit::read_string(text, d.document, error);
     }},
    {"copy and compare JSON",
     [](Deep& d) {
       json_spirit::Value copy(d.request);
       json_spirit::Value const inner(copy.get_obj().begin()->second);
       bool const same = copy == d.request && copy != inner;
       copy = inner;
       return same && copy == inner;
     }},
    {"dump JSON", [](Deep& d) { return json_spirit::JSON_Dump(d.request, false).size() == 7 * d.depth + 7; }},
    {"parse a JSON request",
     [](Deep& d) {
       SQL_Filter_Parser(d.select, keys).parse(d.request.get_obj(), 0);
       return is_nested(rendered(d.select), "SELECT * FROM `t` WHERE ", d.depth + 1);
     }},
    {"destroy JSON", [](Deep& d) { return (d.request = json_spirit::Value()).is_null(); }},
    {"count",
     [](Deep& d) {
       std::string text;
       Bindings bindings;
       return is_nested(d.select.get_count_sql(SQL::DB_SQLITE, text, bindings), "SELECT COUNT(`t`.id) FROM `t` WHERE ",
                        d.depth + 1);
     }},
    {"convert a query string to JSON",
     [](Deep& d) {
       auto const params = SQL_Filter_Parser(keys).convert_qs_to_params(query_string(d.depth));
       return json_spirit::JSON_Dump(params, false).size() == 7 * d.depth + 7;
     }},
    {"parse a query string",
     [](Deep& d) {
       d.select.clear();
       d.select.table("t", nullptr);
       SQL_Filter_Parser(d.select, keys).parse(query_string(d.depth), 0);
       return is_nested(rendered(d.select), "SELECT * FROM `t` WHERE ", d.depth + 1);
     }},
    {"read a document",
     [](Deep& d) {
       json_spirit::read_string_or_throw(nested(d.depth, R"({"op":"OR","v":[)", R"({"op":"EQ","k":"k","v":1})", "]}"),
                                         d.document);
       return d.document.type() == json_spirit::obj_type;
     }},
    {"make a filter of a document",
     [](Deep& d) {
       return generate_filter_from_obj(d.document.get_obj(), d.copy) && is_nested(rendered(d.copy), "", d.depth + 1);
     }},
    {"build a filter",
     [](Deep& d) {
       Filter_SQL* level = &d.filter;
       for (std::size_t i = 0; i < d.depth; ++i) {
         level->add_sql("x", true);
         level = i % 2 == 0 ? static_cast<Filter_SQL*>(level->add_or_filter()) : level->add_and_filter();
       }
       return level->add_kv_eq_item("k", 1) != nullptr;
     }},
    {"render",
     [](Deep& d) { return rendered(d.filter) == nested(d.depth / 2, "(x) AND ((x) OR (", "(`k`=:1)", "))"); }},
    {"convert to positions",
     [](Deep& d) {
       std::string text;
       std::vector<Binding_Value> values;
       d.filter.get_sql(SQL::DB_SQLITE, text, values);
       return values.size() == 1 && text.size() == 19 * d.depth / 2 + 7;
     }},
    {"copy",
     [](Deep& d) {
       std::string const text = rendered(d.filter);
       d.copy = And_Filter_SQL(d.filter);
       d.filter.clear();
       return rendered(d.filter) == "1" && rendered(d.copy) == text;
     }},
    {"clear",
     [](Deep& d) {
       d.copy.clear();
       d.select.clear();
       return rendered(d.copy) == "1" && rendered(d.select) == "SELECT *";
     }},
};

}  // namespace depth_steps
