#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backup/utils/sql/sql_filter_parser.h"
#include "json_spirit/json_spirit.h"

/// A request for files as it comes: the query string or the JSON object, and the file name of a filter document, "-"
/// for the standard input.
struct Request_Source {
  std::optional<std::string> query;
  std::optional<std::string> json;
  std::optional<std::string> document;
};

/// What was read of it. Statements made of the document point into it.
struct Request {
  std::map<std::string, std::string> pairs;
  std::set<std::string> repeated;  ///< keys of the query string given more than once: `pairs` has the last value
  json_spirit::Object object;
  std::optional<json_spirit::Object> document;
};

/// The largest document that is read.
constexpr std::size_t most_document_bytes = 16UL * 1024UL * 1024UL;

/// Throws Misuse for JSON that is malformed or no object, with its place and the reason, and for a larger document, and
/// std::runtime_error for a file that cannot be read.
Request read_request(Request_Source const& source);

/// What became of a key.
enum class Outcome {
  condition,  ///< of the statement
  control,    ///< sorting or paging
  ignored,    ///< the key is not known
  failed,     ///< the value is of no use: the pair, a whole group if it is in one, is left out
  loose,      ///< taken, but not as the sender may have meant it
  repeated    ///< given more than once
};

struct Key_Outcome {
  std::string key;  ///< in groups with those before it: "OR/size"
  Outcome outcome;
  std::string detail;         ///< for failed and loose: "='true': an integer is wanted"
  bool asks_of_runs = false;  ///< of runs or hosts, or may do so
};
using Key_Outcomes = std::vector<Key_Outcome>;

/// Adds the conditions of a request on files `f`, their runs `r` and hosts `h` to `filter`, and to `outcomes` what
/// became of each key. Returns the parser that read it, for its controls. The statement that comes of it runs whatever
/// a stranger sent; throws Misuse for a request too large for that, and for a document with a part that is none.
SQL_Filter_Parser add_request(Request const& request, Filter_SQL& filter, Key_Outcomes& outcomes);

/// True for a request that has keys, and none of them could be used.
bool is_useless(Key_Outcomes const& outcomes);

/// The keys that a request may have, for help texts.
std::string request_keys();
/// "failed: size='true': an integer is wanted", as it came: not safe for a terminal.
std::string outcome_text(Key_Outcome const& outcome);
/// Lines, safe for a terminal, about what an answer does not rest on, or may not rest on as it was meant: one for all
/// ignored keys, one for each other key. The first few are named, the rest counted.
std::vector<std::string> complaints(Key_Outcomes const& outcomes);
