#include "backup/store/detail/mysql_error.h"

#include <errmsg.h>
#include <mysql.h>
#include <mysqld_error.h>

#include <new>

#include "backup/store/detail/driver.h"

namespace backup {

void fail_mysql(std::string const& message, unsigned int code, std::string const& text) {
  if (code == CR_OUT_OF_MEMORY) throw std::bad_alloc();
  int const number = static_cast<int>(code);
  throw Store_Error(with_code(message, "MySQL", number), number, text);
}

// The client's messages, and those listed here, quote only names; others quote values ("Duplicate entry 'x'").
std::string mysql_message_without_values(std::string const& message, unsigned int code) {
  switch (code) {
    case ER_DUP_ENTRY: return "duplicate entry for a unique key";
    case ER_BAD_NULL_ERROR:
    case ER_CON_COUNT_ERROR:
    case ER_CONNECTION_KILLED:
    case ER_CONSTRAINT_FAILED:
    case ER_DATA_TOO_LONG:
    case ER_LOCK_DEADLOCK:
    case ER_LOCK_WAIT_TIMEOUT:
    case ER_NET_PACKET_TOO_LARGE:
    case ER_NO_DEFAULT_FOR_FIELD:
    case ER_NO_REFERENCED_ROW_2:
    case ER_OPTION_PREVENTS_STATEMENT:
    case ER_QUERY_INTERRUPTED:
    case ER_RECORD_FILE_FULL:
    case ER_ROW_IS_REFERENCED_2:
    case ER_SERVER_SHUTDOWN:
    case ER_STACK_OVERRUN_NEED_MORE:
    case ER_CANT_EXECUTE_IN_READ_ONLY_TRANSACTION:
    case ER_WARN_DATA_OUT_OF_RANGE: return message;
    default: return code >= CR_MIN_ERROR && code <= CR_MYSQL_LAST_ERROR ? message : "a value or its use is refused";
  }
}

Store::Failure mysql_failure(int code) {
  switch (code) {
    case ER_CHECKREAD:  // where a server compares a row with the transaction's snapshot
    case ER_LOCK_DEADLOCK:
    case ER_LOCK_WAIT_TIMEOUT: return Store::CONFLICT;
    case ER_BAD_NULL_ERROR:
    case ER_CONSTRAINT_FAILED:
    case ER_DATA_TOO_LONG:
    case ER_DUP_ENTRY:
    case ER_TOO_BIG_ROWSIZE:
    case ER_TRUNCATED_WRONG_VALUE_FOR_FIELD:
    case ER_WARN_DATA_OUT_OF_RANGE: return Store::REFUSED_VALUE;
    default: return Store::OTHER_FAILURE;
  }
}

}  // namespace backup
