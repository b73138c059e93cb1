#pragma once

#include <string>

namespace backup {

/// True for a text that begins with "mysql:" or "mariadb:", in letters of any case.
bool is_mysql_url(std::string const& text);

/// The parts of "mysql://[user@]host[:port]/[database]" or "mysql://[user@][localhost]/[database]?socket=path".
struct MySQL_URL {
  std::string user;      ///< empty: the name of the process's user
  std::string host;      ///< empty with a socket only
  unsigned int port;     ///< 0 when there is none
  std::string database;  ///< may be empty
  std::string socket;    ///< empty: TCP
};

/// "mariadb://" means the same as "mysql://"; letters may have any case. Percent escapes are decoded in each part.
/// Throws std::runtime_error with the reason for any other text, and for a password: others see a URL in lists of
/// processes, logs and messages. So a user name with a colon is refused, escaped or not.
MySQL_URL parse_mysql_url(std::string const& url);

}  // namespace backup
