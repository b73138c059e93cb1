#pragma once

#include <ace/Log_Priority.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

#include "backup/utils/sql/sql_text.h"

/// The one way into the log.
namespace sql_log {

/// Where a report comes from: the source file's constant and the line of the call.
struct Source {
  char const* file;
  int line;
  // NOLINTNEXTLINE(google-explicit-constructor): made in the caller's braces, so that `line` is the caller's
  Source(char const* path, int at = __builtin_LINE()) : file(path), line(at) {}
};

/// The argument of one %s or %d. A text is kept by address and ends at its first zero byte.
using Argument = std::variant<std::string_view, int>;

/// `report` with its arguments in a list.
void write_record(Source source, ACE_Log_Priority priority, int op_status, char const* format,
                  std::initializer_list<Argument> arguments);

/// Logs one record. `format` takes %s and %d for the arguments, and like ACE %N for the source file, %l for the line
/// and %? for the call stack. When the record is too small, texts and then the stack are cut and end in "...".
/// `op_status` is -1 for violated preconditions, otherwise 0. errno and ACE's last error do not change.
///
/// Needs no memory; ACE and the program's callbacks may need some to write a record. Only what a callback itself
/// reports while there is no memory is lost.
template <class... Arguments>
void report(Source source, ACE_Log_Priority priority, int op_status, char const* format,
            Arguments const&... arguments) {
  write_record(source, priority, op_status, format, {Argument(arguments)...});
}

/// A violated precondition.
template <class... Arguments>
void unexpected(Source source, char const* format, Arguments const&... arguments) {
  report(source, LM_EMERGENCY, -1, format, arguments...);
}

/// True for a text. A null pointer or an empty text is logged as argument `name` and gives false.
inline bool check_argument(Source source, char const* text, char const* name) {
  if (backup::is_set(text)) return true;
  unexpected(source, "Unexpected error in %N:%l, %s is NULL or \"\":\n%?\n", name);
  return false;
}

}  // namespace sql_log
