#include "open_store.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "backup/store/mysql_store.h"
#include "mysql_catalog.h"
#include "sqlite_catalog.h"

bool may_hold_password(std::string const& text) {
  bool const is_plain_path = text.empty() || text.front() == '/' || text.front() == '.';
  std::size_t const colon = text.find_first_of(":%");
  if (is_plain_path || colon == std::string::npos) return false;
  return text.compare(colon, 3, "://") == 0 || text.find('@', colon) != std::string::npos ||
         backup::MySQL_Store::is_url(text);
}

std::unique_ptr<backup::Store> open_store(std::string const& address, Access access) {
  if (backup::MySQL_Store::is_url(address)) return open_mysql_catalog(address, access);
  std::error_code ignored;
  if (may_hold_password(address) && !std::filesystem::exists(address, ignored)) {
    throw std::runtime_error("--store: neither a file nor a URL that begins with mysql:// or mariadb://");
  }
  return open_sqlite_catalog(address, access);
}

SQL::Database_Type dialect_of(std::string const& address) {
  return backup::MySQL_Store::is_url(address) ? SQL::DB_MYSQL : SQL::DB_SQLITE;
}

void refuse_store(std::string const& address, std::string const& reason) {
  throw std::runtime_error(address + reason +
                           "; 'catalog index DIR --store STORE' makes a catalogue in a new file or an empty database");
}
