#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <iostream>

#include "text.h"

namespace {

constexpr std::size_t bar_width = 20;
constexpr std::size_t block_width = 4;

std::size_t terminal_columns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// A block that moves to and fro between the brackets, once a second.
std::string bar(double seconds) {
  constexpr std::size_t ways = bar_width - block_width;
  std::size_t const step = static_cast<std::size_t>(seconds * 2 * ways) % (2 * ways);
  std::string text = '[' + std::string(bar_width, ' ') + ']';
  return text.replace(1 + (step <= ways ? step : 2 * ways - step), block_width, block_width, '=');
}

}  // namespace

Progress::Progress()
    : terminal_(isatty(STDERR_FILENO) != 0),
      interval_(terminal_ ? std::chrono::milliseconds(100) : std::chrono::milliseconds(3000)),
      start_(Clock::now()),
      next_(start_ + interval_) {}

Progress::~Progress() { wipe(); }

void Progress::update(Index_Totals const& totals) {
  Clock::time_point const now = Clock::now();
  if (now < next_) return;
  next_ = now + interval_;
  double const seconds = std::chrono::duration<double>(now - start_).count();
  auto const rate = static_cast<unsigned long long>(static_cast<double>(totals.files) / seconds);
  std::string const counts = grouped(totals.files) + " files, " + grouped(rate) + " files/s";
  if (terminal_) {
    draw(counts, seconds);
  } else {
    std::cerr << "catalog: " << counts << '\n';
  }
}

void Progress::note(std::string const& line) {
  wipe();
  std::cerr << line << '\n';
}

void Progress::wipe() {
  if (drawn_) std::cerr << "\r\x1B[K" << std::flush;
  drawn_ = false;
}

// A line as wide as the terminal would scroll it and could not be wiped.
void Progress::draw(std::string const& counts, double seconds) {
  wipe();
  std::cerr << (bar(seconds) + ' ' + counts).substr(0, terminal_columns() - 1) << std::flush;
  drawn_ = true;
}
