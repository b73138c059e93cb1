#pragma once

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/OS_Errno.h>

#include <string>

#include "backup/utils/sql/detail/sql_text.h"

/// The one way into the log.
namespace sql_log {

/// Where a report comes from: the source file's constant and the line of the call.
struct Source {
  char const* file;
  int line;
  // NOLINTNEXTLINE(google-explicit-constructor): made in the call's braces, where the line is the call's
  Source(char const* path, int at = __builtin_LINE()) : file(path), line(at) {}
};

/// Logs one record. `op_status` is -1 for violated preconditions, 0 otherwise; errno and ACE's last error stay as they
/// are.
template <class... Arguments>
void report(Source source, ACE_Log_Priority priority, int op_status, char const* format, Arguments... arguments) {
  ACE_Errno_Guard const keep_errno(errno);
  int const error = ACE_Log_Msg::last_error_adapter();
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->conditional_set(source.file, source.line, op_status, error);
  log->log(priority, format, arguments...);
}

/// The log cuts a record at 4 KiB and with it the end of the line: what a text may take of it, and a key beside a text.
constexpr std::size_t record_size = 3900;
constexpr std::size_t key_size = 900;

/// `text`, shortened where it is longer.
inline std::string fitting(std::string const& text, std::size_t longest = record_size) {
  return text.size() <= longest ? text : text.substr(0, longest) + "...";
}

/// A violated precondition, with the call stack.
template <class... Arguments>
void unexpected(Source source, char const* format, Arguments... arguments) {
  report(source, LM_EMERGENCY, -1, format, arguments...);
}

/// True for a text; a null pointer or the empty text is reported as argument `name` and gives false.
inline bool check_argument(Source source, char const* text, char const* name) {
  if (is_set(text)) return true;
  unexpected(source, "Unexpected error in %N:%l, %s is NULL or \"\":\n%?\n", name);
  return false;
}

}  // namespace sql_log
