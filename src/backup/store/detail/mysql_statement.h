#pragma once

#include <mysql.h>

#include <memory>

#include "backup/store/detail/mysql_connection.h"
#include "backup/store/detail/statement_cache.h"
#include "backup/store/store.h"

namespace backup {

struct Close_MySQL_Statement {
  void operator()(MYSQL_STMT* statement) const noexcept { mysql_stmt_close(statement); }
};
using MySQL_Statement_Cache = Statement_Cache<std::unique_ptr<MYSQL_STMT, Close_MySQL_Statement>>;

/// `Store::execute` by a prepared statement, from the cache when it has one for the text.
Store::Result run_statement(MySQL_Connection const& connection, MySQL_Statement_Cache& cache,
                            Store::Command const& command);

}  // namespace backup
