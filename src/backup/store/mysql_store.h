#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backup/runtime/secure_memory.h"
#include "backup/store/store.h"
#include "backup/store/store_export.h"

/// A database on a MySQL or MariaDB server, through one connection.
///
/// Its session is set to UTF-8, UTC, commits of their own for statements outside a transaction, and the SQL modes
/// NO_BACKSLASH_ESCAPES, without which a text literal of this library could end early, and STRICT_ALL_TABLES, which
/// refuses a value that is out of its column's range or too long for it, but with OR_IGNORE; rounding to what a column
/// holds stays; EMPTY_STRING_IS_NULL is taken away. The modes are read back: without them there is no store, and a
/// session that loses the first one later runs nothing more.
///
/// A lost connection is an error and stays one: a new connection would not know of the open transaction. No statement
/// has a time limit, and the client library makes the process ignore SIGPIPE.
///
/// MySQL knows no named parameters; BY_NAME the store puts marks in their places, outside of literals, quoted names and
/// comments, so a literal that looks like a name is left alone. At most 65,535 values to a statement. One that is
/// larger than the server's max_allowed_packet costs the connection.
///
/// Integers come back as unsigned where the column is, dates and times as texts, DECIMAL as an integer when it has no
/// decimals and fits 64 bits, else as text, digit by digit. Texts of binary columns are bytes. What the database
/// compares, sorts and lowers it does by the columns' collations; in a LIKE without ESCAPE a backslash escapes also
/// in this mode.
///
/// `run` returns the rows that an UPDATE found, changed or not; of REPLACE each replaced row counts twice; 0 for a
/// statement that returns rows. When a callback stops a query early, the rest of its rows is still read and dropped.
class BACKUP_STORE_API MySQL_Store : public Store {
public:
  /// `url` is "mysql://[user@]host[:port]/[database]", by TCP, or "mysql://[user@]/[database]?socket=path"; percent
  /// escapes are decoded, a password is refused in it. Throws Store_Error when there is no such connection; a server
  /// that says nothing is given up after 10 seconds. The client keeps the password until this store goes.
  explicit MySQL_Store(std::string const& url, Secure_String const& password = Secure_String());
  ~MySQL_Store() override;

  SQL::Database_Type dialect() const override;
  Failure failure(Store_Error const& error) const override;

private:
  struct Connection;

  unsigned long long execute(std::string const& text, Bindings const* bindings,
                             std::vector<Binding_Value> const& values, Row_Callback const& callback,
                             std::vector<std::string>* columns) override;
  bool in_transaction() const override;

  std::unique_ptr<Connection> connection_;
};
