#pragma once

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

/// Records what is logged while it lives, instead of standard error: "PRIORITY file op_status: text", the line number
/// in the text replaced by N and a call stack by STACK.
class Log_Capture : private ACE_Log_Msg_Callback {
public:
  explicit Log_Capture(bool debug = false)
      : log_(ACE_Log_Msg::instance()), debug_(ACE::debug()), flags_(log_->flags()) {
    ACE::debug(debug);
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
  std::vector<std::string> take() { return std::exchange(lines_, {}); }

private:
  void log(ACE_Log_Record& record) override {
    std::string text = record.msg_data();
    text = std::regex_replace(text, std::regex("(src/backup/[a-z0-9_/]+):[0-9]+"), "$1:N");
    std::smatch last_words;
    if (std::regex_search(text, last_words, std::regex("is (NULL|empty|NULL or \"\"):\n"))) {
      // A stack follows: it must be there, and what it says is the machine's.
      auto const stack = static_cast<std::size_t>(last_words.position() + last_words.length());
      text.replace(stack, std::string::npos, text.size() > stack + 1 ? "STACK" : "");
    }
    std::string file = log_->file() != nullptr ? log_->file() : "";
    file.erase(0, file.rfind('/') + 1);
    std::string const priority =
        ACE_Log_Record::priority_name(static_cast<ACE_Log_Priority>(record.type()));  // "LM_"...
    lines_.push_back(priority.substr(3) + ' ' + file + ' ' + std::to_string(log_->op_status()) + ": " + text);
  }

  ACE_Log_Msg* log_;
  bool debug_;
  unsigned long flags_;
  std::vector<std::string> lines_;
};
