#pragma once

#include <ace/Log_Msg.h>

#include <cctype>
#include <cstdint>
#include <iostream>
#include <string>

#include "backup/utils/sql/binding_value.h"

/// Every target defines this. Runs one input, and ends the process when the library fails a check.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

inline void require(bool holds, char const* claim) {
  if (holds) return;
  std::cerr << "does not hold: " << claim << '\n';
  std::abort();
}

inline bool is_name_character(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

/// `words` stand between single blanks.
inline bool is_one_of(std::string const& word, std::string const& words) {
  return word.find(' ') == std::string::npos && words.find(' ' + word + ' ') != std::string::npos;
}

inline bool operator==(Binding_Value const& a, Binding_Value const& b) {
  return a.type() == b.type() && a.val() == b.val();
}

/// Log records are made but not written. Emergencies are not made: their call stacks are slow.
inline bool const log_is_quiet = [] {
  ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::instance()->flags());
  ACE_Log_Msg::instance()->priority_mask(LM_DEBUG | LM_WARNING | LM_ERROR | LM_CRITICAL, ACE_Log_Msg::PROCESS);
  return true;
}();
