#pragma once

#include <chrono>
#include <string>

/// How far an indexing has come.
struct Index_Totals {
  unsigned long long files = 0;
  unsigned long long left_out = 0;
};

/// Shows progress on the standard error stream: a bar on a terminal, a line every few seconds elsewhere. The rest is
/// unknown, so the bar only moves.
class Progress {
public:
  Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  /// May be called for every file: most calls only look at the clock.
  void update(Index_Totals const& totals);
  /// Writes a line, above the bar.
  void note(std::string const& line);
  /// Takes the bar off the terminal, for other output; so does the destructor.
  void wipe();

private:
  using Clock = std::chrono::steady_clock;

  void draw(std::string const& counts, double seconds);

  bool const terminal_;
  Clock::duration const interval_;
  Clock::time_point const start_;
  Clock::time_point next_;
  bool drawn_ = false;
};
