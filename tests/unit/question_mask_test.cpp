#include "backup/utils/sql/question_mask_sql_converter.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

#include "support/log_capture.h"
#include "support/render.h"

TEST(Question_Mask_SQL_Converter, rewrites_bound_names_in_text_order) {
  Bindings const bindings{{":1", 1},   {":10", 10}, {":3", 3},   {":05", "0"},
                          {"?5", "?"}, {":a", "A"}, {":v", "V"}, {":user_id", 7}};
  std::tuple<char const*, std::string, char const*> const cases[] = {
      {"an unbound name stays", "SELECT :x, :v", "SELECT :x, ? [\"V\"]"},
      {"a colon before a blank stays", "SELECT : v:v", "SELECT : v? [\"V\"]"},
      {"a name ends at the first other character", "SELECT:a-b", "SELECT?-b [\"A\"]"},
      {"a byte above 127 ends a name", "SELECT :a\xc3\xa9", "SELECT ?\xc3\xa9 [\"A\"]"},
      {"the longest name counts", "SELECT :10,:1,:user_id", "SELECT ?,?,? [10,1,7]"},
      {"numbers are names like others", "SELECT :3,:05,:5,:03,:999999999999",
       "SELECT ?,?,:5,:03,:999999999999 [3,\"0\"]"},
      {"a double colon before a bound name", "SELECT x::v", "SELECT x:? [\"V\"]"},
      {"the tail before a final colon doubles", "a = :v AND b:", "a = ? AND b AND b: [\"V\"]"},
      {"a whole text before a final colon doubles", "SELECT 1:", "SELECT 1SELECT 1: []"},
      {"nothing to double after a colon", "SELECT ::", "SELECT :: []"},
  };
  for (auto [behaviour, sql, converted] : cases) {
    SCOPED_TRACE(behaviour);
    std::vector<Binding_Value> values;
    EXPECT_TRUE(Question_Mask_SQL_Converter().convert(sql, bindings, values));
    EXPECT_EQ(with_values(sql, values), converted);
  }
}

TEST(Question_Mask_SQL_Converter, reports_an_empty_text_and_throws_on_more_bindings_than_characters) {
  Log_Capture log;
  std::string sql;
  std::vector<Binding_Value> values{1};
  EXPECT_FALSE(Question_Mask_SQL_Converter().convert(sql, {}, values));
  EXPECT_EQ(values.size(), 1U);
  EXPECT_EQ(log.take(), std::vector<std::string>{"EMERGENCY question_mask_sql_converter -1: Unexpected error in "
                                                 "src/backup/utils/sql/question_mask_sql_converter:N, sql is empty:\n"
                                                 "STACK"});
  sql = "x=1";
  Bindings const four{{":1", 1}, {":2", 2}, {":3", 3}, {":4", 4}};
  EXPECT_THROW(Question_Mask_SQL_Converter().convert(sql, four, values), std::length_error);
  EXPECT_EQ(sql, "x=1");
}
