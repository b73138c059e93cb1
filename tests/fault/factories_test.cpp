// Every factory that reports a want of memory instead of throwing, with each of its allocations failing in turn.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/union_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "support/heap.h"
#include "support/log_capture.h"
#include "support/random_source.h"
#include "support/render.h"

namespace {

struct Statements {
  Select_SQL select{"t", nullptr};
  Insert_SQL insert{"t"};
  Update_SQL update{"t"};
  Union_SQL both{0};

  std::string rendered() const { return render(select) + render(insert) + render(update) + render(both); }
};

// One factory call on a statement of its kind; null when it reports failure.
struct Factory {
  char const* name;
  char const* report;  // what it logs when it fails, null for nothing
  std::function<void const*(Statements&)> make;
};

std::string const long_text(40, 'k');
std::vector<json_spirit::Value> const values{long_text, 1};
json_spirit::Object const object{{"a", 1}};
Binding_Value const value(long_text);

Factory filter_factory(char const* name, char const* report, std::function<void const*(Filter_SQL&)> const& make) {
  return {name, report, [make](Statements& s) { return make(*s.select.filter()); }};
}

// An adder that returns the filter tells nothing: ask errno, and leave it to the rendered text to disagree.
void const* added(Filter_SQL const& filter, Filter_SQL const& result) {
  EXPECT_EQ(&filter, &result);
  return errno == 0 ? &result : nullptr;
}

std::vector<Factory> factories() {
  std::string const& key = long_text;
  return {
      filter_factory("add_and_filter", nullptr, [](Filter_SQL& f) { return f.add_and_filter(); }),
      filter_factory("add_or_filter", nullptr, [](Filter_SQL& f) { return f.add_or_filter(); }),
      filter_factory("add_item", nullptr, [](Filter_SQL& f) { return f.add_item(Item_SQL::OP_EQ, "l", "r"); }),
      filter_factory("add_sql", nullptr, [](Filter_SQL& f) { return added(f, f.add_sql(long_text.c_str(), false)); }),
      filter_factory("add_sql_ex", nullptr, [](Filter_SQL& f) { return f.add_sql_ex(long_text.c_str(), false); }),
      filter_factory("add_null_item", "WARNING filter_sql 0: Failed to add null item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_null_item(key); }),
      filter_factory("add_not_null_item", "WARNING filter_sql 0: Failed to add not null item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_not_null_item(key); }),
      filter_factory("add_in_item", "WARNING filter_sql 0: Failed to add in item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_in_item(key, values, 0); }),
      filter_factory("add_not_in_item of names", "WARNING filter_sql 0: Failed to add not in item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_not_in_item(key, object); }),
      filter_factory("add_kv_item", "WARNING filter_sql 0: Failed to add item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_kv_eq_item(key, value); }),
      filter_factory("add_key_uuid_item", "WARNING filter_sql 0: Failed to add uuid item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_key_uuid_eq_item(key, key); }),
      filter_factory("add_key_sql_item", "ERROR filter_sql 0: Failed to add sql item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_key_sql_eq_item(key); }),
      filter_factory("add_key_select_sql_in_item", "ERROR filter_sql 0: Failed to add sql item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_key_select_sql_in_item(key); }),
      filter_factory("add_key_union_sql_in_item", "ERROR filter_sql 0: Failed to add sql item '%' to filter.\n",
                     [&](Filter_SQL& f) { return f.add_key_union_sql_in_item(key); }),
      filter_factory("add_val_sql_item", "ERROR filter_sql 0: Failed to add val sql item to filter.\n",
                     [](Filter_SQL& f) { return f.add_val_sql_item(Item_SQL::OP_EQ, 1); }),
      filter_factory("add_substr_matching", nullptr,
                     [&](Filter_SQL& f) { return added(f, f.add_substr_matching(key, long_text)); }),
      {"and_filter", nullptr, [](Statements& s) { return s.select.and_filter(); }},
      {"add_sql_key", nullptr, [](Statements& s) { return s.select.add_sql_key("n"); }},
      {"sql_table", nullptr, [](Statements& s) { return s.select.sql_table("n"); }},
      {"sql_join", nullptr, [](Statements& s) { return s.select.sql_join("n", long_text); }},
      {"value_sql", nullptr, [](Statements& s) { return s.insert.value_sql(long_text); }},
      {"value_select_sql", nullptr, [](Statements& s) { return s.insert.value_select_sql(long_text); }},
      {"values_sql", nullptr, [](Statements& s) { return s.insert.values_sql(); }},
      {"set_sql", nullptr, [](Statements& s) { return s.update.set_sql(long_text); }},
      {"set_select_sql", nullptr, [](Statements& s) { return s.update.set_select_sql(long_text); }},
      {"add_select_sql", nullptr, [](Statements& s) { return s.both.add_select_sql(); }},
  };
}

}  // namespace

TEST(Factories, without_memory_set_errno_return_null_and_change_nothing) {
  for (Factory const& factory : factories()) {
    SCOPED_TRACE(factory.name);
    long failures = 0;
    for (bool made = false; !made; ++failures) {
      ASSERT_LT(failures, 50);
      long const live_before = heap::live_blocks();
      {
        Statements statements;
        statements.select.or_filter()->add_null_item("a");
        statements.insert.value("a", 1);
        std::string const before = statements.rendered();
        Log_Capture log;
        errno = 0;
        void const* result = nullptr;
        bool failed = false;
        {
          heap::Failing_Allocation const no_memory(failures + 1);
          EXPECT_NO_THROW(result = factory.make(statements));
          failed = no_memory.failed();
        }
        made = result != nullptr;
        EXPECT_NE(made, failed);
        if (!made) {
          EXPECT_EQ(errno, ENOMEM);
          EXPECT_EQ(statements.rendered(), before);
          std::string report = factory.report == nullptr ? "" : factory.report;
          if (report.find('%') != std::string::npos) report.replace(report.find('%'), 1, long_text);
          std::vector<std::string> const logged = log.take();
          EXPECT_EQ(logged, report.empty() ? std::vector<std::string>() : std::vector<std::string>{report});
        } else {
          EXPECT_NE(statements.rendered(), before);
        }
      }
      EXPECT_EQ(heap::live_blocks(), live_before);
    }
    EXPECT_GE(failures, 2) << "not one allocation was made to fail";
  }
}

TEST(Factories, without_random_bytes_new_uuids_change_nothing_and_are_reported) {
  SQL statement("x", SQL::TYPE_RAW, true);
  statement.bind_new_uuid(":u").unbind(":u");  // the random source sets itself up, which must not fail half-way
  Insert_SQL insert("t");
  Log_Capture log;
  Random_Source const nothing(no_random_bytes);
  EXPECT_EQ(render(statement.bind_new_uuid(":u")), "x");
  EXPECT_TRUE(insert.value_new_uuid("u").empty());
  EXPECT_EQ(log.take(), (std::vector<std::string>{"ERROR sql 0: Failed to bind new uuid for ':u'\n",
                                                  "ERROR insert_sql 0: Failed to add new uuid for 'u'\n"}));
}
