// The statement base: own text, bindings, rendering entries, log, reference count.
#include "backup/utils/sql/sql.h"

#include <gtest/gtest.h>

#include <functional>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_value.h"
#include "backup/utils/sql/union_sql.h"
#include "support/log_capture.h"
#include "support/random_source.h"
#include "support/render.h"

namespace {

using Lines = std::vector<std::string>;

// A program's own statement with its own rendering.
class Own_SQL : public SQL {
public:
  explicit Own_SQL(bool* destroyed = nullptr) : SQL(nullptr, TYPE_RAW, true), destroyed_(destroyed) {}
  ~Own_SQL() override {
    if (destroyed_ != nullptr) *destroyed_ = true;
  }
  void get_sql_i(Database_Type /*db*/, std::string& sql, Bindings& bindings, unsigned long long& index) const override {
    sql = "own:" + std::to_string(++index);
    bindings[":" + std::to_string(index)] = "mine";
  }

private:
  bool* destroyed_;
};

}  // namespace

TEST(SQL, text_is_kept_by_pointer_or_copied) {
  char text[] = "SELECT 1";
  SQL shared(text, SQL::TYPE_RAW, true);
  SQL copied(text, SQL::TYPE_RAW, false);
  SQL const shared_copy(shared);
  SQL const copied_copy(copied);
  text[7] = '2';
  EXPECT_EQ(render(shared_copy), "SELECT 2");
  EXPECT_EQ(render(copied), "SELECT 1");
  copied.sql("other", false);
  EXPECT_EQ(render(copied_copy), "SELECT 1");
  copied = copied_copy;
  EXPECT_EQ(render(copied), "SELECT 1");
  copied = static_cast<SQL const&>(copied);
  EXPECT_EQ(render(copied), "SELECT 1");
  SQL const borrowed(copied.sql(), SQL::TYPE_RAW, true);
  copied = borrowed;
  EXPECT_EQ(render(copied), "SELECT 1");
  copied.count_sql(copied.sql(), false);
  SQL counted(nullptr, SQL::TYPE_RAW, true);
  counted.count_sql(copied.count_sql(), true);
  copied = counted;
  EXPECT_EQ(render_count(copied), "SELECT 1");
  copied.sql(nullptr, false);
  EXPECT_TRUE(copied.empty());
  EXPECT_TRUE(SQL("", SQL::TYPE_RAW, true).empty());
}

TEST(SQL, count_query_wraps_the_text_in_the_dialects_form) {
  Log_Capture log(true);
  SQL statement("SELECT a FROM t", SQL::TYPE_RAW, true);
  statement.bind(":limit", 5).bind(":x", 1);
  EXPECT_EQ(render_count(statement, SQL::DB_MYSQL), "SELECT COUNT(*) FROM (SELECT a FROM t) AS sum {:limit=5 :x=1}");
  EXPECT_EQ(log.take().front(),
            "DEBUG sql 0: Please use SQL::count_sql or Select_SQL to perform this count query SQL: "
            "SELECT COUNT(*) FROM (SELECT a FROM t) AS sum\n");
  EXPECT_EQ(render_count(statement, SQL::DB_NONE), "SELECT COUNT() FROM (SELECT a FROM t) {:limit=5 :x=1}");
  statement.bind(":offset", 6).count_sql("SELECT COUNT(a) FROM t", true);
  EXPECT_EQ(render_count(statement), "SELECT COUNT(a) FROM t {:x=1}");
}

TEST(SQL, explicit_bindings_replace_generated_ones_and_leave_the_callers) {
  And_Filter_SQL filter;
  filter.add_kv_eq_item("a", 1);
  filter.bind(":1", "explicit");
  Bindings bindings{{":1", "caller"}, {":other", "caller"}};
  std::string sql = "replaced";
  filter.get_sql(SQL::DB_MYSQL, sql, bindings);
  EXPECT_EQ(with_bindings(sql, bindings), "(`a`=:1) {:1=\"explicit\" :other=\"caller\"}");
}

TEST(SQL, binds_values_from_objects_uuids_and_hex) {
  SQL statement("?", SQL::TYPE_RAW, true);
  json_spirit::Object const object{
      {"size", 5}, {"none", {}}, {"id", "00112233-4455-6677-8899-aabbccddeeff"}, {"number", 1}};
  statement.bind(":a", object, "size").bind(object, "none").bind(object, "absent").bind(":b", object, "absent");
  statement.bind_uuid(":u", "00112233445566778899AABBCCDDEEFF").bind_uuid(object, "id").bind_uuid(object, "number");
  statement.bind_uuid(":bad", std::string("no uuid")).bind_uuid(":null", static_cast<char const*>(nullptr));
  statement.bind_hex(":h", std::string("0aFF")).bind_hex(":odd", std::string("0aF"));
  statement.bind_hex(":nohex", static_cast<char const*>(nullptr));
  statement.bind_hex(":s", Secure_String("01")).bind_uuid(":t", Secure_String("00112233-4455-6677-8899-aabbccddeeff"));
  Random_Source const zeros(0);
  statement.bind_new_uuid(":new").bind(":gone", 1).unbind(":gone").unbind(":never");
  Bindings bindings;
  std::string sql;
  EXPECT_EQ(with_bindings(statement.get_sql(SQL::DB_SQLITE, sql, bindings), bindings),
            "? {:a=5 :bad=x\"\" :h=x\"0AFF\" :id=x\"00112233445566778899AABBCCDDEEFF\" "
            ":new=x\"00000000000040008000000000000000\" :nohex=x\"\" :none=null :null=x\"\" :odd=x\"\" :s=x\"01\" "
            ":t=x\"00112233445566778899AABBCCDDEEFF\" :u=x\"00112233445566778899AABBCCDDEEFF\"}");
  EXPECT_EQ(bindings[":s"].type(), Binding_Value::bin_type) << "secret hex becomes plain bytes";
  EXPECT_EQ(bindings[":t"].type(), Binding_Value::secure_bin_type);
  statement.clear();
  EXPECT_EQ(render(statement), "");
}

TEST(SQL, renders_positionally_and_logs_each_line) {
  Log_Capture log(true);
  SQL statement("a=:x AND b=:y", SQL::TYPE_RAW, true);
  statement.bind(":x", "X").bind(":y", Secure_String("secret"));
  EXPECT_EQ(render_positional(statement), "a=? AND b=? [\"X\",\"secret\"]");
  EXPECT_EQ(log.take(), (Lines{"DEBUG sql 0: SQL: a=? AND b=?\n", "DEBUG sql 0: Params:\n", "DEBUG sql 0: ?: \"X\"\n",
                               "DEBUG sql 0: ?: \"secret\"\n"}));
  EXPECT_EQ(render(statement), "a=:x AND b=:y {:x=\"X\" :y=\"secret\"}");
  EXPECT_EQ(log.take(), (Lines{"DEBUG sql 0: SQL: a=:x AND b=:y\n", "DEBUG sql 0: Params:\n",
                               "DEBUG sql 0: :x: \"X\"\n", "DEBUG sql 0: :y: \"secret\"\n"}));
  // A record holds 4,096 bytes. No character is cut in two.
  std::string const wide(4090, 'w');
  SQL::log_sql(wide, Bindings{{":" + wide, 5}, {":y", wide + wide}});
  SQL::log_sql("\xC3\xA9" + wide + "\xC3\xA9", Bindings{{wide, wide}});
  EXPECT_EQ(log.take(),
            (Lines{"DEBUG sql 0: SQL: " + wide + "\n", "DEBUG sql 0: Params:\n", "DEBUG sql 0: :" + wide + ": 5\n",
                   "DEBUG sql 0: :y: \"" + wide.substr(0, 4087) + "...\n",
                   "DEBUG sql 0: SQL: \xC3\xA9" + wide.substr(0, 4085) + "...\n", "DEBUG sql 0: Params:\n",
                   "DEBUG sql 0: " + wide.substr(0, 2043) + "...: \"" + wide.substr(0, 2042) + "...\n"}));
}

TEST(SQL, an_empty_text_fails_the_positional_conversion) {
  Log_Capture log;
  SQL empty(nullptr, SQL::TYPE_RAW, true);
  EXPECT_EQ(render_positional(empty), " []");
  EXPECT_EQ(log.take().size(), 1U) << "get_sql adds nothing to the converter's own report";
  empty.count_sql("", true);
  std::string sql;
  std::vector<Binding_Value> values;
  empty.get_count_sql(SQL::DB_MYSQL, sql, values);
  EXPECT_EQ(log.take().back(), "ERROR sql 0: Failed to convert SQL to question mark format: \n");
}

TEST(SQL, numbering_goes_on_where_the_caller_is) {
  And_Filter_SQL filter;
  for (int i = 0; i < 3; ++i) filter.add_kv_eq_item("a", i);
  std::string sql;
  Bindings bindings{{":8", "kept"}, {":9", "replaced"}};
  unsigned long long index = 8;
  EXPECT_EQ(with_bindings(filter.get_sql(SQL::DB_SQLITE, sql, bindings, index), bindings),
            "(`a`=:9) AND (`a`=:10) AND (`a`=:11) {:10=1 :11=2 :8=\"kept\" :9=0}");
  bindings.clear();
  index = ~0ULL - 1;
  EXPECT_EQ(with_bindings(filter.get_sql(SQL::DB_SQLITE, sql, bindings, index), bindings),
            "(`a`=:18446744073709551615) AND (`a`=:0) AND (`a`=:1) {:0=1 :1=2 :18446744073709551615=0}");
}

// Marks are written at once when that is exact, otherwise made from names: the result is the same.
TEST(SQL, marks_are_those_that_names_are_converted_to) {
  Own_SQL const own;
  Union_SQL appending(Union_SQL::distinct);
  appending.add_select_sql()->table("u", nullptr);
  std::pair<char const*, std::function<void(Select_SQL&)>> const cases[] = {
      {"plain", [](Select_SQL&) {}},
      {"a colon in a literal",
       [](Select_SQL& s) {
         s.and_filter()->add_in_item("l", {":1", ":x"}, Filter_SQL::no_flags);
       }},
      {"a colon at the end", [](Select_SQL& s) { s.order_by("a:"); }},
      {"a question mark in a literal",
       [](Select_SQL& s) { s.and_filter()->add_in_item("l", {"?:"}, Filter_SQL::no_flags); }},
      {"a name bound by hand", [](Select_SQL& s) { s.and_filter()->add_sql("y=:y", true).bind(":y", 7); }},
      {"a number bound by hand", [](Select_SQL& s) { s.bind(":1", 7).bind(":z", 8); }},
      {"a substring", [](Select_SQL& s) { s.and_filter()->add_substr_matching("n", "x"); }},
      {"a part of a caller's own", [&](Select_SQL& s) { s.and_filter()->add_in_item("o", own); }},
      {"a statement as HAVING", [&](Select_SQL& s) { s.having(&own); }},
      {"one that appends to the WHERE clause", [&](Select_SQL& s) { s.having(&appending); }},
      {"a decrement of a statement",
       [](Select_SQL& s) { s.and_filter()->add_sql_val_item(Item_SQL::OP_DEC, 5)->sql("n", true); }},
      {"an operator without text, behind its value",
       [](Select_SQL& s) { s.and_filter()->add_val_sql_item(Item_SQL::OP_NL, 5)->sql("n", true); }},
      {"an item without text",
       [](Select_SQL& s) { s.and_filter()->add_kv_item(Item_SQL::OP_NONE, "n", 5, Filter_SQL::no_flags); }},
  };
  for (auto const& [name, change] : cases) {
    SCOPED_TRACE(name);
    Select_SQL select("t", nullptr);
    for (int i = 0; i < 12; ++i)
      select.and_filter()->add_kv_item(Item_SQL::OP_LK, "k", std::to_string(i), Filter_SQL::lower_case);
    change(select);
    select.and_filter()->add_or_filter()->add_kv_eq_item("last", 1);
    Log_Capture log;
    std::string const marked = render_positional(select);
    Lines const reports = log.take();
    std::string text;
    Bindings bindings;
    select.get_sql(SQL::DB_SQLITE, text, bindings);
    EXPECT_EQ(log.take(), reports);
    std::vector<Binding_Value> values;
    EXPECT_TRUE(Question_Mask_SQL_Converter().convert(text, bindings, values));
    EXPECT_EQ(marked, with_values(text, values));
  }
}

TEST(SQL, a_callers_subclass_renders_its_own_way_inside_a_filter) {
  class Own_Item : public KV_Item_SQL {
  public:
    Own_Item() : KV_Item_SQL(OP_EQ, "k", 1, 0) {}
    void get_sql_i(Database_Type /*db*/, std::string& sql, Bindings& /*bindings*/,
                   unsigned long long& /*index*/) const override {
      sql = "own item";
    }
  };
  Own_SQL own;
  own.bind(":e", 5);
  And_Filter_SQL filter;
  filter.add_in_item("a", own);
  filter.add_kv_eq_item("b", 2);
  Own_Item const item;
  filter.add_not_in_item("c", item);
  EXPECT_EQ(render(filter), "(`a` IN (own:1)) AND (`b`=:2) AND (`c` NOT IN (own item)) {:1=\"mine\" :2=2 :e=5}");
}

TEST(SQL, reference_count_deletes_with_the_last_pointer) {
  bool destroyed = false;
  {
    ACE_Intrusive_Auto_Ptr<SQL> const first(new Own_SQL(&destroyed));
    SQL_Value const shared(first);
    ACE_Intrusive_Auto_Ptr<SQL> const copy_of_the_statement(new SQL(*first));
  }
  EXPECT_TRUE(destroyed);
  Own_SQL untouched(&(destroyed = false));
  SQL::intrusive_remove_ref(&untouched);
  SQL::intrusive_remove_ref(nullptr);
  SQL::intrusive_add_ref(nullptr);
  EXPECT_FALSE(destroyed);
}
