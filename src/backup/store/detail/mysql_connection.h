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

/// A connection whose session is set as `MySQL_Store` says, and what a second one to the same server needs.
class MySQL_Connection {
public:
  /// Throws Store_Error, which names the URL unless it is one that is refused: that may hold a password.
  MySQL_Connection(std::string const& url, Secure_String const& password);
  MySQL_Connection(MySQL_Connection const&) = delete;
  MySQL_Connection& operator=(MySQL_Connection const&) = delete;
  ~MySQL_Connection();

  MYSQL* get() const { return db_.get(); }
  /// The server's status flags, as its last answer had them.
  unsigned int status() const;
  /// Runs a statement of the store's own.
  MySQL_Result run(std::string const& text) const;

  /// Has the server end the statement that runs here, through a second connection. False when that cannot be done.
  /// After true the caller reads the statement's rows to their end, which may be an error, and calls `settle`.
  bool cancel() const;
  /// After it a cancellation that came too late for its statement hits no other one, and `status` is of now.
  void settle() const;

private:
  MySQL_URL const url_;
  Secure_String password_;
  MySQL_Handle db_;
  std::string server_;  ///< which one it is, for a name may stand for several
  std::string id_;      ///< of this connection; empty when there is a proxy between, which has numbers of its own
};

}  // namespace backup
