#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

namespace backup {

/// Pauses between attempts at something that others use too. Pauses are random, so that those who wait do not come back
/// together. The longest one doubles each time, up to 50 ms, so everyone's turn comes soon.
class Backoff {
public:
  void restart() noexcept { longest_ = shortest; }

  void pause() {
    std::uniform_int_distribution<long> length(longest_ / 2, longest_);
    std::this_thread::sleep_for(std::chrono::microseconds(length(random_)));
    longest_ = std::min(2 * longest_, longest);
  }

private:
  static constexpr long shortest = 1'000;  // microseconds
  static constexpr long longest = 50'000;

  long longest_ = shortest;
  std::minstd_rand random_{std::random_device{}()};
};

}  // namespace backup
