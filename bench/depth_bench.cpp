// How the time of nested groups grows with their depth: each way through the library at three depths, each ten times
// the one before. A linear step grows by 10. The caches are emptied before each step and memory is kept when it is
// released, or the small depths would be measured in warm caches and the large ones with the system's page faults.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <memory>
#include <vector>

#include "bench/depth_steps.h"

namespace {

constexpr std::size_t depths[] = {10000, 100000, 1000000};
constexpr std::size_t repetitions[] = {30, 30, 15};
constexpr std::size_t step_count = std::size(depth_steps::steps);

void empty_caches() {
  static std::vector<unsigned char> memory(256UL << 20U);  // several times what processors have
  for (std::size_t i = 0; i < memory.size(); i += 64) ++memory[i];
}

// Keeps the best time of each step, in milliseconds. False, reported, when one gives a wrong result.
bool measure(std::size_t depth, double (&best)[step_count]) {
  auto const deep = std::make_unique<depth_steps::Deep>(depth);
  for (std::size_t i = 0; i < step_count; ++i) {
    depth_steps::Step const& step = depth_steps::steps[i];
    empty_caches();
    std::clock_t const start = std::clock();
    bool const right = step.run(*deep);
    best[i] = std::min(best[i], 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    if (right) continue;
    std::fprintf(stderr, "%s at depth %zu: wrong result\n", step.name, depth);
    return false;
  }
  return true;
}

}  // namespace

int main() {
  mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  double times[std::size(depths)][step_count];
  for (std::size_t i = 0; i < std::size(depths); ++i) {
    std::fill_n(times[i], step_count, std::numeric_limits<double>::max());
    for (std::size_t n = 0; n < repetitions[i]; ++n) {
      if (!measure(depths[i], times[i])) return 1;
    }
  }
  std::printf("%-34s %10s %10s %10s %16s\n", "best CPU time in ms, by levels", "10,000", "100,000", "1,000,000",
              "growth");
  for (std::size_t i = 0; i < step_count; ++i) {
    std::printf("%-34s %10.2f %10.2f %10.2f %7.1f %8.1f\n", depth_steps::steps[i].name, times[0][i], times[1][i],
                times[2][i], times[1][i] / times[0][i], times[2][i] / times[1][i]);
  }
  return 0;
}
