#pragma once

#include <ace/ACE.h>
#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>

#include <cerrno>
#include <cstring>
#include <regex>
#include <string>
#include <utility>
#include <vector>

/// While it lives, keeps log records that would go to standard error, as "PRIORITY file op_status: text". In the text N
/// replaces the line number and STACK the call stack.
class Log_Capture : private ACE_Log_Msg_Callback {
public:
  explicit Log_Capture(bool debug = false)
      : log_(ACE_Log_Msg::instance()), debug_(ACE::debug()), flags_(log_->flags()) {
    ACE::debug(debug);
    log_->clr_flags(flags_);
    log_->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    log_->msg_callback(this);
    records_.reserve(room);
  }
  Log_Capture(Log_Capture const&) = delete;
  Log_Capture& operator=(Log_Capture const&) = delete;
  ~Log_Capture() override {
    log_->msg_callback(nullptr);
    log_->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    log_->set_flags(flags_);
    ACE::debug(debug_);
  }

  /// The records since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> lines;
    for (Record const& record : std::exchange(records_, {})) lines.push_back(line(record));
    records_.reserve(room);
    return lines;
  }

private:
  static constexpr std::size_t room = 64;

  struct Record {
    ACE_Log_Priority priority;
    int op_status;
    char file[64];
    char text[ACE_Log_Record::MAXLOGMSGLEN];
  };

  // Takes no memory, so that it sees reports of missing memory.
  void log(ACE_Log_Record& logged) override {
    Record& record = records_.emplace_back();
    record.priority = static_cast<ACE_Log_Priority>(logged.type());
    record.op_status = log_->op_status();
    char const* const file = log_->file() != nullptr ? std::strrchr(log_->file(), '/') : nullptr;
    std::strncpy(record.file, file != nullptr ? file + 1 : "", sizeof record.file - 1);
    std::strncpy(record.text, logged.msg_data(), sizeof record.text - 1);
    errno = EDOM;  // as a callback may; the reporting code must not notice
  }

  static std::string line(Record const& record) {
    std::string text = std::regex_replace(record.text, std::regex("(src/backup/[a-z0-9_/]+):[0-9]+"), "$1:N");
    std::smatch last_words;
    if (std::regex_search(text, last_words, std::regex("is (NULL|empty|NULL or \"\"):\n"))) {
      // A call stack must follow; its content depends on the machine.
      auto const stack = static_cast<std::size_t>(last_words.position() + last_words.length());
      text.replace(stack, std::string::npos, text.size() > stack + 1 ? "STACK" : "");
    }
    return ACE_Log_Record::priority_name(record.priority) + 3 /* after "LM_" */ + (' ' + std::string(record.file)) +
           ' ' + std::to_string(record.op_status) + ": " + text;
  }

  ACE_Log_Msg* log_;
  bool debug_;
  unsigned long flags_;
  std::vector<Record> records_;
};
