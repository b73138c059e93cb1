#pragma once

#include <memory>
#include <string>

#include "backup/runtime/secure_memory.h"
#include "backup/store/store.h"
#include "backup/store/store_export.h"

namespace backup {

/// A database on a MySQL or MariaDB server, through one connection. What is said of the server was measured on MariaDB
/// 10.11; MySQL itself was not tried.
///
/// Its session is set to UTF-8, UTC, commits of their own for statements outside a transaction, and the SQL modes
/// NO_BACKSLASH_ESCAPES, without which a text literal of this library could end early, and STRICT_ALL_TABLES.
/// EMPTY_STRING_IS_NULL is taken away. The modes are read back: without them there is no store, and a session that
/// loses the first one later runs nothing more.
///
/// Strict mode refuses a value that is out of its column's range, too long for it, or no date; with OR_IGNORE it
/// stores another one in its place. It lets through what is rounded to a column's decimals, loses blanks at its end, or
/// loses the time of day in a DATE, and a date of zeros.
///
/// A lost connection is an error and stays one: a new connection would not know of the open transaction. No statement
/// has a time limit, and the client library makes the process ignore SIGPIPE.
///
/// The protocol knows no named parameters; BY_NAME the store puts marks in their places, outside of literals, quoted
/// names and comments, so a literal that looks like a name is left alone. A statement takes at most 65,535 values; one
/// larger than the server's max_allowed_packet costs the connection.
///
/// Integers come back as unsigned where the column is, dates and times as texts, DECIMAL as an integer when it has no
/// decimals and fits 64 bits, else as text, digit by digit. Texts of binary columns are bytes. The database compares,
/// sorts and lowers texts by the columns' collations; binary columns it does not lower. In a LIKE without ESCAPE a
/// backslash escapes on columns of utf8mb4 in this mode too; on columns of latin1 and binary ones it does not.
///
/// `run` returns the rows that an UPDATE found, changed or not; of REPLACE each replaced row counts twice; 0 for a
/// statement that returns rows.
///
/// When a callback stops a query early, or throws, what comes of its rows within 10 milliseconds is read and dropped.
/// Is there more, a text that begins with SELECT is cancelled on the server (KILL QUERY), through a second connection
/// with the same settings, which is refused where a proxy or another server answers; rows that were not read may then
/// stay unlocked (FOR UPDATE), and what a function called for them would have changed stays as it was. The transaction
/// goes on, and no other statement is hit. Where that cannot be done, and of other statements, whose changes would be
/// taken back, the rest is read to its end. A row that is long in coming is waited for.
class BACKUP_STORE_API MySQL_Store : public Store {
public:
  /// True for a text that begins with "mysql:" or "mariadb:", in letters of any case.
  static bool is_url(std::string const& text);

  /// `url` is "mysql://[user@]host[:port]/[database]", by TCP, or "mysql://[user@]/[database]?socket=path", or the same
  /// with "mariadb://"; percent escapes are decoded. Throws Store_Error when there is no such connection, and for a
  /// password in `url`; a URL that is refused, which may hold one, is not in the error. A server that says nothing is
  /// given up after 10 seconds. The password is kept until this store goes.
  explicit MySQL_Store(std::string const& url, Secure_String const& password = Secure_String());
  ~MySQL_Store() override;

  SQL::Database_Type dialect() const override;
  Failure failure(Store_Error const& error) const override;

private:
  struct Connection;

  Result execute(Command const& command) override;
  bool in_transaction() const override;

  std::unique_ptr<Connection> connection_;
};

}  // namespace backup
