#pragma once

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

namespace backup {

/// Pauses between attempts at what others use too: each up to twice as long as the one before, and at random, so that
/// those who wait do not come back together. They stay short enough for everyone's turn to come soon.
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
