// Filter documents beside calls of the library, and JSON text beside RapidJSON's own document.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "bench/workloads.h"

namespace workloads {

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

// ---- a document of 100 conditions

constexpr int condition_count = 100;
Array const kinds = {"file", "directory", "link"};
std::vector<std::string> columns;
Object document;

void make_document() {
  columns.clear();
  generate_and_filter(document);
  for (int i = 0; i < condition_count; ++i) {
    columns.push_back("column_" + std::to_string(i));
    char const* const column = columns.back().c_str();
    switch (i % 4) {
      case 0: filter_add_eq_item(document, column, i); break;
      case 1: filter_add_ge_item(document, column, 0.5 * i); break;
      case 2: filter_add_lk_item(document, column, "%report%"); break;
      default: filter_add_eq_item(document, column, kinds); break;
    }
  }
}

void filter_of_document(Result& out) {
  And_Filter_SQL filter;
  generate_filter_from_obj(document, filter);
  filter.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void filter_of_calls(Result& out) {
  And_Filter_SQL filter;
  Filter_SQL* const conditions = filter.add_and_filter();
  for (int i = 0; i < condition_count; ++i) {
    std::string const& column = columns[static_cast<std::size_t>(i)];
    switch (i % 4) {
      case 0: conditions->add_kv_item(Item_SQL::OP_EQ, column, i, 0); break;
      case 1: conditions->add_kv_item(Item_SQL::OP_GE, column, 0.5 * i, 0); break;
      case 2: conditions->add_kv_item(Item_SQL::OP_LK, column, "%report%", 0); break;
      default: conditions->add_in_item(column, kinds, 0); break;
    }
  }
  filter.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

// ---- 10,000 values

Value value_held;
rapidjson::Document document_held;
std::string text;

// Both sides read exact doubles and check UTF-8.
void parse_by_hand(rapidjson::Document& root) {
  root.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
}

// 1,000 objects of ten values; half of the values are in an array.
void make_json() {
  Array rows;
  for (int i = 0; i < 1000; ++i) {
    rows.push_back(Object{{"id", 100000 + i},
                          {"path", "/home/user/documents/report " + std::to_string(i)},
                          {"kind", i % 10 == 0 ? "\"été\"\n" : "file"},
                          {"ratio", (7919 * i + 137) / 1000.0},
                          {"deleted", i % 2 == 0},
                          {"list", Array{i, "text", -0.25 * i, true, Value()}}});
  }
  json_spirit::JSON_Dump const dump(rows, false);
  text.assign(dump.c_str(), dump.size());
  json_spirit::read_string_or_throw(text, value_held);
  parse_by_hand(document_held);
}

void read_library(Result& out) {
  Value root;
  json_spirit::read_string_or_throw(text, root);
  out.values.emplace_back(root.get_array().size());
}

void read_by_hand(Result& out) {
  rapidjson::Document root;
  parse_by_hand(root);
  if (root.HasParseError()) std::abort();
  out.values.emplace_back(static_cast<std::size_t>(root.Size()));
}

void write_library(Result& out) {
  json_spirit::JSON_Dump const dump(value_held, false);
  out.sql.assign(dump.c_str(), dump.size());
}

void write_by_hand(Result& out) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document_held.Accept(writer);
  out.sql.assign(buffer.GetString(), buffer.GetSize());
}

}  // namespace

std::vector<Workload> documents() {
  return {
      {"document of 100 conditions: build, render, free", "calls", 1.15, make_document, filter_of_document,
       filter_of_calls},
      {"JSON of 10,000 values: read, free", "DOM", 2, make_json, read_library, read_by_hand},
      {"JSON of 10,000 values: write", "DOM", 1.3, make_json, write_library, write_by_hand},
  };
}

}  // namespace workloads
