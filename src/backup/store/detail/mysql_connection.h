#pragma once

#include <mysql.h>

#include <memory>
#include <string>

#include "backup/runtime/secure_memory.h"
#include "backup/store/detail/mysql_url.h"

namespace backup {

struct Close_MySQL {
  void operator()(MYSQL* db) const noexcept { mysql_close(db); }
};
struct Free_MySQL_Result {
  void operator()(MYSQL_RES* result) const noexcept { mysql_free_result(result); }
};
using MySQL_Handle = std::unique_ptr<MYSQL, Close_MySQL>;
using MySQL_Result = std::unique_ptr<MYSQL_RES, Free_MySQL_Result>;

/// A connection with the session settings of `MySQL_Store`, and what a second one to the same server needs.
class MySQL_Connection {
public:
  /// Throws Store_Error. It names the URL, except a refused one, which may hold a password.
  MySQL_Connection(std::string const& url, Secure_String const& password);
  MySQL_Connection(MySQL_Connection const&) = delete;
  MySQL_Connection& operator=(MySQL_Connection const&) = delete;
  ~MySQL_Connection();

  MYSQL* get() const { return db_.get(); }
  /// The server's status flags, from its last answer.
  unsigned int status() const;
  /// Runs one of the store's own statements.
  MySQL_Result run(std::string const& text) const;

  /// Cancels the statement that runs here, through a second connection. False when that cannot be done. After true the
  /// caller reads the statement's rows to their end, which may be an error, and calls `settle`.
  bool cancel() const;
  /// Afterwards a late cancellation hits no other statement, and `status` is current.
  void settle() const;

private:
  MySQL_URL const url_;
  Secure_String password_;
  MySQL_Handle db_;
  std::string server_;  ///< identifies the server: one name may stand for several
  std::string id_;      ///< the connection's number; empty behind a proxy, which has its own numbers
};

}  // namespace backup
