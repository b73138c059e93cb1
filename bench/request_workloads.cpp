// One request, from its pairs or its JSON text to the text and values of a SELECT. The code by hand reads only the keys
// of this request: same decoding, numbers and checks, but no table and no objects.
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

// Calls `use(piece)` for each piece that is not empty.
template <class Use>
void split(std::string_view text, char separator, Use use) {
  while (!text.empty()) {
    std::size_t const end = std::min(text.find(separator), text.size());
    if (end > 0) use(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// Decodes percent-encoding; a bad escape stays unchanged.
std::string decoded(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char byte = text[i] == '+' ? ' ' : text[i];
    char const* const digits = text.data() + i + 1;
    unsigned char escaped = 0;
    if (byte == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, escaped, 16).ptr == digits + 2) {
      byte = static_cast<char>(escaped);
      i += 2;
    }
    plain += byte;
  }
  return plain;
}

long long integer(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  long long number = 0;
  auto const read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc::result_out_of_range ? std::numeric_limits<long long>::max() : number;
}

std::string lower(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lowered;
}

bool is_uuid(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    bool const hyphen = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphen ? text[i] != '-' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return text.size() == 36;
}

// The SELECT, written as the request is read.
struct Files {
  explicit Files(Result& out) : sql(out.sql), bindings(out.bindings) {
    sql.reserve(1024);
    sql += "SELECT * FROM `file` `f` WHERE ";
  }

  void open(char const* condition) {
    sql += joint;
    sql += condition;
    joint = join;
  }
  void compare(char const* condition, Binding_Value const& value) {
    open(condition);
    std::string parameter = ":";
    by_hand::append_number(parameter, ++number);
    sql += parameter;
    sql += ')';
    bindings.emplace_hint(bindings.end(), std::move(parameter), value);
  }
  void size_at_least(long long size) { compare("(`file_size`>=", size); }
  void size_other(long long size) { compare("(`file_size`!=", size); }
  void name_equal(std::string_view text) { compare("(LOWER(`f`.`name`)=", lower(text)); }
  void name_like(std::string_view pattern) { compare("(LOWER(`f`.`name`) LIKE ", lower(pattern)); }
  void not_deleted() { open("(`deleted` IS NULL)"); }
  void hosts(std::vector<std::string_view> const& uuids) {
    if (uuids.empty()) return open("(0)");
    if (!std::all_of(uuids.begin(), uuids.end(), is_uuid)) return;
    open("(`host_uuid` IN (");
    for (std::string_view const& uuid : uuids) {
      sql += &uuid == &uuids[0] ? "x'" : ",x'";
      sql += uuid;
      sql += '\'';
    }
    sql += "))";
  }
  // Joins by OR what `add` adds.
  template <class Add>
  void either(Add add) {
    open("(");
    joint = "";
    join = " OR ";
    add();
    sql += *joint == '\0' ? "0)" : ")";
    joint = join = " AND ";
  }
  void end() {
    if (*joint == '\0') sql += '1';
    write_order();
    if (limit < 0 && offset > 0) limit = std::numeric_limits<long long>::max();
    if (limit >= 0) by_hand::append_number(sql += " LIMIT ", static_cast<unsigned long long>(limit));
    if (offset > 0) by_hand::append_number(sql += " OFFSET ", static_cast<unsigned long long>(offset));
  }
  // No order when a key has no column. One direction, for the first key.
  void write_order() {
    std::size_t const begin = sql.size();
    bool known = true;
    split(sort, ',', [&](std::string_view key) {
      bool const first = sql.size() == begin;
      sql += first ? " ORDER BY " : ",";
      sql += key == "name" ? "f.name" : "file_size";
      sql += first && order == "desc" ? " DESC" : " ASC";
      known = known && (key == "name" || key == "size");
    });
    if (!known) sql.resize(begin);
  }

  std::string& sql;
  Bindings& bindings;
  unsigned long long number = 0;
  char const* joint = "";
  char const* join = " AND ";
  std::string_view sort;
  std::string_view order;
  long long limit = -1;
  long long offset = 0;
};

void read_either(Files& files, std::string_view text) {
  split(text, '&', [&](std::string_view pair) {
    std::size_t const equals = std::min(pair.find('='), pair.size());
    std::string const key = decoded(pair.substr(0, equals));
    std::string const value = decoded(pair.substr(std::min(equals + 1, pair.size())));
    if (key == "NE_size") files.size_other(integer(value));
    if (key == "LK_name") files.name_like(value);
  });
}

void hand_pairs(Result& out) {
  Files files(out);
  for (auto const& [key, text] : pairs) {
    std::string const& value = text;
    if (key == "GE_size") {
      files.size_at_least(integer(value));
    } else if (key == "IN_host_uuid") {
      std::vector<std::string_view> uuids;
      split(value, ',', [&](std::string_view uuid) { uuids.push_back(uuid); });
      files.hosts(uuids);
    } else if (key == "NL_deleted") {
      files.not_deleted();
    } else if (key == "OR") {
      files.either([&] { read_either(files, value); });
    } else if (key == "name") {
      files.name_equal(value);
    } else if (key == "sort") {
      files.sort = value;
    } else if (key == "order") {
      files.order = value;
    } else if (key == "limit") {
      files.limit = integer(value);
    } else if (key == "offset") {
      files.offset = integer(value);
    }
  }
  files.end();
}

using JSON = rapidjson::Value;

std::string_view text_of(JSON const& value) { return {value.GetString(), value.GetStringLength()}; }

// Calls `use(value)` when `object` has a member of this name for which `is` is true.
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
  with(request, "GE_size", &JSON::IsInt64, [&](JSON const& v) { files.size_at_least(v.GetInt64()); });
  with(request, "IN_host_uuid", &JSON::IsArray, [&](JSON const& list) {
    std::vector<std::string_view> uuids;
    for (JSON const& uuid : list.GetArray()) uuids.push_back(uuid.IsString() ? text_of(uuid) : "");
    files.hosts(uuids);
  });
  if (request.HasMember("NL_deleted")) files.not_deleted();
  with(request, "OR", &JSON::IsObject, [&](JSON const& members) {
    files.either([&] {
      with(members, "LK_name", &JSON::IsString, [&](JSON const& v) { files.name_like(text_of(v)); });
      with(members, "NE_size", &JSON::IsInt64, [&](JSON const& v) { files.size_other(v.GetInt64()); });
    });
  });
  with(request, "name", &JSON::IsString, [&](JSON const& v) { files.name_equal(text_of(v)); });
  with(request, "sort", &JSON::IsString, [&](JSON const& v) { files.sort = text_of(v); });
  with(request, "order", &JSON::IsString, [&](JSON const& v) { files.order = text_of(v); });
  with(request, "limit", &JSON::IsInt64, [&](JSON const& v) { files.limit = v.GetInt64(); });
  with(request, "offset", &JSON::IsInt64, [&](JSON const& v) { files.offset = v.GetInt64(); });
  files.end();
}

}  // namespace

std::vector<Workload> requests() {
  return {{"request from pairs", "P", 2.2, nullptr, library_pairs, hand_pairs},
          {"request from JSON text", "J", 3, nullptr, library_json, hand_json}};
}

}  // namespace workloads
