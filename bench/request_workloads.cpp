// One request, from its pairs or its JSON text to the text and the values of a SELECT. The code by hand reads just the
// keys of this request, in any combination: same decoding, same numbers, same checks, no table, no objects.
#include <rapidjson/document.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <map>
#include <string_view>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "bench/by_hand.h"
#include "bench/workloads.h"

namespace workloads {

namespace {

using Pairs = std::map<std::string, std::string>;

Pairs const pairs = {{"name", "Report"},
                     {"GE_size", "1024"},
                     {"IN_host_uuid", "5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60,9a1e7c55-0b3d-4e8f-a2c6-7d8e9f0a1b2c"},
                     {"NL_deleted", ""},
                     {"OR", "NE_size=0&LK_name=tmp"},
                     {"colour", "red"},
                     {"sort", "name,size"},
                     {"order", "DESC"},
                     {"limit", "50"},
                     {"offset", "100"}};

std::string const json =
    R"({"name":"Report","GE_size":1024,"IN_host_uuid":["5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60",)"
    R"("9a1e7c55-0b3d-4e8f-a2c6-7d8e9f0a1b2c"],"NL_deleted":null,"OR":{"NE_size":0,"LK_name":"tmp"},"colour":"red",)"
    R"("sort":"name,size","order":"DESC","limit":50,"offset":100})";

// ---- the library

using Allowed = SQL_Filter_Parser::Filter;

SQL_Filter_Parser::Filters const filters[] = {
    {"name", 4, {"f", Allowed::TYPE_TEXT, Allowed::COLUMN_IS_NAME_DOT_KEY, Allowed::FLAG_LOWER_CASE}},
    {"size", 4, {"file_size", Allowed::TYPE_INT, Allowed::COLUMN_IS_NAME, 0}},
    {"host_uuid", 9, {nullptr, Allowed::TYPE_UUID, Allowed::COLUMN_IS_KEY, 0}},
    {"deleted", 7, {nullptr, Allowed::TYPE_BOOL, Allowed::COLUMN_IS_KEY, 0}},
    {nullptr, 0, {nullptr, 0, 0, 0}}};

template <class Request>
void library_request(Request const& request, Result& out) {
  Select_SQL select("file", "f");
  SQL_Filter_Parser parser(select, filters);
  parser.parse(request, 0);
  parser.control(select);
  select.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void library_pairs(Result& out) { library_request(pairs, out); }

void library_json(Result& out) {
  json_spirit::Value request;
  json_spirit::read_string_or_throw(json, request);
  library_request(request.get_obj(), out);
}

// ---- by hand

// Calls `use(piece)` for each piece that is not empty, until one gives false.
template <class Use>
bool split(std::string_view text, char separator, Use use) {
  while (!text.empty()) {
    std::size_t const end = std::min(text.find(separator), text.size());
    if (end > 0 && !use(text.substr(0, end))) return false;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return true;
}

// Takes percent-encoding off; a bad escape stays as it is.
std::string decoded(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    char const* const digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      plain += static_cast<char>(byte);
      i += 2;
    } else {
      plain += text[i] == '+' ? ' ' : text[i];
    }
  }
  return plain;
}

long long integer(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  long long number = 0;
  auto const read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc::result_out_of_range ? std::numeric_limits<long long>::max() : number;
}

bool is_uuid(std::string_view text) {
  if (text.size() != 36 && text.size() != 32) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    bool const hyphen = text.size() == 36 && (i == 8 || i == 13 || i == 18 || i == 23);
    if (hyphen ? text[i] != '-' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return true;
}

// The SELECT, written as the request is read.
class Files {
public:
  explicit Files(Result& out) : sql_(out.sql), bindings_(out.bindings) {
    sql_.reserve(1024);
    sql_ += "SELECT * FROM `file` `f` WHERE ";
  }

  void size(char const* condition, long long number) {
    open(condition);
    bind(number);
    sql_ += ')';
  }
  void name(char const* condition, std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    open(condition);
    bind(lower);
    sql_ += ')';
  }
  void deleted() { open("(`deleted` IS NULL)"); }
  void hosts(std::vector<std::string_view> const& uuids) {
    if (!std::all_of(uuids.begin(), uuids.end(), is_uuid)) return;
    open(uuids.empty() ? "(0" : "(`host_uuid` IN (");
    char const* before = "x'";
    for (std::string_view const uuid : uuids) {
      sql_ += before;
      sql_ += uuid;
      before = "',x'";
    }
    sql_ += uuids.empty() ? ")" : "'))";
  }
  void begin_either() {
    open("(");
    joint_ = "";
    join_ = " OR ";
  }
  void end_either() {
    sql_ += *joint_ == '\0' ? "0)" : ")";
    join_ = " AND ";
    joint_ = join_;
  }

  void sort(std::string_view keys) { sort_ = keys; }
  void order(std::string_view words) { order_ = words; }
  void limit(long long rows) { limit_ = rows; }
  void offset(long long rows) { offset_ = rows; }

  void end() {
    if (*joint_ == '\0') sql_ += '1';
    write_order();
    if (limit_ >= 0 || offset_ > 0) sql_ += " LIMIT ";
    if (limit_ >= 0) {
      by_hand::append_number(sql_, static_cast<unsigned long long>(limit_));
    } else if (offset_ > 0) {
      sql_ += "9223372036854775807";
    }
    if (offset_ <= 0) return;
    sql_ += " OFFSET ";
    by_hand::append_number(sql_, static_cast<unsigned long long>(offset_));
  }

private:
  void open(char const* condition) {
    sql_ += joint_;
    sql_ += condition;
    joint_ = join_;
  }
  template <class Value>
  void bind(Value const& value) {
    std::string parameter = ":";
    by_hand::append_number(parameter, ++number_);
    sql_ += parameter;
    bindings_.emplace_hint(bindings_.end(), std::move(parameter), value);
  }
  static char const* column(std::string_view key) {
    if (key == "name") return "f.name";
    if (key == "size") return "file_size";
    if (key == "host_uuid") return "host_uuid";
    return key == "deleted" ? "deleted" : nullptr;
  }
  void write_order() {
    if (!split(sort_, ',', [](std::string_view key) { return column(key) != nullptr; })) return;
    char const* before = " ORDER BY ";
    std::string_view words = order_;
    split(sort_, ',', [&](std::string_view key) {
      sql_ += before;
      sql_ += column(key);
      std::size_t const end = std::min(words.find(','), words.size());
      sql_ += words.substr(0, end) == "desc" ? " DESC" : " ASC";
      words.remove_prefix(std::min(end + 1, words.size()));
      before = ",";
      return true;
    });
  }

  std::string& sql_;
  Bindings& bindings_;
  unsigned long long number_ = 0;
  char const* joint_ = "";
  char const* join_ = " AND ";
  std::string_view sort_;
  std::string_view order_;
  long long limit_ = -1;
  long long offset_ = 0;
};

constexpr char const* size_at_least = "(`file_size`>=";
constexpr char const* size_other = "(`file_size`!=";
constexpr char const* name_equal = "(LOWER(`f`.`name`)=";
constexpr char const* name_like = "(LOWER(`f`.`name`) LIKE ";

void hand_either(Files& files, std::string const& text) {
  files.begin_either();
  split(text, '&', [&](std::string_view pair) {
    std::size_t const equals = std::min(pair.find('='), pair.size());
    std::string const key = decoded(pair.substr(0, equals));
    std::string const value = decoded(pair.substr(std::min(equals + 1, pair.size())));
    if (key == "NE_size") {
      files.size(size_other, integer(value));
    } else if (key == "LK_name") {
      files.name(name_like, value);
    }
    return true;
  });
  files.end_either();
}

void hand_pairs(Result& out) {
  Files files(out);
  for (auto const& [key, value] : pairs) {
    if (key == "GE_size") {
      files.size(size_at_least, integer(value));
    } else if (key == "IN_host_uuid") {
      std::vector<std::string_view> uuids;
      split(value, ',', [&](std::string_view uuid) {
        uuids.push_back(uuid);
        return true;
      });
      files.hosts(uuids);
    } else if (key == "NL_deleted") {
      files.deleted();
    } else if (key == "OR") {
      hand_either(files, value);
    } else if (key == "name") {
      files.name(name_equal, value);
    } else if (key == "sort") {
      files.sort(value);
    } else if (key == "order") {
      files.order(value);
    } else if (key == "limit") {
      files.limit(integer(value));
    } else if (key == "offset") {
      files.offset(integer(value));
    }
  }
  files.end();
}

using JSON = rapidjson::Value;

std::string_view text_of(JSON const& value) { return {value.GetString(), value.GetStringLength()}; }

// Calls `use(value)` when `object` has a member of this name that `is` what it should be.
template <class Use>
void with(JSON const& object, char const* name, bool (JSON::*is)() const, Use use) {
  auto const member = object.FindMember(name);
  if (member != object.MemberEnd() && (member->value.*is)()) use(member->value);
}

void hand_json(Result& out) {
  rapidjson::Document request;
  request.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag>(json.data(), json.size());
  if (request.HasParseError() || !request.IsObject()) return;
  Files files(out);
  with(request, "GE_size", &JSON::IsInt64, [&](JSON const& v) { files.size(size_at_least, v.GetInt64()); });
  with(request, "IN_host_uuid", &JSON::IsArray, [&](JSON const& list) {
    std::vector<std::string_view> uuids;
    uuids.reserve(list.Size());
    for (JSON const& uuid : list.GetArray()) uuids.push_back(uuid.IsString() ? text_of(uuid) : "");
    files.hosts(uuids);
  });
  if (request.HasMember("NL_deleted")) files.deleted();
  with(request, "OR", &JSON::IsObject, [&](JSON const& either) {
    files.begin_either();
    with(either, "LK_name", &JSON::IsString, [&](JSON const& v) { files.name(name_like, text_of(v)); });
    with(either, "NE_size", &JSON::IsInt64, [&](JSON const& v) { files.size(size_other, v.GetInt64()); });
    files.end_either();
  });
  with(request, "name", &JSON::IsString, [&](JSON const& v) { files.name(name_equal, text_of(v)); });
  with(request, "sort", &JSON::IsString, [&](JSON const& v) { files.sort(text_of(v)); });
  with(request, "order", &JSON::IsString, [&](JSON const& v) { files.order(text_of(v)); });
  with(request, "limit", &JSON::IsInt64, [&](JSON const& v) { files.limit(v.GetInt64()); });
  with(request, "offset", &JSON::IsInt64, [&](JSON const& v) { files.offset(v.GetInt64()); });
  files.end();
}

}  // namespace

std::vector<Workload> requests() {
  return {{"request from pairs", "P", 2.2, nullptr, library_pairs, hand_pairs},
          {"request from JSON text", "J", 3, nullptr, library_json, hand_json}};
}

}  // namespace workloads
