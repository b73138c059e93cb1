// Deeply nested groups on a stack of 1 MiB: code that takes stack for each level ends the program.
#include <gtest/gtest.h>

#include <memory>

#include "bench/depth_steps.h"
#include "support/small_stack.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t depth = 100000;  // sanitizers are slow; 11 bytes of stack for a level are too many
#else
constexpr std::size_t depth = 1000000;
#endif

}  // namespace

TEST(Depth, takes_no_stack) {
  on_small_stack([] {
    auto const deep = std::make_unique<depth_steps::Deep>(depth);
    for (depth_steps::Step const& step : depth_steps::steps) EXPECT_TRUE(step.run(*deep)) << step.name;
  });
}
