#pragma once

#include <string>

/// The parts of "mysql://[user@]host[:port]/[database]" or "mysql://[user@][localhost]/[database]?socket=path".
struct MySQL_URL {
  std::string user;      ///< empty: the name of the process's user
  std::string host;      ///< empty with a socket only
  unsigned int port;     ///< 0 when there is none
  std::string database;  ///< may be empty
  std::string socket;    ///< empty: TCP
};

/// Percent escapes are decoded in each part. Throws std::runtime_error with the reason for any other text, also when it
/// holds a password: a URL is seen by others, in lists of processes, logs and messages.
MySQL_URL parse_mysql_url(std::string const& url);
