#pragma once

#include <string>

/// The standard output of a command. Once it is made, a reader that has gone gives an error of the stream instead of a
/// signal, so the command can end in order. One per process.
class Standard_Output {
public:
  Standard_Output();
  Standard_Output(Standard_Output const&) = delete;
  Standard_Output& operator=(Standard_Output const&) = delete;
  ~Standard_Output() = default;

  /// Writes the rest. Throws std::runtime_error when any of the output could not be written. When its reader has gone,
  /// the process ends by SIGPIPE instead, as other programs do, unless that signal is ignored.
  void finish() const;

private:
  void (*const broken_pipe_)(int);
};

/// Writes `change` as a line. When it cannot be written, throws std::runtime_error with the same text in it.
void report_change(std::string const& change);

/// True for a terminal, which obeys control characters.
bool is_output_terminal();
