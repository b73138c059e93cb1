// The examples of the documents for users, and the list of log messages, held against the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include "backup/runtime/http_query_string.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "backup/utils/sql/update_sql.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;
using json_spirit::Object;
using Texts = std::set<std::string>;

using Allowed = SQL_Filter_Parser::Filter;

SQL_Filter_Parser::Filters const filters[] = {
    {"name", 4, {"f", Allowed::TYPE_TEXT, Allowed::COLUMN_IS_NAME_DOT_KEY, Allowed::FLAG_LOWER_CASE}},
    {"kind", 4, {nullptr, Allowed::TYPE_TEXT, Allowed::COLUMN_IS_KEY, 0}},
    {"size", 4, {"file_size", Allowed::TYPE_INT, Allowed::COLUMN_IS_NAME, 0}},
    {"deleted", 7, {nullptr, Allowed::TYPE_BOOL, Allowed::COLUMN_IS_KEY, 0}},
    {"host_uuid", 9, {nullptr, Allowed::TYPE_UUID, Allowed::COLUMN_IS_KEY, 0}},
    {nullptr, 0, {nullptr, 0, 0, 0}}};

std::map<std::string, std::string> pairs_of(std::string const& query) {
  std::map<std::string, std::string> pairs;
  HTTP_Query_String_Iterator const end(nullptr, 0);
  for (HTTP_Query_String_Iterator it(query, 0); it != end; ++it) pairs[it->first] = it->second;
  return pairs;
}

template <class Request>
Select_SQL files_asked_for(Request const& request) {
  Select_SQL files("file", "f");
  SQL_Filter_Parser parser(files, filters);
  parser.parse(request, SQL_Filter_Parser::afresh);
  parser.control(files);
  return files;
}

json_spirit::Value read(std::string const& json) {
  json_spirit::Value value;
  json_spirit::read_string_or_throw(json, value);
  return value;
}

json_spirit::Array const hosts = read(R"([{"id":3,"name":"mail"},{"id":1,"name":"web"},{"id":3}])").get_array();
json_spirit::Object const owner = read(R"({"group":"staff","user":"eve"})").get_obj();

// What an example of C++ code works on.
struct Sample_Scope {
  Object document;
  And_Filter_SQL filter;
  json_spirit::Value text;
  Lines shown;
};

using Sample = std::pair<char const*, void (*)(Sample_Scope&)>;

// The code as text and as a function.
#define SAMPLE(...)                                                 \
  Sample("" #__VA_ARGS__, [](Sample_Scope& scope) {                 \
    [[maybe_unused]] auto& [document, filter, text, shown] = scope; \
    __VA_ARGS__                                                     \
  })

Sample const samples[] = {
    SAMPLE(Select_SQL files = files_asked_for(pairs_of("limit=1000000"));
           if (files.limit() < 0 || files.limit() > 1000) files.limit(1000); shown.push_back(render(files));),
    SAMPLE(Select_SQL files("file", nullptr); SQL_Filter_Parser parser(files, filters);
           parser.parse(pairs_of("size=1&limit=5"), SQL_Filter_Parser::afresh);
           parser.parse(pairs_of("kind=log&offset=7"), SQL_Filter_Parser::accumulate); parser.control(files);
           shown.push_back(render(files));),
    SAMPLE(Select_SQL files("file", nullptr); files.and_filter()->add_kv_eq_item("customer", 7);
           SQL_Filter_Parser parser(files.and_filter()->add_and_filter(), filters);
           parser.parse(pairs_of("OR=size%3D1%26kind%3Dlog"), SQL_Filter_Parser::afresh);
           shown.push_back(render(files));),
    SAMPLE(Update_SQL update("file"); update.set("deleted", true); SQL_Filter_Parser parser(update, filters);
           parser.parse(pairs_of("kind=log"), SQL_Filter_Parser::afresh); shown.push_back(render(update));),
    SAMPLE(filter.add_and_filter()->add_substr_matching("name", "report");
           filter.add_and_filter()->add_substr_matching("path", "home");),
    SAMPLE(json_spirit::read_string_or_throw(R"({"op":"LT","k":"size","v":10})", text);
           Select_SQL files("file", nullptr); files.and_filter()->add_kv_eq_item("customer", 7);
           generate_filter_from_obj(text.get_obj(), *files.and_filter()); shown.push_back(render(files));),
    SAMPLE(if (!filter_add_item(document, "", "size", 1)) shown.push_back("false");),
    SAMPLE(generate_and_filter(document);),
    SAMPLE(generate_or_filter(document);),
    SAMPLE(generate_empty_filter(document, "OR", "note");),
    SAMPLE(filter_add_eq_item(document, "size", 1024);),
    SAMPLE(filter_add_ne_item(document, "size", 1024);),
    SAMPLE(filter_add_ge_item(document, "size", 1024);),
    SAMPLE(filter_add_lt_item(document, "size", 1024);),
    SAMPLE(filter_add_le_item(document, "size", 1024);),
    SAMPLE(filter_add_br_item(document, "size", 1024);),
    SAMPLE(filter_add_ba_item(document, "size", 1024);),
    SAMPLE(filter_add_lk_item(document, "kind", "l%");),
    SAMPLE(filter_add_item(document, "GT", "size", 1024);),
    SAMPLE(filter_add_item(document, "deleted IS NULL");),
    SAMPLE(generate_and_filter(document); filter_add_eq_item(document, "kind", "log"); json_spirit::Object either;
           generate_or_filter(either); filter_add_ge_item(either, "size", 1024);
           filter_add_item(either, "deleted IS NULL"); *filter_add_item(document) = either;
           generate_filter_from_obj(document, filter);),
    SAMPLE(filter_add_eq_item(document, "host", hosts, "id"); filter_add_ne_item(document, "peer", hosts, "id");),
    SAMPLE(filter_add_eq_item(document, "field", owner, true); filter_add_ne_item(document, "name", owner, false);),
    SAMPLE(filter_add_eq_item(document, "host", hosts, "name");),
    SAMPLE(generate_eq_item("size", 1024, document);),
    SAMPLE(generate_ne_item("size", 1024, document);),
    SAMPLE(generate_eq_item("owner", owner, "user", document);),
    SAMPLE(generate_eq_item("owner", owner, "colour", document);),
    SAMPLE(generate_eq_item("host", hosts, "id", document);),
    SAMPLE(generate_eq_and_filter(document, owner, {"user", "group"});),
    SAMPLE(generate_eq_and_filter(document, owner, {"user", "colour", "group"});),
    SAMPLE(document =
               read(R"({"op":"AND","v":[{"op":"GE","k":"size","v":1},{"op":"EQ","k":"kind","v":"log"}]})").get_obj();
           if (json_spirit::Object* const item = filter_find_item(document, "size")) {
             shown.push_back(*item_get_op(*item) + ' ' + *item_get_key(*item));
             if (*item_get_value(*item) == json_spirit::Value(1)) item_set_value(*item, 4096);
             item_set_key(*item, "file_size");
           } filter_remove_item(document, "kind");
           shown.push_back(std::to_string(filter_get_items(document)->size()));),
    SAMPLE(document = read(R"({"op":"AND","v":[{"op":"OR","v":[]},{"op":"EQ","k":"kind","v":"log"}]})").get_obj();
           if (!filter_remove_item(document, "kind")) shown.push_back("false");),
};

std::string file_text(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string source(char const* path) { return file_text(std::filesystem::path(SOURCE_DIR) / path); }

std::string without_whitespace(std::string text) {
  text.erase(std::remove_if(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; }),
             text.end());
  return text;
}

bool starts_with(std::string const& text, char const* start) { return text.rfind(start, 0) == 0; }

// What stands between two blank lines of a box: lines that go in, then lines "=> ..." that come out.
struct Example {
  std::string place;
  std::string kind;
  std::string input;
  Lines results;
};

void add_line(Example& example, std::string const& line) {
  std::string const mark = example.kind == "cpp" ? "// => " : "=> ";
  if (starts_with(line, mark.c_str())) {
    example.results.push_back(line.substr(mark.size()));
  } else if (example.results.empty()) {
    example.input += example.kind == "cpp" ? line : line.substr(std::min(line.find_first_not_of(' '), line.size()));
  } else {
    ASSERT_TRUE(starts_with(line, "  ")) << example.place << ": neither a result nor the rest of one: " << line;
    example.results.back() += line.substr(1);
  }
}

std::vector<Example> examples_of(char const* path) {
  std::vector<Example> examples;
  std::istringstream document(source(path));
  std::string line;
  std::string kind;
  bool is_new = false;
  for (int number = 1; std::getline(document, line); ++number) {
    if (starts_with(line, "```")) {
      kind = kind.empty() ? line.substr(3) : "";
      is_new = true;
    } else if (kind.empty() || kind == "ebnf" || line.empty()) {
      is_new = true;
    } else {
      if (is_new) examples.push_back({std::string(path) + ':' + std::to_string(number), kind, "", {}});
      is_new = false;
      add_line(examples.back(), line);
    }
  }
  return examples;
}

Select_SQL asked_for(std::string const& request) {
  return starts_with(request, "{") ? files_asked_for(read(request).get_obj()) : files_asked_for(pairs_of(request));
}

Lines statements_of(std::string const& request) {
  Select_SQL const files = asked_for(request);
  Lines lines;
  for (auto* const written : {&render, &render_positional, &render_count}) {
    std::string const mysql = written(files, SQL::DB_MYSQL);
    std::string const sqlite = written(files, SQL::DB_SQLITE);
    lines.push_back((mysql == sqlite ? "MySQL, SQLite: " : "MySQL: ") + mysql);
    if (mysql != sqlite) lines.push_back("SQLite: " + sqlite);
  }
  return lines;
}

std::string dump(Object const& object) { return json_spirit::JSON_Dump(object, false).c_str(); }

Lines results_of_sample(Sample const& sample) {
  Sample_Scope scope;
  sample.second(scope);
  if (!scope.document.empty()) scope.shown.push_back(dump(scope.document));
  if (render(scope.filter) != "1") scope.shown.push_back(render(scope.filter));
  return scope.shown;
}

Lines results_of_document(std::string const& json) {
  And_Filter_SQL filter;
  json_spirit::Value const document = read(json);
  bool const converted = generate_filter_from_obj(document.get_obj(), filter);
  return converted ? Lines{render(filter)} : Lines{"false", render(filter)};
}

Lines results_of(Example const& example, Texts& unseen_samples) {
  if (example.kind == "request") return {render(asked_for(example.input)).substr(sizeof("SELECT * FROM `file` `f`"))};
  if (example.kind == "statement") return statements_of(example.input);
  if (example.kind == "params") return {dump(SQL_Filter_Parser(filters).convert_qs_to_params(pairs_of(example.input)))};
  if (example.kind == "document") return results_of_document(example.input);
  for (Sample const& sample : samples) {
    if (without_whitespace(sample.first) != without_whitespace(example.input)) continue;
    unseen_samples.erase(sample.first);
    return results_of_sample(sample);
  }
  return {"nothing runs this box"};
}

Lines with_log(Lines results, Log_Capture& log) {
  for (std::string const& record : log.take()) {
    std::string const text = std::regex_replace(record, std::regex("\n$"), "");
    results.push_back("log: " + std::regex_replace(text, std::regex("\n"), "\\n"));
  }
  return results;
}

// All matches, each written by `shape` ("$1 of $2").
Texts found(std::string const& text, char const* pattern, std::string const& shape = "$1") {
  std::regex const expression(pattern);
  Texts matches;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    matches.insert(match->format(shape));
  }
  return matches;
}

// What can be logged, each "format | PRIORITY, status n".
Texts messages_in_sources() {
  Texts all;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(SOURCE_DIR "/src/backup/utils/sql")) {
    if (!entry.is_regular_file()) continue;
    std::string const text = file_text(entry.path());
    all.merge(found(text, R"re(\breport\([^;"]*LM_(\w+), (-?\d),\s*"((?:[^"\\]|\\.)*)")re", "$3 | $1, status $2"));
    all.merge(found(text, R"re(\bunexpected\([^;"]*"((?:[^"\\]|\\.)*)")re", "$1 | EMERGENCY, status -1"));
    all.merge(found(text, R"re(\breport_exception\([^;"]*"((?:[^"\\]|\\.)*)")re", "$1 | ERROR, status 0"));
  }
  return all;
}

}  // namespace

TEST(documents, examples_give_what_is_written) {
  std::string const own_code = without_whitespace(source("tests/unit/documents_test.cpp"));
  Texts unseen_samples;
  for (Sample const& sample : samples) unseen_samples.insert(sample.first);
  std::string inputs;
  Log_Capture log;
  for (char const* const path : {"docs/requests.md", "docs/filter-documents.md"}) {
    for (Example const& example : examples_of(path)) {
      SCOPED_TRACE(example.place + ' ' + example.input);
      inputs += ' ' + example.input;
      if (example.kind == "cpp" && example.results.empty()) {  // a declaration that the examples work with
        EXPECT_NE(own_code.find(without_whitespace(example.input)), std::string::npos);
      } else {
        EXPECT_EQ(with_log(results_of(example, unseen_samples), log), example.results);
      }
    }
  }
  EXPECT_EQ(unseen_samples, Texts());

  for (std::string const& name :
       found(source("src/backup/utils/sql/json_filter_helpers.h"), R"((\w+)\((?:json_spirit::|char const\*))")) {
    EXPECT_NE(inputs.find(name + '('), std::string::npos) << name << " is in no example";
  }
}

TEST(documents, messages_are_those_of_the_sources) {
  std::string const document = source("docs/messages.md");
  Texts const logged = messages_in_sources();
  EXPECT_EQ(found(document, R"(### `([^\n]*)`\n\n- Priority: (\w+), status (-?\d))", "$1 | $2, status $3"), logged);
  EXPECT_EQ(found(document, R"(### ([^\n]*))").size(), logged.size());
}
