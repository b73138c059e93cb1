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
  // NOLINTNEXTLINE(google-explicit-constructor): made in the call's braces, where the line is the call's
  Source(char const* path, int at = __builtin_LINE()) : file(path), line(at) {}
};

/// What stands for one %s or %d of a format. A text is kept by address and ends at its first zero byte.
using Argument = std::variant<std::string_view, int>;

/// `report` with its arguments in a list.
void write_record(Source source, ACE_Log_Priority priority, int op_status, char const* format,
                  std::initializer_list<Argument> arguments);

/// Logs one record. `format` knows %s and %d for the arguments, and as ACE does %N for the source file, %l for the line
/// and %? for the call stack. Texts, then the stack, are cut where the record has no room for them, and only there, and
/// end in "..." then. `op_status` is -1 for violated preconditions, 0 otherwise. errno and ACE's last error stay as
/// they are.
///
/// Needs no memory. What ACE and the program's callbacks need for writing a record is theirs. Lost is only what a
/// callback reports in its turn while there is no memory.
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

/// True for a text; a null pointer or the empty text is reported as argument `name` and gives false.
inline bool check_argument(Source source, char const* text, char const* name) {
  if (backup::is_set(text)) return true;
  unexpected(source, "Unexpected error in %N:%l, %s is NULL or \"\":\n%?\n", name);
  return false;
}

}  // namespace sql_log
