// Hostile requests on real databases: a value stays one value, and a key names a column of the table or nothing.
#include <gtest/gtest.h>

#include <boost/algorithm/string.hpp>
#include <cstring>
#include <map>
#include <regex>
#include <tuple>
#include <utility>
#include <vector>

#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "support/databases.h"
#include "support/render.h"

namespace {

using backup::Store;
using backup::Store_Error;

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using namespace std::string_literals;

// `group` is a column only when quoted.
SQL_Filter_Parser::Filters const keys[] = {{"id", 2, {nullptr, SQL_Filter_Parser::Filter::TYPE_INT, 0, 0}},
                                           {"group", 5, {nullptr, SQL_Filter_Parser::Filter::TYPE_TEXT, 0, 0}},
                                           {"lower", 5, {"group", SQL_Filter_Parser::Filter::TYPE_TEXT, 1, 2}},
                                           {nullptr, 0, {nullptr, 0, 0, 0}}};

std::vector<std::string> split(std::string const& texts) {
  std::vector<std::string> split;
  return boost::split(split, texts, [](char c) { return c == '~'; });
}

std::vector<std::string> const all = split(
    "~'~''~it's~\\~\\'~\\\\'~a\\~\"~`~a`b~;~--~-- ~#~/*~*/~/*! OR 1=1 */~' OR '1'='1~')) OR 1=1 -- ~\\')) OR 1=1 #~"
    ")) OR 1=1 -- ~'; DROP TABLE t; -- ~`=`group`) OR (`id~' UNION SELECT 1 -- ~:~::~?~?1~@a~$a~:1~::1:~a:1'~:11~:2~"
    "%~_~|~||~|%~|_~a_b~axb~a%~A|B~NULL~0~0x31~x'31'~1e400~-1~-9223372036854775809~[0]~{\"a\":1}~\r\n\t\x1A\x7F~"
    "\xC3\xA4\xF0\x9F\x98\x80~\xEF\xBC\x87 OR 1=1~\0~a\0b~\0' OR 1=1 -- ~"
    "\xFF~a\xC3~\xC0\x80~\xC0\xA7 OR 1=1~\xE0\x80\xA7~\xF4\x90\x80\x80~\xBF' OR 1=1 -- ~\xC3' OR 1=1 -- "s);
// No UTF-8: stray bytes, incomplete sequences, overlong ones (also of a quote), one beyond the last character.
auto const no_utf8 = all.end() - 8;

// One character for each token: l(iteral), q(uoted name), n(umber), p(arameter), w(ord), c(omment), or its own first.
std::string token_kinds(std::string const& sql) {
  static std::regex const token(
      "('(?:[^']|'')*')|(`(?:[^`]|``)*`)|([0-9][0-9.e]*)|([?]|:[0-9a-z_]+)|([a-zA-Z_]+)|(--|/[*]|#)|[^\x01-\x20]");
  std::string kinds;
  for (std::sregex_iterator at(sql.begin(), sql.end(), token); at != std::sregex_iterator(); ++at) {
    std::size_t kind = 0;
    while (kind < 6 && !(*at)[kind + 1].matched) ++kind;
    kinds += kind < 6 ? "lqnpwc"[kind] : *(*at)[0].first;
  }
  return kinds;
}

// Parses a request of one pair. Texts are those of a query string. Adds to the conditions before.
template <class T>
void ask(Select_SQL& select, std::string const& key, T const& value) {
  SQL_Filter_Parser parser(select, keys);
  std::map<std::string, T> request;
  request[key] = value;
  parser.parse(request, SQL_Filter_Parser::accumulate);
  parser.control(select);
}

void ask_document(Select_SQL& select, char const* key, Value const& operand) {
  generate_filter_from_obj(Object{{"op", "EQ"}, {"k", key}, {"v", operand}}, *select.and_filter());
}

void search(Select_SQL& select, std::string const& text) { select.and_filter()->add_substr_matching("`group`", text); }

class Hostile : public testing::TestWithParam<std::tuple<Database, Store::Binding_Mode>> {
protected:
  Hostile() { store_->run(with_types("CREATE TABLE t(id {id}, `group` {text})", db_)); }

  void insert(std::vector<std::string> const& texts) {
    for (std::string const& text : texts) store_->run(Insert_SQL("t").value("id", ++rows_).value("group", text), mode_);
  }

  template <class Fill>
  static Select_SQL filled(Fill const& fill) {
    Select_SQL select("t", nullptr);
    select.add_key("id", nullptr).and_filter()->add_kv_item(Item_SQL::OP_GE, "id", 0, Filter_SQL::no_flags);
    fill(select);
    return select;
  }

  template <class Fill>
  std::string text(Fill const& fill) const {
    std::string text;
    Bindings bindings;
    return filled(fill).get_sql(store_->dialect(), text, bindings);
  }

  // The rows chosen.
  template <class Fill>
  std::string ids(Fill const& fill) try {
    std::string found;
    for (Store::Row const& row : store_->rows(filled(fill), mode_)) found += value_text(row.at(0)) + ' ';
    return found;
  } catch (Store_Error const&) {
    return "refused";
  }

  // As LIKE finds it. SQLite's ignores case, and text of a row after a zero byte.
  bool finds(std::string const& row, std::string const& part) const {
    return is_sqlite_ ? boost::icontains(std::string(row.c_str()), part) : boost::contains(row, part);
  }

  template <class T>
  std::string asked(char const* key, T const& value) {
    return ids([&](Select_SQL& select) { ask(select, key, value); });
  }

  Database const db_ = std::get<0>(GetParam());
  Store::Binding_Mode const mode_ = std::get<1>(GetParam());
  bool const is_sqlite_ = db_ == Database::sqlite;
  bool const by_position_ = mode_ == Store::BY_POSITION;
  std::unique_ptr<Store> const store_ = open_empty(db_);
  std::size_t rows_ = 0;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Stores, Hostile,
                         testing::Combine(testing::Values(Database::sqlite, Database::mariadb),
                                          testing::Values(Store::BY_NAME, Store::BY_POSITION)));

TEST_P(Hostile, values_are_one_token_and_choose_their_own_rows) {
  std::pair<char const*, void (*)(Select_SQL&, std::string const&)> const ways[] = {
      {"(q=p)", [](auto& s, auto& v) { ask(s, "group", v); }},
      {"(w(q)=p)", [](auto& s, auto& v) { ask(s, "lower", Value(v)); }},
      {"((q=p))", [](auto& s, auto& v) { ask(s, "OR", "group=" + boost::replace_all_copy(v, "%", "%25")); }},
      {"((qw(l,l)))", [](auto& s, auto& v) { ask(s, "OR", Value(Object{{"IN_group", Array{"none\\", v}}})); }},
      {"(q.q=p)", [](auto& s, auto& v) { ask_document(s, "t.group", v); }},
      {"(q.qw(l))", [](auto& s, auto& v) { ask_document(s, "t.group", Array{v}); }},
      {"(qwpwl)", search}};
  insert({all.begin(), is_sqlite_ ? all.end() : no_utf8});  // MariaDB stores only UTF-8 in a text
  for (auto at = all.begin(); at != all.end(); ++at) {
    std::string const& value = *at;
    bool const has_zero = value.find('\0') != std::string::npos;
    bool const has_name = std::regex_search(value, std::regex(":1(?![0-9A-Za-z_])"));
    for (auto const& [kinds, way] : ways) {
      SCOPED_TRACE(value_text(value) + kinds);
      auto const fill = [&, add = way](Select_SQL& select) { add(select, value); };
      EXPECT_EQ(token_kinds(text(fill)), std::string("wwwqw(q>=p)w") + kinds);
      bool const is_literal = std::strstr(kinds, "l)") != nullptr && way != search;
      if (way == search && is_sqlite_ && (has_zero || at >= no_utf8)) continue;  // see below, and facts_test.cpp
      bool const is_refused = is_literal && ((is_sqlite_ && has_zero) || (by_position_ && has_name));
      std::string expected = is_refused ? "refused" : "";
      for (std::size_t row = 0; row < rows_ && !is_refused; ++row) {
        if (way == search ? finds(all[row], value) : all[row] == value) expected += std::to_string(row + 1) + ' ';
      }
      EXPECT_EQ(ids(fill), expected);
    }
  }
}

TEST_P(Hostile, keys_and_controls_leave_no_trace) {
  for (std::string const& part : all) {
    for (char const* const key : {"%_", "EQ_%", "IN_%", "NL_%", "group%.", "%group "}) {
      auto const fill = [&, key = boost::replace_all_copy(std::string(key), "%", part)](Select_SQL& select) {
        ask(select, key, "x"s);
        ask(select, "AND", Value(Object{{key, "x"}}));
        ask(select, "OR", key + "=x");
        ask(select, "sort", "id"s);
        ask(select, "sort", key);
        ask(select, "order", part);
        ask(select, "limit", 'x' + part);
      };
      EXPECT_EQ(text(fill), "SELECT id FROM `t` WHERE (`id`>=:1) AND (1) AND (0) ORDER BY id ASC LIMIT 0");
    }
  }
}

TEST_P(Hostile, sizes_end_in_rows_or_a_refusal) {
  std::string const large(10'000'000, '\'');
  Object deep{{"group", "a"}};
  Array list{"a"};
  for (int i = 0; i < 100'000; ++i) list.emplace_back(std::to_string(i) + "'\\");
  for (int i = 0; i < (by_position_ ? 100'000 : 1'000'000); ++i) {
    Object request;
    request["AND"] = std::move(deep);
    deep = std::move(request);
  }
  insert({"a", large});
  EXPECT_EQ(asked("group", large), "2 ");
  EXPECT_EQ(asked("IN_group", Value(Array{large})), "2 ");
  EXPECT_EQ(ids([&](auto& select) { search(select, large); }), is_sqlite_ ? "refused" : "2 ");
  EXPECT_EQ(asked("IN_group", Value(list)), "1 ");
  EXPECT_EQ(asked("OR", Value(std::move(deep))), "refused");
  EXPECT_EQ(asked("group", "a"s), "1 ");
}

TEST_P(Hostile, texts_that_are_taken_for_others) {
  insert({"a", "?", "{\"a\":1}"});
  auto const found = [&](std::string const& text) { return ids([&](auto& select) { search(select, text); }); };
  EXPECT_EQ(found("\0"s), is_sqlite_ ? "1 2 3 " : "");  // LIKE ends at a zero byte
  EXPECT_EQ(found("a\0b"s), is_sqlite_ ? "1 " : "");
  for (char const* const hex : {"6", "zz", "61,62", "61' OR '1'='1", "61')) OR 1=1 -- "}) {
    EXPECT_EQ(ids([&](auto& select) { select.and_filter()->add_in_uuid_item("group", {hex}); }), "refused");
  }
  // A name in a literal gives one value too many. Only a mark that the program left without a value can take it.
  auto const beside_open_mark = [&](char const* element) {
    return ids([&](Select_SQL& select) {
      select.and_filter()->add_sql("id<?", true).add_in_item("group", Array{element}, Filter_SQL::no_flags);
      select.and_filter()->add_kv_ne_item("id", 9);
    });
  };
  EXPECT_EQ(beside_open_mark("?"), "refused");
  EXPECT_EQ(beside_open_mark(":2"), by_position_ ? "2 " : "refused");
  EXPECT_EQ(asked("IN_group", Value(Array{Object{{"a", 1}}})), by_position_ ? "refused" : "3 ");
}
