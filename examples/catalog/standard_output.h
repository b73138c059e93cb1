#pragma once

#include <string>

/// The standard output of a command. From its making on, a reader that has gone is an error of the stream and no
/// signal, so that what is under way can be ended in order. One in a process.
class Standard_Output {
public:
  Standard_Output();
  Standard_Output(Standard_Output const&) = delete;
  Standard_Output& operator=(Standard_Output const&) = delete;
  ~Standard_Output() = default;

  /// Writes what is left. Throws std::runtime_error when that, or anything before, could not be written; when it is the
  /// reader that has gone, the process ends by SIGPIPE instead, unless that is ignored, as other programs do.
  void finish() const;

private:
  void (*const broken_pipe_)(int);
};

/// Writes a line that tells what was changed. Throws std::runtime_error, which tells it too, when it cannot be written.
void report_change(std::string const& change);

/// True for a terminal, which control characters change.
bool is_output_terminal();
