#include "backup/store/mysql_store.h"

#include <mysql.h>

#include "backup/store/detail/mysql_connection.h"
#include "backup/store/detail/mysql_error.h"
#include "backup/store/detail/mysql_statement.h"
#include "backup/store/detail/mysql_url.h"

namespace backup {

namespace {

// True for the texts that begin and end a transaction, which not every server prepares.
bool is_control(std::string const& text) {
  return text == "START TRANSACTION" || text == "COMMIT" || text == "ROLLBACK";
}

}  // namespace

struct MySQL_Store::Connection {
  Connection(std::string const& url, Secure_String const& password) : db(url, password) {}

  MySQL_Connection db;
  MySQL_Statement_Cache cache;  // destroyed before the database
};

MySQL_Store::MySQL_Store(std::string const& url, Secure_String const& password)
    : connection_(std::make_unique<Connection>(url, password)) {}

MySQL_Store::~MySQL_Store() = default;

bool MySQL_Store::is_url(std::string const& text) { return is_mysql_url(text); }

SQL::Database_Type MySQL_Store::dialect() const { return SQL::DB_MYSQL; }

Store::Failure MySQL_Store::failure(Store_Error const& error) const { return mysql_failure(error.code()); }

bool MySQL_Store::in_transaction() const { return (connection_->db.status() & SERVER_STATUS_IN_TRANS) != 0; }

Store::Result MySQL_Store::execute(Command const& command) {
  MySQL_Connection const& db = connection_->db;
  if ((db.status() & SERVER_STATUS_NO_BACKSLASH_ESCAPES) == 0) {
    throw Store_Error("the session has lost the SQL mode NO_BACKSLASH_ESCAPES", 0, command.text);
  }
  try {
    if (!is_control(command.text)) return run_statement(db, connection_->cache, command);
    db.run(command.text);
    return {};
  } catch (...) {
    // Rows left unread may have ended the transaction. An error does not tell; the answer to another statement does.
    if (in_transaction()) db.settle();
    throw;
  }
}

}  // namespace backup
