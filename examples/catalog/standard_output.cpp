#include "standard_output.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <stdexcept>

namespace {

bool has_reader_gone() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

Standard_Output::Standard_Output() : broken_pipe_(std::signal(SIGPIPE, SIG_IGN)) {}

void Standard_Output::finish() const {
  if (std::cout.flush()) return;
  if (has_reader_gone()) {
    std::signal(SIGPIPE, broken_pipe_);
    std::raise(SIGPIPE);
  }
  throw std::runtime_error("the output cannot be written");
}

void report_change(std::string const& change) {
  std::cout << change << std::endl;
  if (!std::cout) throw std::runtime_error(change + "; the output cannot be written");
}

bool is_output_terminal() { return isatty(STDOUT_FILENO) != 0; }
