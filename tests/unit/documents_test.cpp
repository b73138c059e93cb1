// Compares the examples of the documents, and the list of log messages, with the library.
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

// The variables of an example in C++.
struct Sample_Scope {
  Object document;
  And_Filter_SQL filter;
  json_spirit::Value text;
  Lines shown;
};

using Sample = std::pair<char const*, void (*)(Sample_Scope&)>;

#include "document_code.inc"

std::string file_text(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string source(char const* path) { return file_text(std::filesystem::path(SOURCE_DIR) / path); }

bool starts_with(std::string const& text, char const* start) { return text.rfind(start, 0) == 0; }

// A part of a box between two blank lines: input lines, then lines "=> ..." with the output.
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

Lines results_of(Example const& example) {
  if (example.kind == "request") return {render(asked_for(example.input)).substr(sizeof("SELECT * FROM `file` `f`"))};
  if (example.kind == "statement") return statements_of(example.input);
  if (example.kind == "params") return {dump(SQL_Filter_Parser(filters).convert_qs_to_params(pairs_of(example.input)))};
  if (example.kind == "document") return results_of_document(example.input);
  auto const* const sample =
      std::find_if(std::begin(samples), std::end(samples), [&](Sample const& s) { return s.first == example.place; });
  return sample == std::end(samples) ? Lines{"nothing runs this box"} : results_of_sample(*sample);
}

Lines with_log(Lines results, Log_Capture& log) {
  for (std::string const& record : log.take()) {
    std::string const text = std::regex_replace(record, std::regex("\n$"), "");
    results.push_back("log: " + std::regex_replace(text, std::regex("\n"), "\\n"));
  }
  return results;
}

// All matches, each in the form of `shape` ("$1 of $2").
Texts found(std::string const& text, char const* pattern, std::string const& shape = "$1") {
  std::regex const expression(pattern);
  Texts matches;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    matches.insert(match->format(shape));
  }
  return matches;
}

// All log messages, each as "format | PRIORITY, status n".
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
  std::string inputs;
  Log_Capture log;
  for (char const* const path : {"docs/requests.md", "docs/filter-documents.md"}) {
    for (Example const& example : examples_of(path)) {
      SCOPED_TRACE(example.place + ' ' + example.input);
      inputs += ' ' + example.input;
      bool const is_declaration = example.kind == "cpp" && example.results.empty();
      if (!is_declaration) {
        EXPECT_EQ(with_log(results_of(example), log), example.results);
      }
    }
  }

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
