// Every factory that reports missing memory and does not throw. Each of its allocations fails once, alone and together
// with all later ones.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "backup/utils/sql/union_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "support/heap.h"
#include "support/log_capture.h"
#include "support/random_source.h"
#include "support/render.h"

namespace {

struct Statements {
  Select_SQL select{"t", nullptr};
  Filter_SQL& filter = *select.or_filter();
  Insert_SQL insert{"t"};
  Update_SQL update{"t"};
  Union_SQL both{Union_SQL::distinct};

  std::string rendered() const { return render(select) + render(insert) + render(update) + render(both); }
};

// One factory call; null when it reports failure.
struct Factory {
  char const* name;
  std::string report;  // the log record of a failure
  std::function<void const*(Statements&)> make;
};

std::string const key(40, 'k');
std::vector<json_spirit::Value> const values{key, 1};
json_spirit::Object const object{{"a", 1}};
Binding_Value const value(key);

std::string failed(std::string const& what, char const* priority = "WARNING") {
  return priority + (" filter_sql 0: Failed to add " + what) + " '" + key + "' to filter.\n";
}

// An adder that returns the filter shows a failure only in errno; the rendered text must agree.
void const* added(Filter_SQL const& result) { return errno == 0 ? &result : nullptr; }

Factory const factories[] = {
    {"add_and_filter", "", [](Statements& s) { return s.filter.add_and_filter(); }},
    {"add_item", "", [](Statements& s) { return s.filter.add_item(Item_SQL::OP_EQ, "l", "r"); }},
    {"add_substr_matching", "", [](Statements& s) { return added(s.filter.add_substr_matching(key, key)); }},
    {"add_null_item", failed("null item"), [](Statements& s) { return s.filter.add_null_item(key); }},
    {"add_not_null_item", failed("not null item"), [](Statements& s) { return s.filter.add_not_null_item(key); }},
    {"add_in_item", failed("in item"),
     [](Statements& s) { return s.filter.add_in_item(key, values, Filter_SQL::no_flags); }},
    {"add_not_in_item", failed("not in item"), [](Statements& s) { return s.filter.add_not_in_item(key, object); }},
    {"add_kv_item", failed("item"), [](Statements& s) { return s.filter.add_kv_eq_item(key, value); }},
    {"add_key_uuid_item", failed("uuid item"), [](Statements& s) { return s.filter.add_key_uuid_eq_item(key, key); }},
    {"add_key_sql_item", failed("sql item", "ERROR"), [](Statements& s) { return s.filter.add_key_sql_eq_item(key); }},
    {"add_val_sql_item", "ERROR filter_sql 0: Failed to add val sql item to filter.\n",
     [](Statements& s) { return s.filter.add_val_sql_item(Item_SQL::OP_EQ, 1); }},
    {"and_filter", "", [](Statements& s) { return s.select.and_filter(); }},
    {"add_sql_key", "", [](Statements& s) { return s.select.add_sql_key("n"); }},
    {"sql_table", "", [](Statements& s) { return s.select.sql_table("n"); }},
    {"sql_join", "", [](Statements& s) { return s.select.sql_join("n", key); }},
    {"value_sql", "", [](Statements& s) { return s.insert.value_sql(key); }},
    {"values_sql", "", [](Statements& s) { return s.insert.values_sql(); }},
    {"set_sql", "", [](Statements& s) { return s.update.set_sql(key); }},
    {"add_select_sql", "", [](Statements& s) { return s.both.add_select_sql(); }},
};

}  // namespace

// True when the factory succeeds although its nth allocation fails.
bool has_made(Factory const& factory, long nth, heap::Shortage shortage) {
  Statements statements;
  statements.filter.add_null_item("a");
  statements.insert.value("a", 1);
  std::string const before = statements.rendered();
  Log_Capture log;
  errno = 0;
  bool made = false;
  bool has_failed = false;
  {
    heap::Failing_Allocation const no_memory(nth, shortage);
    EXPECT_NO_THROW(made = factory.make(statements) != nullptr);
    has_failed = no_memory.failed();
  }
  EXPECT_NE(made, has_failed);
  EXPECT_EQ(errno, made ? 0 : ENOMEM);
  EXPECT_EQ(statements.rendered() == before, has_failed);
  EXPECT_EQ(log.take(), std::vector<std::string>(has_failed && !factory.report.empty() ? 1 : 0, factory.report));
  return made;
}

TEST(Factories, without_memory_set_errno_return_null_and_change_nothing) {
  for (auto const shortage : {heap::Shortage::once, heap::Shortage::lasting}) {
    for (Factory const& factory : factories) {
      SCOPED_TRACE(factory.name);
      long nth = 0;
      for (bool made = false; !made;) {
        ASSERT_LT(++nth, 50);
        long const live_before = heap::live_blocks();
        made = has_made(factory, nth, shortage);
        EXPECT_EQ(heap::live_blocks(), live_before);
      }
      EXPECT_GE(nth, 2) << "not one allocation was made to fail";
    }
  }
}

TEST(Factories, without_memory_convert_no_half_of_a_document) {
  json_spirit::Value document;
  json_spirit::read_string_or_throw(R"({"op":"AND","v":[{"op":"EQ","k":"a","v":"a text that is not so short"},
    {"op":"OR","v":[{"op":"AND","v":[{"op":"EQ","k":"b","v":2}]}, {"op":"EQ","k":"uid","v":[]},"c=3"]}]})",
                                    document);
  std::string const whole = R"(((`a`=:1) AND (((`b`=:2)) OR (0) OR (c=3))) {:1="a text that is not so short" :2=2})";
  for (auto const shortage : {heap::Shortage::once, heap::Shortage::lasting}) {
    long nth = 0;
    for (bool passed = false; !passed;) {
      Log_Capture log;
      And_Filter_SQL filter;
      bool converted = false;
      {
        heap::Failing_Allocation const no_memory(++nth, shortage);
        errno = 0;
        EXPECT_NO_THROW(converted = generate_filter_from_obj(document.get_obj(), filter));
        passed = !no_memory.failed();
      }
      EXPECT_EQ(errno, passed ? 0 : ENOMEM);
      EXPECT_EQ(render(filter), converted ? whole : "1") << nth;
    }
    EXPECT_GE(nth, 5);
  }
}

TEST(Factories, without_memory_leave_a_group_its_members) {
  for (long nth = 1; nth < 8; ++nth) {
    json_spirit::Object group{{"v", json_spirit::Array{1}}};
    Log_Capture const log;
    heap::Failing_Allocation const no_memory(nth, heap::Shortage::lasting);
    generate_eq_and_filter(group, object, {});
    EXPECT_EQ(group.count("v"), 1U) << nth;
  }
}

template <class Statement>
void assign_without_memory(Statement one, Statement other) {
  one.sql(key.c_str(), false).bind(":one", value);
  other.count_sql(key.c_str(), false).bind(":other", value);
  for (long nth = 1;; ++nth) {
    Statement statement(one);
    bool failed = false;
    {
      heap::Failing_Allocation const no_memory(nth);
      try {
        statement = other;
      } catch (std::bad_alloc const&) {  // what the statement holds is looked at below
      }
      failed = no_memory.failed();
    }
    EXPECT_EQ(render(statement) + render_count(statement),
              render(failed ? one : other) + render_count(failed ? one : other))
        << nth;
    if (!failed) break;
  }
}

TEST(SQL, without_memory_assignment_changes_nothing) {
  Statements one;
  one.filter.add_kv_eq_item(key, 1);
  one.select.add_key("a", nullptr).having(key.c_str(), true).sort_by("b", true);
  one.insert.value("a", key).value(key + "b", 1);
  one.insert.entries();  // is kept up to date from now on
  one.update.set(key, 1).where(key.c_str(), true);
  one.both.add_select_sql()->table("t", nullptr);
  Statements other;
  other.select.add_key(key, nullptr).add_key("b", nullptr).join("t", "u", key).sort_by(key, false);
  other.insert.value("column", key).new_entry().value(key, 1);
  other.update.set("a", key).set(key, 2).and_filter()->add_null_item(key);
  other.both.add_select_sql()->table("u", nullptr);
  Delete_SQL deletion("d");
  deletion.where(key.c_str(), true);
  assign_without_memory(one.select, other.select);
  assign_without_memory(one.insert, other.insert);
  assign_without_memory(one.update, other.update);
  assign_without_memory(one.both, other.both);
  assign_without_memory(deletion, Delete_SQL("e"));
  assign_without_memory<SQL>({"a", SQL::TYPE_RAW, true}, {key.c_str(), SQL::TYPE_RAW, false});
}

TEST(SQL_Filter_Parser, without_memory_loses_no_condition_unseen) {
  constexpr SQL_Filter_Parser::Filters table[] = {{"k", 1, {nullptr, SQL_Filter_Parser::Filter::TYPE_TEXT, 0, 0}}, {}};
  std::map<std::string, std::string> const request{{"LK_k", key}, {"NN_k", ""}, {"NI_k", key}, {"OR", "k=1&AND=NL_k"}};
  And_Filter_SQL whole;
  SQL_Filter_Parser(&whole, table).parse(request, SQL_Filter_Parser::afresh);
  for (long nth = 1;; ++nth) {
    And_Filter_SQL filter;
    Log_Capture const log;
    heap::Failing_Allocation const no_memory(nth);
    bool thrown = false;
    try {
      SQL_Filter_Parser(&filter, table).parse(request, SQL_Filter_Parser::afresh);
    } catch (std::bad_alloc const&) {
      thrown = true;
    }
    if (!no_memory.failed()) break;
    EXPECT_TRUE(thrown || render(filter) == render(whole)) << nth << ' ' << render(filter);
  }
}

TEST(Factories, without_random_bytes_new_uuids_change_nothing_and_are_reported) {
  SQL statement("x", SQL::TYPE_RAW, true);
  statement.bind_new_uuid(":u").unbind(":u");  // sets up the random source, which must not fail half-way
  Insert_SQL insert("t");
  Log_Capture log;
  Random_Source const nothing(no_random_bytes);
  EXPECT_EQ(render(statement.bind_new_uuid(":u")), "x");
  EXPECT_TRUE(insert.value_new_uuid("u").empty());
  EXPECT_EQ(log.take(), (std::vector<std::string>{"ERROR sql 0: Failed to bind new uuid for ':u'\n",
                                                  "ERROR insert_sql 0: Failed to add new uuid for 'u'\n"}));
}
