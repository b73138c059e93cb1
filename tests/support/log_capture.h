#pragma once

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

/// Records what is logged while it lives, instead of standard error: "PRIORITY file op_status: text", the line number
/// in the text replaced by N and a call stack by STACK.
class Log_Capture : private ACE_Log_Msg_Callback {
public:
  explicit Log_Capture(bool debug = false) : log_(ACE_Log_Msg::instance()), debug_(ACE::debug()) {
    ACE::debug(debug);
    flags_ = log_->flags();
    log_->clr_flags(flags_);
    log_->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    log_->msg_callback(this);
  }
  Log_Capture(Log_Capture const&) = delete;
  Log_Capture& operator=(Log_Capture const&) = delete;
  ~Log_Capture() override {
    log_->msg_callback(nullptr);
    log_->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    log_->set_flags(flags_);
    ACE::debug(debug_);
  }

  /// What was logged since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> lines;
    lines.swap(lines_);
    return lines;
  }

private:
  void log(ACE_Log_Record& record) override {
    std::string text = record.msg_data();
    text = std::regex_replace(text, std::regex("(src/backup/[a-z0-9_/]+):[0-9]+"), "$1:N");
    for (char const* const last_words : {"is NULL or \"\":\n", "is empty:\n", "is NULL:\n"}) {
      std::size_t const found = text.find(last_words);
      if (found == std::string::npos) continue;
      // A stack follows: it must be there, and what it says is the machine's.
      std::size_t const stack = found + std::strlen(last_words);
      text.replace(stack, std::string::npos, text.size() > stack + 1 ? "STACK" : "");
    }
    std::string file = log_->file() != nullptr ? log_->file() : "";
    file.erase(0, file.rfind('/') + 1);
    lines_.push_back(priority_name(record.type()) + ' ' + file + ' ' + std::to_string(log_->op_status()) + ": " + text);
  }

  static std::string priority_name(ACE_UINT32 priority) {
    switch (priority) {
      case LM_EMERGENCY: return "EMERGENCY";
      case LM_CRITICAL: return "CRITICAL";
      case LM_ERROR: return "ERROR";
      case LM_WARNING: return "WARNING";
      case LM_DEBUG: return "DEBUG";
      default: return "OTHER";
    }
  }

  ACE_Log_Msg* log_;
  bool debug_;
  unsigned long flags_ = 0;
  std::vector<std::string> lines_;
};
