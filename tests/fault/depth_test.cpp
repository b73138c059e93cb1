// Deeply nested groups on a stack of 1 MiB: whatever takes stack for each level ends the program.
#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>

#include "bench/depth_steps.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t depth = 100000;  // a sanitizer takes its time; 11 bytes of stack a level are still too many
#else
constexpr std::size_t depth = 1000000;
#endif

void* take_steps(void* /*unused*/) {
  auto const deep = std::make_unique<depth_steps::Deep>(depth);
  for (depth_steps::Step const& step : depth_steps::steps) EXPECT_TRUE(step.run(*deep)) << step.name;
  return nullptr;
}

}  // namespace

TEST(Depth, takes_no_stack) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 1 << 20), 0);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, take_steps, nullptr), 0);
  pthread_join(thread, nullptr);
}
