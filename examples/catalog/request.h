#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backup/utils/sql/sql_filter_parser.h"
#include "json_spirit/json_spirit.h"

/// A request for files as given: the query string or the JSON object, and the file name of a filter document, "-" for
/// the standard input.
struct Request_Source {
  std::optional<std::string> query;
  std::optional<std::string> json;
  std::optional<std::string> document;
};

/// The request as read. Statements made from the document point into it.
struct Request {
  std::map<std::string, std::string> pairs;
  std::set<std::string> repeated;  ///< keys of the query string given more than once: `pairs` has the last value
  json_spirit::Object object;
  std::optional<json_spirit::Object> document;
};

/// The largest document that is read.
constexpr std::size_t most_document_bytes = 16UL * 1024UL * 1024UL;

/// Throws Misuse for malformed JSON, with its place and the reason, for JSON that is no object, and for a larger
/// document. Throws std::runtime_error for a file that cannot be read.
Request read_request(Request_Source const& source);

/// What became of a key.
enum class Outcome {
  condition,  ///< of the statement
  control,    ///< sorting or paging
  ignored,    ///< the key is not known
  failed,     ///< the value cannot be used: the pair is left out, or the whole group that it is in
  loose,      ///< used, but the sender may have meant something else
  repeated    ///< given more than once
};

struct Key_Outcome {
  std::string key;  ///< with the groups around it: "OR/size"
  Outcome outcome;
  std::string detail;         ///< for failed and loose: "='true': an integer is wanted"
  bool asks_of_runs = false;  ///< the key is, or may be, about runs or hosts
};
using Key_Outcomes = std::vector<Key_Outcome>;

/// Adds the conditions of a request on files `f`, their runs `r` and hosts `h` to `filter`, and what became of each key
/// to `outcomes`. Returns the parser that read it, for its controls. A database can run the statement, whatever a
/// stranger sent. Throws Misuse for a request too large for that, and for a document with an invalid part.
SQL_Filter_Parser add_request(Request const& request, Filter_SQL& filter, Key_Outcomes& outcomes);

/// True when the request has keys, and none of them could be used.
bool is_useless(Key_Outcomes const& outcomes);

/// The keys that a request may have, for help texts.
std::string request_keys();
/// "failed: size='true': an integer is wanted", with the key as it came: not safe for a terminal.
std::string outcome_text(Key_Outcome const& outcome);
/// Lines, safe for a terminal, about keys that were not used, or perhaps not as they were meant: one line for all
/// ignored keys, one for each other key. The first few are named, the rest counted.
std::vector<std::string> complaints(Key_Outcomes const& outcomes);
