#pragma once

#include <memory>
#include <string>

#include "backup/runtime/secure_memory.h"
#include "backup/store/store.h"
#include "backup/store/store_export.h"

namespace backup {

/// A database on a MySQL or MariaDB server, through one connection. The facts about the server were measured on MariaDB
/// 10.11; MySQL itself was not tried.
///
/// The store sets its session to UTF-8, UTC, autocommit, and the SQL modes NO_BACKSLASH_ESCAPES and STRICT_ALL_TABLES,
/// and removes the mode EMPTY_STRING_IS_NULL. Without NO_BACKSLASH_ESCAPES a text literal of this library could end
/// early. The constructor reads the modes back and throws when one is missing. When the session loses
/// NO_BACKSLASH_ESCAPES later, every statement is an error.
///
/// Strict mode refuses a value that is out of its column's range, too long for it, or no date; with OR_IGNORE the
/// server stores another value instead. Strict mode allows a date of zeros. It also rounds numbers to the column's
/// decimals, and drops blanks at the end of a text and the time of day in a DATE.
///
/// After a lost connection every statement is an error: a new connection would not know of the open transaction.
/// Statements have no time limit. The client library makes the process ignore SIGPIPE.
///
/// The protocol has no named parameters: BY_NAME, the store replaces each name by a mark, but leaves literals, quoted
/// names and comments alone. A statement takes at most 65,535 values. A statement larger than the server's
/// max_allowed_packet ends the connection.
///
/// Integers of unsigned columns come back unsigned, dates and times as texts, texts of binary columns as bytes. A
/// DECIMAL comes back as an integer when its column has no decimals and it fits 64 bits, else as the text of its
/// digits. The database compares, sorts and lower-cases texts by their columns' collations; it does not lower-case
/// binary columns. In a LIKE without ESCAPE a backslash escapes on utf8mb4 columns, even in this mode; on latin1 and
/// binary columns it does not.
///
/// For an UPDATE, `run` returns the number of rows found, changed or not. A REPLACE counts each replaced row twice. A
/// statement that returns rows gives 0.
///
/// When a callback stops a query early, or throws, the store reads and drops the other rows. After 10 milliseconds of
/// this it cancels the query on the server (KILL QUERY), through a second connection with the same settings. It cancels
/// only a text that begins with SELECT, because other statements would lose their changes, and not where a proxy or
/// another server answers; then it reads to the end. It always waits for the next row, even a late one.
///
/// Cancelling may leave unread rows unlocked (FOR UPDATE), and functions in the query do not run for them. The
/// transaction goes on, and no other statement is cancelled.
class BACKUP_STORE_API MySQL_Store : public Store {
public:
  /// True for a text that begins with "mysql:" or "mariadb:", in letters of any case.
  static bool is_url(std::string const& text);

  /// `url` is "mysql://[user@]host[:port]/[database]", by TCP, or "mysql://[user@]/[database]?socket=path", or the same
  /// with "mariadb://"; percent escapes are decoded. Throws Store_Error when it cannot connect, after 10 seconds when
  /// the server does not answer, and for a malformed URL or one with a password; the error does not show such a URL.
  /// The store keeps the password until its end.
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
