#include "request.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "backup/runtime/http_query_string.h"
#include "backup/runtime/uuid.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "log_capture.h"
#include "misuse.h"
#include "text.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

using Filter = SQL_Filter_Parser::Filter;
using Filters = SQL_Filter_Parser::Filters;

// Every column is qualified: the statements join three tables.
Filters const allowed_keys[] = {
    {"name", 4, {"f", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"path", 4, {"f", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"kind", 4, {"f", Filter::TYPE_INT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"size", 4, {"f", Filter::TYPE_INT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"modified", 8, {"f", Filter::TYPE_INT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"owner", 5, {"f", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"retired", 7, {"f", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"run", 3, {"f.run_uuid", Filter::TYPE_UUID, Filter::COLUMN_IS_NAME, 0}},
    {"complete", 8, {"r", Filter::TYPE_BOOL, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"directory", 9, {"r", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME_DOT_KEY, 0}},
    {"host", 4, {"h.name", Filter::TYPE_TEXT, Filter::COLUMN_IS_NAME, Filter::FLAG_LOWER_CASE}},
    {nullptr, 0, {nullptr, 0, 0, 0}}};

// Databases limit a statement: SQLite takes expressions 1,000 deep, where each condition of a chain may count twice,
// about 30 levels of parentheses, 2,000 sort keys, and patterns of 50,000 bytes, in an SQLite_Store 4,096.
constexpr std::size_t most_conditions = 200;
constexpr std::size_t most_levels = 16;
constexpr std::size_t most_sort_keys = 32;
constexpr std::size_t longest_pattern = 4096;

constexpr char const* no_integer = "no 64-bit integer; the digits at its start count, none are 0, too many 2^63-1";
constexpr char const* kind_numbers = "1 is a file, 2 a directory, 3 a link, 4 another";
constexpr char const* no_text = "no text; it is compared as it is";
constexpr char const* other_kind = "an element of another kind than the key's";
constexpr char const* no_boolean = "neither 0 nor 1; anything but 0 is true";

bool is_text(Value const& value) { return value.type() == json_spirit::str_type; }
bool is_group(std::string const& key) { return Filter_SQL::type_of_name(key).has_value(); }

std::vector<std::string> pieces_of(std::string const& list) {
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin < list.size();) {
    std::size_t const end = std::min(list.find(',', begin), list.size());
    if (end > begin) pieces.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return pieces;
}

// The elements of a list, which is an array or a text; null for any other value.
std::optional<Array> elements_of(Value const& list) {
  if (list.type() == json_spirit::array_type) return list.get_array();
  if (!is_text(list)) return std::nullopt;
  std::vector<std::string> const pieces = pieces_of(list.get_str());
  return Array(pieces.begin(), pieces.end());
}

bool is_integer(std::string const& text) {
  long long number = 0;
  bool const has_plus = text.compare(0, 1, "+") == 0 && text.compare(1, 1, "-") != 0;
  char const* const begin = text.data() + (has_plus ? 1 : 0);
  char const* const end = text.data() + text.size();
  auto const read = std::from_chars(begin, end, number);
  return read.ec == std::errc() && read.ptr == end;
}

std::string shortened(std::string const& text) {
  constexpr std::size_t most_shown = 80;
  return text.size() <= most_shown ? text : text.substr(0, most_shown) + "...";
}

std::string detail_of(Value const& value, std::string const& reason) {
  json_spirit::JSON_Dump const json(is_text(value) ? Value() : value, false);
  return "='" + shortened(is_text(value) ? value.get_str() : json.c_str()) + "': " + reason;
}

// The parts of a condition.
struct Condition {
  Item_SQL::Item_Op op;
  std::string key;
  Filter const& filter;
  Value const& value;

  bool is_pattern() const { return op == Item_SQL::OP_LK || op == Item_SQL::OP_NK; }
  bool is_list() const { return op == Item_SQL::OP_IN || op == Item_SQL::OP_NI; }
  bool has_value() const { return op != Item_SQL::OP_NL && op != Item_SQL::OP_NN; }
};

char const* wanted(Condition const& condition) {
  if (condition.is_list()) return condition.filter.type == Filter::TYPE_UUID ? "uuids are wanted" : "a list is wanted";
  switch (condition.filter.type) {
    case Filter::TYPE_BOOL: return "true or false is wanted";
    case Filter::TYPE_INT: return "an integer is wanted";
    case Filter::TYPE_UUID: return "a uuid is wanted";
    default: return "not usable";
  }
}

char const* wanted(SQL_Filter_Parser::Control_Kind kind) {
  switch (kind) {
    case SQL_Filter_Parser::SORT_KEYS: return "keys of a request are wanted";
    case SQL_Filter_Parser::SORT_ORDERS: return "a text is wanted";
    default: return "an integer is wanted";
  }
}

// Why the database or the catalogue cannot use a value that the library accepts; null when they can.
char const* unfit(Condition const& condition) {
  auto const is_word = [&](Value const& v) {
    return condition.key == "kind" && is_text(v) && !is_integer(v.get_str());
  };
  auto const holds_zero = [](Value const& v) { return is_text(v) && v.get_str().find('\0') != std::string::npos; };
  Value const& value = condition.value;
  if (condition.is_list()) {
    for (Value const& element : elements_of(value).value_or(Array())) {
      if (holds_zero(element)) return "a zero byte";
      if (is_word(element)) return kind_numbers;
      bool const has_hyphens = is_text(element) && element.get_str().find('-') != std::string::npos;
      if (condition.filter.type == Filter::TYPE_UUID && has_hyphens) return "in a list uuids are without hyphens";
    }
    return nullptr;
  }
  if (value.is_uint64()) return "more than 2^63-1";
  if (holds_zero(value)) return "a zero byte";
  if (is_word(value) && condition.has_value()) return kind_numbers;
  return condition.is_pattern() && is_text(value) && value.get_str().size() > longest_pattern
             ? "a pattern of more than 4,096 bytes"
             : nullptr;
}

// The kind of JSON value for a key of the type.
json_spirit::Value_type kind_of(unsigned int type) {
  if (type == Filter::TYPE_BOOL) return json_spirit::bool_type;
  return type == Filter::TYPE_INT ? json_spirit::int_type : json_spirit::str_type;
}

// Why a value may not mean what its sender meant; null when it is clear.
char const* doubt(Condition const& condition) {
  if (!condition.has_value()) return nullptr;
  Value const& value = condition.value;
  std::optional<Array> const elements = condition.is_list() ? elements_of(value) : Array{value};
  if (!elements || elements->empty()) return "an empty list";
  for (Value const& element : *elements) {
    if (condition.filter.type == Filter::TYPE_TEXT && !is_text(element)) return no_text;
    // The elements of an array are compared as they are.
    if (value.type() == json_spirit::array_type && condition.is_list()) {
      if (element.type() != kind_of(condition.filter.type)) return other_kind;
      continue;
    }
    if (!is_text(element)) continue;
    std::string const& text = element.get_str();
    if (condition.filter.type == Filter::TYPE_TEXT && text.empty()) return "an empty text";
    if (condition.is_pattern() && valid_utf8(text) != text) return "no UTF-8; SQLite finds other such bytes too";
    if (condition.filter.type == Filter::TYPE_INT && !is_integer(text)) return no_integer;
    if (condition.filter.type == Filter::TYPE_BOOL && text != "0" && text != "1") return no_boolean;
  }
  return nullptr;
}

// A pair of the request, or of a group in it.
struct Pair {
  std::string path;  // the groups around it, each with a slash
  std::string key;
  Value value;
  std::size_t level;
};

Key_Outcome outcome_of(Pair const& pair, Outcome outcome, char const* reason = nullptr) {
  return {pair.path + pair.key, outcome, reason == nullptr ? "" : detail_of(pair.value, reason)};
}

// Gives the parser one pair at a time. The parser logs what fails, but reports nowhere what it ignores or takes
// loosely, so the reader judges each pair first.
class Reader {
public:
  Reader(Filter_SQL& filter, Key_Outcomes& outcomes) : parser_(&filter, allowed_keys), outcomes_(outcomes) {}

  template <class Pairs>
  void read(Pairs const& pairs) {
    for (auto const& pair : pairs) {
      Value const value(pair.second);
      if (SQL_Filter_Parser::control_kind(pair.first) != SQL_Filter_Parser::NO_CONTROL) {
        read_control(pair.first, value);
      } else if (check_conditions(pair.first, value)) {
        Log_Capture const log;
        parser_.parse(Pairs{pair}, SQL_Filter_Parser::accumulate);
        if (!log.text().empty()) add(pair.first, Outcome::failed, value, log.text());
      }
    }
  }

  void read_document(Object const& document, Filter_SQL& filter);

  SQL_Filter_Parser const& parser() const { return parser_; }

private:
  bool check_conditions(std::string const& key, Value const& value);
  static Key_Outcome open_group(Pair const& group, std::vector<Pair>& left);
  Key_Outcome judge(Pair const& pair);
  void read_control(std::string const& key, Value const& value);
  void count(std::size_t level);
  void add(std::string const& key, Outcome outcome, Value const& value, std::string const& reason) {
    outcomes_.push_back({key, outcome, detail_of(value, reason)});
  }

  SQL_Filter_Parser parser_;
  Key_Outcomes& outcomes_;
  std::size_t conditions_ = 0;
};

void Reader::count(std::size_t level) {
  if (level > most_levels) {
    throw Misuse("the request has groups in more than " + std::to_string(most_levels) + " levels");
  }
  if (++conditions_ > most_conditions) {
    throw Misuse("the request has more than " + std::to_string(most_conditions) + " conditions");
  }
}

// Judges each condition of a pair, in the parser's order. False, with one outcome for the whole pair, when it must not
// be parsed.
bool Reader::check_conditions(std::string const& key, Value const& value) {
  std::size_t const before = outcomes_.size();
  std::vector<Pair> left{{"", key, value, 0}};
  while (!left.empty()) {
    Pair const pair = std::move(left.back());
    left.pop_back();
    bool const is_leaf = !is_group(pair.key);
    Key_Outcome const outcome = is_leaf ? judge(pair) : open_group(pair, left);
    if (outcome.outcome == Outcome::failed) {
      outcomes_.resize(before);
      outcomes_.push_back(outcome);
      return false;
    }
    if (outcome.outcome != Outcome::ignored) count(pair.level);
    if (is_leaf || outcome.outcome == Outcome::loose) outcomes_.push_back(outcome);
  }
  return true;
}

// Puts the members of a group on `left`, the first one on top.
Key_Outcome Reader::open_group(Pair const& group, std::vector<Pair>& left) {
  std::size_t const before = left.size();
  auto const add_member = [&](std::string const& key, Value const& value) {
    left.push_back({group.path + group.key + '/', key, value, group.level + 1});
  };
  if (group.value.type() == json_spirit::obj_type) {
    for (auto const& [key, value] : group.value.get_obj()) add_member(key, value);
  } else if (is_text(group.value)) {
    HTTP_Query_String_Iterator const end(nullptr, 0);
    for (HTTP_Query_String_Iterator pair(group.value.get_str(), 0); pair != end; ++pair) {
      add_member(pair->first, pair->second);
    }
  } else {
    return outcome_of(group, Outcome::failed, "an object or a query string is wanted");
  }
  std::reverse(left.begin() + static_cast<std::ptrdiff_t>(before), left.end());
  if (left.size() == before) return outcome_of(group, Outcome::loose, "an empty group");
  return outcome_of(group, Outcome::condition);
}

// Judges a pair that is no group: by the parser, then by what the parser does not check.
Key_Outcome Reader::judge(Pair const& pair) {
  unsigned long long prefix = 0;
  Item_SQL::Item_Op const op = parser_.parse_op_key(pair.key, &prefix);
  std::string const key = pair.key.substr(prefix);
  Filter const& filter = Filters::find(allowed_keys, key.data(), key.size()).value;
  if (filter.type == 0) return outcome_of(pair, Outcome::ignored);
  Condition const condition{op, key, filter, pair.value};
  Log_Capture const unheard;
  And_Filter_SQL trial;
  if (!parser_.parse_filter_i(pair.key, pair.value, &trial)) {
    return outcome_of(pair, Outcome::failed, wanted(condition));
  }
  if (char const* const reason = unfit(condition)) return outcome_of(pair, Outcome::failed, reason);
  char const* const reason = doubt(condition);
  Key_Outcome outcome = outcome_of(pair, reason == nullptr ? Outcome::condition : Outcome::loose, reason);
  outcome.asks_of_runs = *filter.name != 'f';
  return outcome;
}

void Reader::read_control(std::string const& key, Value const& value) {
  SQL_Filter_Parser::Control_Kind const kind = SQL_Filter_Parser::control_kind(key);
  std::vector<std::string> const pieces = is_text(value) ? pieces_of(value.get_str()) : std::vector<std::string>();
  if (kind == SQL_Filter_Parser::SORT_KEYS && is_text(value)) {
    // An empty list would become a sort key without a name.
    if (pieces.empty()) return add(key, Outcome::failed, value, "no key");
    std::string const too_many = "more than " + std::to_string(most_sort_keys) + " keys";
    if (pieces.size() > most_sort_keys) return add(key, Outcome::failed, value, too_many);
  }
  if (!parser_.parse_control_i(key, value)) return add(key, Outcome::failed, value, wanted(kind));
  bool const is_number = kind == SQL_Filter_Parser::ROW_NUMBER;
  if (is_number && is_text(value) && !is_integer(value.get_str())) return add(key, Outcome::loose, value, no_integer);
  bool const descends_or_ascends = std::all_of(pieces.begin(), pieces.end(),
                                               [](std::string const& word) { return word == "asc" || word == "desc"; });
  if (kind == SQL_Filter_Parser::SORT_ORDERS && !descends_or_ascends) {
    return add(key, Outcome::loose, value, "anything but 'desc' ascends");
  }
  outcomes_.push_back({key, Outcome::control, ""});
}

// Why a value is no valid part of a document; null for a valid part.
char const* flaw(Value const& part) {
  if (is_text(part)) return part.get_str().empty() ? "an empty text" : nullptr;
  if (part.type() != json_spirit::obj_type) return "neither an object nor a text";
  Object const& object = part.get_obj();
  std::string const* const op = item_get_op(object);
  Value const* const operand = item_get_value(object);
  if (op == nullptr || operand == nullptr) return "no 'op' or no 'v'";
  if (is_group(*op)) return operand->type() == json_spirit::array_type ? nullptr : "a group's 'v' is no array";
  if (item_get_key(object) == nullptr || item_get_key(object)->empty()) return "no 'k'";
  Item_SQL::Item_Op const value = Item_SQL::op_name_to_value(op->data(), op->size());
  if (op_to_sql(value) == nullptr) return "an 'op' that compares nothing";
  bool const is_list = operand->type() == json_spirit::array_type;
  if (is_list) return value == Item_SQL::OP_EQ || value == Item_SQL::OP_NE ? nullptr : "a list takes EQ or NE only";
  if (value == Item_SQL::OP_IN || value == Item_SQL::OP_NI)
    return "IN and NI compare nothing here; EQ or NE takes a list";
  if (!is_text(*operand)) return nullptr;
  if (operand->get_str().size() > longest_pattern) return "a text of more than 4,096 bytes";
  return backup::is_uuid_key(*item_get_key(object)) && !is_valid_uuid(operand->get_str()) ? "no uuid" : nullptr;
}

// The library skips invalid parts of a document. Here they are errors: a filter with fewer conditions finds more.
void Reader::read_document(Object const& document, Filter_SQL& filter) {
  struct Part {
    std::string place;
    Value value;
    std::size_t level;
  };
  std::size_t const before = conditions_;
  std::vector<Part> left{{"the document", Value(document), 0}};
  while (!left.empty()) {
    Part const part = std::move(left.back());
    left.pop_back();
    if (char const* const reason = flaw(part.value)) throw Misuse("--document: " + part.place + ": " + reason);
    if (is_text(part.value) || !is_group(*item_get_op(part.value.get_obj()))) {
      count(part.level);
      continue;
    }
    std::size_t member = 0;
    for (Value const& value : *filter_get_items(part.value.get_obj())) {
      if (part.level == most_levels) count(part.level + 1);
      left.push_back({part.place + ", member " + std::to_string(++member), value, part.level + 1});
    }
  }
  generate_filter_from_obj(document, filter);
  bool const has_conditions = conditions_ > before;
  outcomes_.push_back({"--document", has_conditions ? Outcome::condition : Outcome::loose,
                       has_conditions ? "" : ": no condition in it", true});
}

Object read_object(std::string const& source, std::string const& text) {
  Value value;
  json_spirit::Read_Error error;
  if (!json_spirit::read_string(text, value, error, json_spirit::Repeated_Members::refused)) {
    throw Misuse(source + ": line " + std::to_string(error.line) + ", column " + std::to_string(error.column) + ": " +
                 error.reason);
  }
  if (value.type() != json_spirit::obj_type) throw Misuse(source + ": no object");
  return std::move(value.get_obj());
}

std::string content(std::string const& file) {
  std::ifstream stream;
  if (std::filesystem::is_directory(file)) throw std::runtime_error(file + ": is a directory");
  errno = 0;
  if (file != "-") stream.open(file, std::ios::binary);
  std::istream& in = file == "-" ? std::cin : stream;
  if (!in) throw std::runtime_error(file + ": " + std::generic_category().message(errno));
  std::string text;
  std::array<char, 65536> part;
  while (in.read(part.data(), part.size()), in.gcount() > 0) {
    text.append(part.data(), static_cast<std::size_t>(in.gcount()));
    if (text.size() > most_document_bytes) {
      throw Misuse("--document: " + file + ": larger than " + std::to_string(most_document_bytes >> 20U) + " MiB");
    }
  }
  if (in.bad()) throw std::runtime_error(file + ": " + std::generic_category().message(errno));
  return text;
}

char const* outcome_word(Outcome outcome) {
  switch (outcome) {
    case Outcome::condition: return "condition";
    case Outcome::control: return "control";
    case Outcome::ignored: return "ignored";
    case Outcome::failed: return "failed";
    case Outcome::loose: return "loose";
    case Outcome::repeated: break;
  }
  return "repeated, the last counts";
}

}  // namespace

Request read_request(Request_Source const& source) {
  Request request;
  if (source.query) {
    HTTP_Query_String_Iterator const end(nullptr, 0);
    for (HTTP_Query_String_Iterator pair(*source.query, 0); pair != end; ++pair) {
      bool const is_new = request.pairs.insert_or_assign(pair->first, pair->second).second;
      if (!is_new) request.repeated.insert(pair->first);
    }
  }
  if (source.json) request.object = read_object("--json", *source.json);
  if (source.document) request.document = read_object(*source.document, content(*source.document));
  return request;
}

SQL_Filter_Parser add_request(Request const& request, Filter_SQL& filter, Key_Outcomes& outcomes) {
  Reader reader(filter, outcomes);
  if (request.document) reader.read_document(*request.document, filter);
  for (std::string const& key : request.repeated) outcomes.push_back({key, Outcome::repeated, ""});
  reader.read(request.pairs);
  reader.read(request.object);
  return reader.parser();
}

bool is_useless(Key_Outcomes const& outcomes) {
  auto const is_of_use = [](Key_Outcome const& o) {
    return o.outcome == Outcome::condition || o.outcome == Outcome::control || o.outcome == Outcome::loose;
  };
  return !outcomes.empty() && std::none_of(outcomes.begin(), outcomes.end(), is_of_use);
}

std::string request_keys() {
  std::string keys;
  for (Filters const* entry = allowed_keys; entry->key != nullptr; ++entry) {
    keys += (keys.empty() ? "" : ", ") + std::string(entry->key);
  }
  return keys;
}

std::string outcome_text(Key_Outcome const& outcome) {
  return std::string(outcome_word(outcome.outcome)) + ": " + shortened(outcome.key) + outcome.detail;
}

std::vector<std::string> complaints(Key_Outcomes const& outcomes) {
  constexpr std::size_t most_named = 10;
  std::string ignored;
  std::size_t ignored_count = 0;
  std::vector<std::string> lines;
  std::size_t count = 0;
  for (Key_Outcome const& outcome : outcomes) {
    if (outcome.outcome == Outcome::condition || outcome.outcome == Outcome::control) continue;
    if (outcome.outcome != Outcome::ignored) {
      if (++count <= most_named) lines.push_back(printable(outcome_text(outcome)));
    } else if (++ignored_count <= most_named) {
      ignored += ignored.empty() ? printable(outcome_text(outcome)) : ", " + printable(shortened(outcome.key));
    }
  }
  auto const rest = [](std::size_t n) { return "and " + grouped(n - most_named) + " more"; };
  if (count > most_named) lines.push_back(rest(count));
  if (ignored_count > most_named) ignored += ", " + rest(ignored_count);
  if (!ignored.empty()) lines.push_back(ignored);
  return lines;
}
