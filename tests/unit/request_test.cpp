// Requests. The examples of docs/requests.md run in documents_test.cpp; here is the rest.
#include <ace/OS_NS_Thread.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <tuple>
#include <utility>

#include "backup/runtime/http_query_string.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;
using Params = std::map<std::string, std::string>;
using json_spirit::Object;
using json_spirit::Value;

using Key = SQL_Filter_Parser::Filter;
SQL_Filter_Parser::Filters const filters[] = {
    {"name", 4, {"f", Key::TYPE_TEXT, Key::COLUMN_IS_NAME_DOT_KEY, Key::FLAG_LOWER_CASE}},
    {"size", 4, {"file_size", Key::TYPE_INT, Key::COLUMN_IS_NAME, 0}},
    {"host_uuid", 9, {nullptr, Key::TYPE_UUID, Key::COLUMN_IS_KEY, 0}},
    {"deleted", 7, {nullptr, Key::TYPE_BOOL, Key::COLUMN_IS_KEY, 0}},
    {"any", 3, {nullptr, 9, Key::COLUMN_IS_KEY, 0}},
    {"lost", 4, {"x", Key::TYPE_TEXT, 7, 0}},
    {"limit", 5, {nullptr, Key::TYPE_INT, Key::COLUMN_IS_KEY, 0}},
    {nullptr, 0, {nullptr, 0, 0, 0}}};

Object object_of(std::string const& json) {
  Value value;
  json_spirit::read_string_or_throw(json, value);
  return value.get_obj();
}

Params params_of(char const* query) {
  Params params;
  HTTP_Query_String_Iterator const end(nullptr, 0);
  for (HTTP_Query_String_Iterator it(query, 0); it != end; ++it) params[it->first] = it->second;
  return params;
}

// A request as a rendered SELECT, without "SELECT *".
template <class Parameters>
std::string parsed(Parameters const& params) {
  Select_SQL select;
  SQL_Filter_Parser parser(select, filters);
  EXPECT_TRUE(parser.parse(params, SQL_Filter_Parser::afresh));
  EXPECT_TRUE(parser.control(select));
  return render(select).substr(std::string("SELECT *").size());
}

std::string failed(char const* key, char const* value) {
  return std::string("ERROR sql_filter_parser -1: Failed to handle filter: key='") + key + "', value='" + value +
         "'.\n";
}

}  // namespace

TEST(HTTP_Query_String_Iterator, reads_form_urlencoded_text) {
  std::pair<std::string, std::string> const cases[] = {
      {"", ""},
      {"&&", ""},
      {"a=1&b=2", "[a|1][b|2]"},
      {"&a&=1&=&b==c&", "[a|][|1][|][b|=c]"},
      {"a+b=c+%2B+d", "[a b|c + d]"},
      {"%41%6a=%c3%A4%26%3d", "[Aj|\xc3\xa4&=]"},
      {"a=%&b=%4&c=%zz%4g%%41", "[a|%][b|%4][c|%zz%4g%A]"},
      {std::string("a=\0%00", 6), std::string("[a|\0\0]", 6)},
  };
  for (auto const& [text, expected] : cases) {
    SCOPED_TRACE(text);
    std::string pairs;
    HTTP_Query_String_Iterator const end(nullptr, 0);
    for (HTTP_Query_String_Iterator it(text, 0); it != end; ++it) pairs += '[' + it->first + '|' + (*it).second + ']';
    EXPECT_EQ(pairs, expected);
  }
}

TEST(SQL_Filter_Parser, integers_are_read_up_to_the_first_other_character) {
  std::tuple<char const*, long long, int> const cases[] = {{"-5", -5, 0},
                                                           {"+12abc", 12, 0},
                                                           {"", 0, EINVAL},
                                                           {"-", 0, EINVAL},
                                                           {"+-5", 0, EINVAL},
                                                           {" 1", 0, EINVAL},
                                                           {"0x10", 0, 0},
                                                           {"9223372036854775807", INT64_MAX, 0},
                                                           {"9223372036854775808", INT64_MAX, ERANGE},
                                                           {"-9223372036854775808", INT64_MIN, 0},
                                                           {"-9223372036854775809", INT64_MAX, ERANGE}};
  for (auto const& [text, number, error] : cases) {
    SCOPED_TRACE(text);
    SQL_Filter_Parser parser;
    EXPECT_TRUE(parser.parse_control_i("limit", Value(text)));
    EXPECT_EQ(ACE_OS::last_error(), error);
    EXPECT_EQ(*parser.controls().limit(), number);
  }
}

TEST(SQL_Filter_Parser, query_pairs_become_conditions_and_controls) {
  std::pair<char const*, char const*> const cases[] = {
      {"colour=red&ge_size=5&XY_size=1&_=2", " WHERE 1"},
      {"IN_deleted=0,no&IN_size=1,,x&NI_any=", " WHERE (`deleted` IN (0,1)) AND (`file_size` IN (1,0)) AND (1)"},
      {"NK_name=B&deleted=false&NE_deleted=0",
       " WHERE (`deleted`!=:1) AND (LOWER(`f`.`name`) NOT LIKE :2) AND (`deleted`=:3) {:1=false :2=\"b\" :3=true}"},
      {"any=%00x&lost=1", " WHERE (`any`=:1) AND () {:1=\"\\u0000x\"}"},  // no column, no text
      {"OR=size%3D1%26AND%3Dany%253D2%2526any%253D3%26size%3D4",
       " WHERE ((`file_size`=:1) OR ((`any`=:2) AND (`any`=:3)) OR (`file_size`=:4)) {:1=1 :2=\"2\" :3=\"3\" :4=4}"},
      {"AND=OR=AND=&OR=AND=OR", " WHERE (((1))) AND (((0)))"},
      {"AND=OR=any=a=b", " WHERE (((`any`=:1))) {:1=\"a=b\"}"},
      {"AND=OR=any%3D%2525", " WHERE (((`any`=:1))) {:1=\"%\"}"},
  };
  Log_Capture log;
  for (auto const& [query, text] : cases) {
    SCOPED_TRACE(query);
    EXPECT_EQ(parsed(params_of(query)), text);
  }
  EXPECT_EQ(log.take(), Lines{});
}

TEST(SQL_Filter_Parser, json_requests_keep_the_kinds_of_their_values) {
  std::tuple<char const*, char const*, Lines> const cases[] = {
      {R"({"size":18446744073709551615,"any":2.5,"IN_size":["1",2],"IN_any":"a,b","NI_host_uuid":[1]})",
       " WHERE (`any` IN ('a','b')) AND (`file_size` IN ('1',2)) AND (`any`=:1) AND (`file_size`=:2) "
       "{:1=2.5 :2=18446744073709551615}",
       {failed("NI_host_uuid", "[1]")}},
      {R"({"limit":18446744073709551615})", " WHERE 1 LIMIT 9223372036854775807", {}},
      // A control that cannot be read is tried as a condition.
      {R"({"limit":2.5})", " WHERE 1", {failed("limit", "2.5")}},
      {R"({"AND":{"size":1,"OR":"size=2&size=3","NL_any":0}})",
       " WHERE ((`any` IS NULL) AND ((`file_size`=:1) OR (`file_size`=:2)) AND (`file_size`=:3)) {:1=2 :2=3 :3=1}",
       {}},
      {R"({"OR":{"any":1,"size":[],"zany":1}})",
       " WHERE ((`any`=:1)) {:1=1}",
       {failed("OR", R"({"any":1,"size":[],"zany":1})")}},
  };
  Log_Capture log;
  for (auto const& [json, text, reports] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(parsed(object_of(json)), text);
    EXPECT_EQ(log.take(), reports);
  }
}

TEST(SQL_Filter_Parser, a_converted_request_means_the_same) {
  Params const params = params_of("GE_size=5&IN_host_uuid=5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60&OR=NL_deleted=&limit=7");
  EXPECT_EQ(parsed(SQL_Filter_Parser(filters).convert_qs_to_params(params)), parsed(params));
}

TEST(SQL_Filter_Parser, parses_start_afresh_or_add) {
  And_Filter_SQL filter;
  SQL_Filter_Parser parser(&filter, filters);
  parser.parse(Params{{"size", "1"}, {"limit", "5"}}, SQL_Filter_Parser::afresh);
  parser.parse(Params{{"size", "1"}}, SQL_Filter_Parser::accumulate);
  EXPECT_EQ(render(filter), "(`file_size`=:1) AND (`file_size`=:2) {:1=1 :2=1}");
  parser.parse(Params{}, 2);
  EXPECT_EQ(render(filter), "1");
  EXPECT_EQ(parser.controls().limit(), nullptr);
  SQL_Filter_Parser without_table(&filter, nullptr);
  without_table.parse(Params{{"size", "1"}, {"sort", "size"}}, SQL_Filter_Parser::afresh);
  EXPECT_EQ(render(filter), "1");
  EXPECT_EQ(without_table.controls().sort(), nullptr);
  EXPECT_EQ(without_table.convert_qs_to_params({{"IN_size", "1,2"}, {"limit", "7"}}).at("IN_size"), Value("1,2"));
  SQL_Filter_Parser nothing;
  nothing.parse(object_of(R"({"size":1,"AND":{}})"), SQL_Filter_Parser::afresh);
  EXPECT_TRUE(nothing.parse_filter_i("size", Value("1"), &filter));
  EXPECT_FALSE(nothing.parse_filter_i("AND", Value("1"), nullptr));
  EXPECT_EQ(render(filter), "1");
}

TEST(SQL_Filter_Parser, nested_query_strings_are_read_once) {
  // With escapes only in the innermost value, no level may read the rest of the text again.
  for (char const* inner : {"size=1", "size=1%zz", "size=1+"}) {
    std::size_t const levels = 16384;
    std::string query;
    while (query.size() < 4 * levels) query += "AND=";
    EXPECT_EQ(parsed(params_of((query + inner).c_str())).substr(0, levels + 9),
              " WHERE " + std::string(levels + 1, '(') + "`");
    SQL_Filter_Parser const parser(filters);
    EXPECT_EQ(parser.convert_qs_to_params(params_of((query + inner).c_str())).size(), 1U);
  }
}

TEST(SQL_Filter_Parser, a_request_cannot_cost_the_square_of_its_size) {
  // Each level decodes one escape and would read the rest of the text again.
  auto const staircase_of = [](int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += "AND=";
    text += "size=1%";
    for (int i = 0; i < levels; ++i) text += "25";
    return text;
  };
  std::string const staircase = staircase_of(100000);
  Log_Capture log;
  SQL_Filter_Parser parser(filters);
  And_Filter_SQL filter;
  EXPECT_FALSE(parser.parse_filter_i("AND", Value(staircase), &filter));
  Object object;
  EXPECT_FALSE(parser.convert_kv_to_params("AND", staircase, object));

  // One is read, two are too much.
  Value const short_staircase = staircase_of(2000);
  EXPECT_TRUE(parser.parse_filter_i("AND", short_staircase, &filter));
  EXPECT_FALSE(parser.parse_filter_i("AND", Object{{"AND", short_staircase}, {"OR", short_staircase}}, &filter));

  // Groups escaped level by level, each with a member behind it, are read whole: 40 times 500 KB.
  std::string layered = "size=1" + std::string(500000, 'x');
  for (int i = 0; i < 40; ++i) {
    std::string escaped;
    for (char const c : layered) escaped += c == '%' ? "%25" : c == '&' ? "%26" : c == '=' ? "%3D" : std::string(1, c);
    layered = "OR=" + escaped + "&size=2";
  }
  Or_Filter_SQL whole;
  EXPECT_TRUE(parser.parse_filter_i("OR", Value(layered), &whole));
  std::string const text = render_positional(whole);
  EXPECT_EQ(text.substr(0, 54), std::string(42, '(') + "`file_size`=");
  EXPECT_EQ(std::count(text.begin(), text.end(), '?'), 41);
}

TEST(SQL_Filter_Parser, long_requests_are_read_whole) {
  Params params;
  for (int i = 0; i < 100000; ++i) params["unknown" + std::to_string(i)] = "x";
  std::string list;
  for (int i = 0; i < 100000; ++i) list += std::to_string(i) + ',';
  params["IN_size"] = list;
  EXPECT_EQ(parsed(params), " WHERE (`file_size` IN (" + list.substr(0, list.size() - 1) + "))");
}
