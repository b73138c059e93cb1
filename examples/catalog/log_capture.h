#pragma once

#include <ace/Log_Msg_Callback.h>

#include <string>

class ACE_Log_Msg;

/// While it lives, it gets this thread's log instead of the standard error stream. Captures do not nest.
class Log_Capture : private ACE_Log_Msg_Callback {
public:
  Log_Capture();
  Log_Capture(Log_Capture const&) = delete;
  Log_Capture& operator=(Log_Capture const&) = delete;
  ~Log_Capture() override;

  /// All records so far, a line each.
  std::string const& text() const { return text_; }

private:
  void log(ACE_Log_Record& record) override;

  ACE_Log_Msg& log_;
  unsigned long const flags_;
  std::string text_;
};
