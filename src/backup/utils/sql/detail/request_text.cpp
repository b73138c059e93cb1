#include "backup/utils/sql/detail/request_text.h"

#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_errno.h>

#include <boost/tokenizer.hpp>
#include <cerrno>
#include <charconv>
#include <limits>

namespace request_text {

long long read_integer(std::string const& text) {
  char const* const end = text.data() + text.size();
  bool const has_plus = !text.empty() && text[0] == '+';
  char const* const begin = text.data() + (has_plus ? 1 : 0);
  long long number = 0;
  // from_chars reads a minus itself; after a plus there must be none.
  bool const second_sign = has_plus && begin != end && *begin == '-';
  std::errc const error = second_sign ? std::errc::invalid_argument : std::from_chars(begin, end, number).ec;
  ACE_OS::last_error(static_cast<int>(error));
  return error == std::errc::result_out_of_range ? std::numeric_limits<long long>::max() : number;
}

bool read_boolean(std::string const& text) { return text != "0"; }

std::vector<std::string> read_list(std::string const& text) {
  using Separator = boost::char_separator<char>;
  boost::tokenizer<Separator> const pieces(text, Separator(","));
  return std::vector<std::string>(pieces.begin(), pieces.end());
}

}  // namespace request_text
