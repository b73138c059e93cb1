#include "log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

Log_Capture::Log_Capture() : log_(*ACE_Log_Msg::instance()), flags_(log_.flags()) {
  log_.msg_callback(this);
  log_.clr_flags(ACE_Log_Msg::STDERR);
  log_.set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Log_Capture::~Log_Capture() {
  log_.clr_flags(ACE_Log_Msg::MSG_CALLBACK);
  log_.set_flags(flags_);
  log_.msg_callback(nullptr);
}

void Log_Capture::log(ACE_Log_Record& record) { text_ += record.msg_data(); }
