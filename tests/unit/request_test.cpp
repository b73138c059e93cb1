// Requests: the query string, its readers, the parser, and what it makes of a SELECT.
#include <ace/OS_NS_Thread.h>
#include <gtest/gtest.h>

#include <cerrno>

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

constexpr char const* uuid_a = "5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60";
constexpr char const* uuid_b = "9a1e7c55-0b3d-4e8f-a2c6-7d8e9f0a1b2c";

SQL_Filter_Parser::Filters const filters[] = {{"name", 4, {"f", 3, 2, 2}},          {"size", 4, {"file_size", 2, 1, 0}},
                                              {"host_uuid", 9, {nullptr, 4, 0, 0}}, {"deleted", 7, {nullptr, 1, 0, 0}},
                                              {"any", 3, {nullptr, 9, 0, 0}},       {"lost", 4, {"x", 3, 7, 0}},
                                              {"limit", 5, {nullptr, 2, 0, 0}},     {nullptr, 0, {nullptr, 0, 0, 0}}};

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

// The conditions and controls that parameters give, as a rendered SELECT without its "SELECT *".
template <class Parameters>
std::string parsed(Parameters const& params) {
  Select_SQL select;
  SQL_Filter_Parser parser(select, filters);
  EXPECT_TRUE(parser.parse(params, 0));
  EXPECT_TRUE(parser.control(select));
  return render(select).substr(std::string("SELECT *").size());
}

std::string failed(char const* key, char const* value) {
  return std::string("ERROR sql_filter_parser -1: Failed to handle filter: key='") + key + "', value='" + value +
         "'.\n";
}

}  // namespace

TEST(HTTP_Query_String_Iterator, reads_form_urlencoded_text) {
  struct {
    std::string text;
    std::string pairs;
  } const cases[] = {
      {"", ""},
      {"&&", ""},
      {"a=1&b=2", "[a|1][b|2]"},
      {"&a&=1&=&b==c&", "[a|][|1][|][b|=c]"},
      {"a+b=c+%2B+d", "[a b|c + d]"},
      {"%41%6a=%c3%A4%26%3d", "[Aj|\xc3\xa4&=]"},
      {"a=%&b=%4&c=%zz%4g%%41", "[a|%][b|%4][c|%zz%4g%A]"},
      {std::string("a=\0%00", 6), std::string("[a|\0\0]", 6)},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    std::string pairs;
    HTTP_Query_String_Iterator const end(nullptr, 0);
    for (HTTP_Query_String_Iterator it(c.text, 0); it != end; ++it) pairs += '[' + it->first + '|' + (*it).second + ']';
    EXPECT_EQ(pairs, c.pairs);
  }
  EXPECT_EQ(HTTP_Query_String_Iterator("a=1&b", 0), HTTP_Query_String_Iterator("a=1&b", 0));
  EXPECT_NE(++HTTP_Query_String_Iterator("a=1&b", 0), HTTP_Query_String_Iterator("a=1&b", 0));
}

TEST(SQL_Filter_Parser, integers_are_read_up_to_the_first_other_character) {
  struct {
    char const* text;
    long long number;
    int error;
  } const cases[] = {{"0", 0, 0},
                     {"-5", -5, 0},
                     {"+12abc", 12, 0},
                     {"007", 7, 0},
                     {"", 0, EINVAL},
                     {"-", 0, EINVAL},
                     {"+", 0, EINVAL},
                     {"+-5", 0, EINVAL},
                     {"abc", 0, EINVAL},
                     {" 1", 0, EINVAL},
                     {"0x10", 0, 0},
                     {"1.9", 1, 0},
                     {"9223372036854775807", INT64_MAX, 0},
                     {"9223372036854775808", INT64_MAX, ERANGE},
                     {"-9223372036854775808", INT64_MIN, 0},
                     {"-9223372036854775809", INT64_MAX, ERANGE}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    SQL_Filter_Parser parser;
    EXPECT_TRUE(parser.parse_control_i("limit", Value(c.text)));
    EXPECT_EQ(ACE_OS::last_error(), c.error);
    EXPECT_EQ(*parser.controls().limit(), c.number);
  }
}

TEST(SQL_Filter_Parser, query_pairs_become_conditions_and_controls) {
  struct {
    char const* query;
    std::string text;
  } const cases[] = {
      {"", " WHERE 1"},
      {"colour=red&ge_size=5&XY_size=1&NE_=1&_=2", " WHERE 1"},
      {"size=12abc", " WHERE (`file_size`=:1) {:1=12}"},
      {"NE_size=1&LT_size=2&LE_size=3&GT_size=4&GE_size=x",
       " WHERE (`file_size`>=:1) AND (`file_size`>:2) AND (`file_size`<=:3) AND (`file_size`<:4) AND "
       "(`file_size`!=:5) {:1=0 :2=4 :3=3 :4=2 :5=1}"},
      {"LK_name=%25A%25&NK_name=B",
       " WHERE (LOWER(`f`.`name`) LIKE :1) AND (LOWER(`f`.`name`) NOT LIKE :2) "
       "{:1=\"%a%\" :2=\"b\"}"},
      {"NL_deleted=x&NN_size=", " WHERE (`deleted` IS NULL) AND (`file_size` IS NOT NULL)"},
      {"deleted=false&NE_deleted=0", " WHERE (`deleted`!=:1) AND (`deleted`=:2) {:1=false :2=true}"},
      {"IN_size=1,2,,x&NI_name=a,b'", " WHERE (`file_size` IN (1,2,0)) AND (`f`.`name` NOT IN ('a','b'''))"},
      {"IN_deleted=0,no&NI_any=", " WHERE (`deleted` IN (0,1)) AND (1)"},
      {"host_uuid=5F0C2B9E3A414C1E9D7A1B2C3D4E5F60",
       " WHERE (`host_uuid`=:1) {:1=x\"5F0C2B9E3A414C1E9D7A1B2C3D4E5F60\"}"},
      {"any=%00x&lost=1", " WHERE (`any`=:1) AND () {:1=\"\\u0000x\"}"},  // no column, no text
      {"sort=name,size&order=desc&limit=5&offset=6", " WHERE 1 ORDER BY f.name DESC,file_size ASC LIMIT 5 OFFSET 6"},
      {"sort=any,,deleted", " WHERE 1 ORDER BY any ASC, ASC,deleted ASC"},
      {"sort=size,,any", " WHERE 1 ORDER BY file_size ASC,any ASC"},
      {"sort=size,colour&limit=abc&offset=-5", " WHERE 1 LIMIT 0"},
      {"OR=size%3D1%26AND%3Dany%253D2%2526any%253D3%26size%3D4",
       " WHERE ((`file_size`=:1) OR ((`any`=:2) AND (`any`=:3)) OR (`file_size`=:4)) {:1=1 :2=\"2\" :3=\"3\" :4=4}"},
      {"AND=OR=AND=&OR=AND=OR", " WHERE (((1))) AND (((0)))"},
      {"AND=OR=any=a=b", " WHERE (((`any`=:1))) {:1=\"a=b\"}"},
      {"AND=OR=any%3D%2525", " WHERE (((`any`=:1))) {:1=\"%\"}"},
  };
  Log_Capture log;
  for (auto const& c : cases) {
    SCOPED_TRACE(c.query);
    EXPECT_EQ(parsed(params_of(c.query)), c.text);
    EXPECT_EQ(log.take(), Lines{});
  }
}

TEST(SQL_Filter_Parser, json_requests_keep_the_kinds_of_their_values) {
  struct {
    char const* json;
    std::string text;
    Lines log;
  } const cases[] = {
      {R"({"size":18446744073709551615,"any":2.5,"NE_any":null})",
       " WHERE (`any`!=:1) AND (`any`=:2) AND (`file_size`=:3) {:1=null :2=2.5 :3=18446744073709551615}",
       {}},
      {R"({"IN_size":["1",2],"IN_any":"a,b","deleted":true})",
       " WHERE (`any` IN ('a','b')) AND (`file_size` IN ('1',2)) AND (`deleted`=:1) {:1=true}",
       {}},
      {R"({"limit":18446744073709551615,"offset":3,"order":"x"})", " WHERE 1 LIMIT 9223372036854775807 OFFSET 3", {}},
      {R"({"limit":2.5,"order":1,"sort":["size"]})", " WHERE 1", {failed("limit", "2.5")}},
      {R"({"AND":{"size":1,"OR":"size=2&size=3","NL_any":0}})",
       " WHERE ((`any` IS NULL) AND ((`file_size`=:1) OR (`file_size`=:2)) AND (`file_size`=:3)) {:1=2 :2=3 :3=1}",
       {}},
      {R"({"AND":5,"size":1})",
       " WHERE (1) AND (`file_size`=:1) {:1=1}",
       {"ERROR sql_filter_parser 0: Invalid AND/OR filter value type '5'.\n", failed("AND", "5")}},
      {R"({"IN_size":5})",
       " WHERE 1",
       {"ERROR sql_filter_parser 0: Invalid filter value type '5'.\n", failed("IN_size", "5")}},
      {R"({"size":true,"deleted":1,"host_uuid":"x","IN_host_uuid":["x"],"NI_host_uuid":[1]})",
       " WHERE 1",
       {failed("IN_host_uuid", "[\"x\"]"), failed("NI_host_uuid", "[1]"), failed("deleted", "1"),
        failed("host_uuid", "\"x\""), failed("size", "true")}},
      {R"({"OR":{"any":1,"size":[],"zany":1}})",
       " WHERE ((`any`=:1)) {:1=1}",
       {failed("OR", "{\"any\":1,\"size\":[],\"zany\":1}")}},
  };
  Log_Capture log;
  for (auto const& c : cases) {
    SCOPED_TRACE(c.json);
    // "ORDER BY x" cannot come of an order without sort keys, so nothing shows of {"order":"x"}.
    EXPECT_EQ(parsed(object_of(c.json)), c.text);
    EXPECT_EQ(log.take(), c.log);
  }
}

TEST(SQL_Filter_Parser, a_whole_request_from_pairs_to_both_dialects) {
  Params const params = params_of(
      "name=Report&GE_size=1024&IN_host_uuid=5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60,9a1e7c55-0b3d-4e8f-a2c6-7d8e9f0a1b2c"
      "&NL_deleted=&OR=NE_size%3D0%26LK_name%3Dtmp&colour=red&sort=name,size&order=DESC&limit=50&offset=100");
  Select_SQL select("file", nullptr);
  SQL_Filter_Parser parser(select, filters);
  parser.parse(params, 0);
  parser.control(select);
  std::string const conditions[] = {"(`file_size`>=",
                                    ") AND (`host_uuid` IN (x'" + std::string(uuid_a) + "',x'" + uuid_b +
                                        "')) AND (`deleted` IS NULL) AND ((`file_size`!=",
                                    ") OR (LOWER(`f`.`name`) LIKE ", ")) AND (LOWER(`f`.`name`)=", ")"};
  std::string const order = " ORDER BY f.name ASC,file_size ASC LIMIT 50 OFFSET 100";
  std::string named;
  std::string positional;
  for (int i = 0; i < 5; ++i) {
    named += conditions[i] + (i < 4 ? ':' + std::to_string(i + 1) : "");
    positional += conditions[i] + (i < 4 ? "?" : "");
  }
  for (SQL::Database_Type const db : {SQL::DB_MYSQL, SQL::DB_SQLITE}) {
    EXPECT_EQ(render(select, db),
              "SELECT * FROM `file` WHERE " + named + order + " {:1=1024 :2=0 :3=\"tmp\" :4=\"report\"}");
    EXPECT_EQ(render_positional(select, db),
              "SELECT * FROM `file` WHERE " + positional + order + " [1024,0,\"tmp\",\"report\"]");
    EXPECT_EQ(render_count(select, db),
              "SELECT COUNT(`file`.id) FROM `file` WHERE " + named + " {:1=1024 :2=0 :3=\"tmp\" :4=\"report\"}");
  }
  Object const converted = parser.convert_qs_to_params(params);
  EXPECT_EQ(std::string(json_spirit::JSON_Dump(converted, false).c_str()),
            R"({"GE_size":1024,"IN_host_uuid":["5f0c2b9e-3a41-4c1e-9d7a-1b2c3d4e5f60",)"
            R"("9a1e7c55-0b3d-4e8f-a2c6-7d8e9f0a1b2c"],"NL_deleted":null,"OR":{"LK_name":"tmp","NE_size":0},)"
            R"("colour":"red","limit":50,"name":"Report","offset":100,"order":"DESC","sort":"name,size"})");
  parser.parse(converted, 0);
  EXPECT_EQ(render(select, SQL::DB_SQLITE).find("SELECT * FROM `file` WHERE (`file_size`>=:1) AND (`host_uuid` IN"),
            0U);
}

TEST(SQL_Filter_Parser, parses_start_afresh_or_add) {
  And_Filter_SQL filter;
  SQL_Filter_Parser parser(&filter, filters);
  parser.parse(Params{{"size", "1"}, {"limit", "5"}}, 0);
  parser.parse(Params{{"size", "1"}, {"offset", "6"}}, 1);
  EXPECT_EQ(render(filter), "(`file_size`=:1) AND (`file_size`=:2) {:1=1 :2=1}");
  EXPECT_EQ(*parser.controls().limit() + *parser.controls().offset(), 11);
  parser.parse(Params{}, 2);
  EXPECT_EQ(render(filter), "1");
  EXPECT_EQ(parser.controls().limit(), nullptr);
  SQL_Filter_Parser without_table(&filter, nullptr);
  without_table.parse(Params{{"size", "1"}, {"sort", "size"}, {"order", "desc"}}, 0);
  EXPECT_EQ(render(filter), "1");
  EXPECT_EQ(without_table.controls().sort(), nullptr);
  EXPECT_EQ(*without_table.controls().order(), "desc");
  EXPECT_EQ(without_table.convert_qs_to_params({{"IN_size", "1,2"}, {"limit", "7"}}).at("IN_size"), Value("1,2"));
  SQL_Filter_Parser nothing;
  nothing.parse(object_of(R"({"size":1,"AND":{}})"), 0);
  EXPECT_TRUE(nothing.parse_filter_i("size", Value("1"), &filter));
  EXPECT_FALSE(nothing.parse_filter_i("AND", Value("1"), nullptr));
  EXPECT_EQ(render(filter), "1");
  Select_SQL select("t", nullptr);
  nothing.control(select);
  EXPECT_EQ(render(select), "SELECT * FROM `t`");
}

TEST(SQL_Filter_Parser, nested_query_strings_are_read_once) {
  // Escapes in the innermost value must not make each level read the rest of the text again.
  for (char const* inner : {"size=1", "size=1%zz", "size=1+"}) {
    std::string query;
    while (query.size() < 64 * 1024) query += "AND=";
    std::size_t const levels = query.size() / 4;
    EXPECT_EQ(parsed(params_of((query + inner).c_str())).substr(0, levels + 9),
              " WHERE " + std::string(levels + 1, '(') + "`");
    SQL_Filter_Parser const parser(filters);
    EXPECT_EQ(parser.convert_qs_to_params(params_of((query + inner).c_str())).size(), 1U);
  }
}

TEST(SQL_Filter_Parser, a_request_cannot_cost_the_square_of_its_size) {
  // Each level takes one escape off, and would read the rest of the text again.
  std::string staircase;
  for (int i = 0; i < 100000; ++i) staircase += "AND=";
  staircase += "size=1%";
  for (int i = 0; i < 100000; ++i) staircase += "25";
  Log_Capture log;
  SQL_Filter_Parser parser(filters);
  And_Filter_SQL filter;
  EXPECT_FALSE(parser.parse_filter_i("AND", Value(staircase), &filter));
  Object object;
  EXPECT_FALSE(parser.convert_kv_to_params("AND", staircase, object));

  // Groups escaped level by level, each with a member behind it, are read whole.
  std::string layered = "size=1";
  for (int i = 0; i < 40; ++i) {
    std::string escaped;
    for (char const c : layered) escaped += c == '%' ? "%25" : c == '&' ? "%26" : c == '=' ? "%3D" : std::string(1, c);
    layered = "OR=" + escaped + "&size=2";
  }
  Or_Filter_SQL whole;
  EXPECT_TRUE(parser.parse_filter_i("OR", Value(layered), &whole));
  std::string text;
  Bindings bindings;
  whole.get_sql(SQL::DB_SQLITE, text, bindings);
  EXPECT_EQ(text.substr(0, 50), std::string(42, '(') + "`file_si");
  EXPECT_EQ(bindings.size(), 41U);
}

TEST(SQL_Filter_Parser, long_requests_are_read_whole) {
  Params params;
  for (int i = 0; i < 100000; ++i) params["unknown" + std::to_string(i)] = "x";
  std::string list;
  for (int i = 0; i < 100000; ++i) list += std::to_string(i) + ',';
  params["IN_size"] = list;
  std::string const text = parsed(params);
  EXPECT_EQ(text, " WHERE (`file_size` IN (" + list.substr(0, list.size() - 1) + "))");
}
