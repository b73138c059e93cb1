// Several threads hold copies of the same statements. They share only the reference counts of parts.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/insert_sql.h"

namespace {

std::atomic<int> ends{0};

struct Counted_SQL : SQL {
  Counted_SQL() : SQL("x", TYPE_RAW, true) {}
  ~Counted_SQL() override { ++ends; }
};

}  // namespace

TEST(SQL, parts_shared_by_threads_end_once_with_their_last_holder) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> started{false};
    std::vector<std::thread> threads;
    {
      ACE_Intrusive_Auto_Ptr<SQL> const part(new Counted_SQL);
      Insert_SQL insert("t");
      insert.value_i("a", part);
      Delete_SQL filtered("t");
      filtered.and_filter()->add_or_filter()->add_kv_eq_item("a", 1);
      auto const copy_and_drop = [&started, part, insert, filtered] {
        while (!started) std::this_thread::yield();
        for (int i = 0; i < 200; ++i) {
          ACE_Intrusive_Auto_Ptr<SQL> const part_again(part);
          Insert_SQL const insert_again(insert);
          And_Filter_SQL const filter_again(static_cast<And_Filter_SQL const&>(*filtered.filter()));
        }
      };
      for (int i = 0; i < 3; ++i) threads.emplace_back(copy_and_drop);
    }
    EXPECT_EQ(ends, round);
    started = true;
    for (std::thread& thread : threads) thread.join();  // each destroys its copies
    EXPECT_EQ(ends, round + 1);
  }
}
