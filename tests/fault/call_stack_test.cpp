// Reports with a call stack, made from far down a stack of 1 MiB, by functions with long names.
#include <gtest/gtest.h>

#include <string>

#include "backup/runtime/call_stack.h"
#include "backup/utils/sql/filter_sql.h"
#include "support/log_capture.h"
#include "support/small_stack.h"

struct Report {
  std::string logged;
  std::string stack;
};

namespace {

void make(Report& report) {
  Log_Capture log;
  And_Filter_SQL().add_item(Item_SQL::OP_EQ, nullptr, "x");
  for (std::string const& record : log.take()) report.logged += record;
  char stack[1000];
  report.stack.assign(stack, backup::write_call_stack(stack, sizeof stack));
}

}  // namespace

// Exported, so that its name is known. A tail call would have no frame of its own.
[[gnu::noinline, gnu::visibility("default")]] void
goes_down_by_one_call_and_has_a_name_so_long_that_few_of_its_calls_fill_a_log_record(int calls, Report& report) {
  if (calls == 0) {
    make(report);
  } else {
    goes_down_by_one_call_and_has_a_name_so_long_that_few_of_its_calls_fill_a_log_record(calls - 1, report);
  }
  asm volatile("" ::: "memory");
}

TEST(Call_stack, is_reported_from_any_depth) {
  for (int const calls : {5, 80, 500, 20000}) {
    SCOPED_TRACE(calls);
    Report report;
    on_small_stack(
        [&] { goes_down_by_one_call_and_has_a_name_so_long_that_few_of_its_calls_fill_a_log_record(calls, report); });
    EXPECT_EQ(report.logged,
              "EMERGENCY filter_sql -1: Unexpected error in src/backup/utils/sql/filter_sql:N, left is NULL or \"\":\n"
              "STACK");
    EXPECT_NE(report.stack.find("so_long_that_few_of_its_calls"), std::string::npos) << report.stack;
    EXPECT_EQ(report.stack.size(), 1000U);
    EXPECT_EQ(report.stack.substr(996), "...\n");
  }
}
