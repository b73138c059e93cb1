#include "backup/utils/sql/detail/request_text.h"

#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <charconv>
#include <limits>
#include <system_error>

namespace backup::request_text {

long long read_integer(std::string_view text) {
  char const* const end = text.data() + text.size();
  bool const has_plus = !text.empty() && text[0] == '+';
  char const* const begin = text.data() + (has_plus ? 1 : 0);
  long long number = 0;
  // from_chars accepts a minus, which must not follow a plus.
  bool const second_sign = has_plus && begin != end && *begin == '-';
  std::errc const error = second_sign ? std::errc::invalid_argument : std::from_chars(begin, end, number).ec;
  ACE_OS::last_error(static_cast<int>(error));
  return error == std::errc::result_out_of_range ? std::numeric_limits<long long>::max() : number;
}

bool read_boolean(std::string_view text) { return text != "0"; }

}  // namespace backup::request_text
