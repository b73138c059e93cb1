#pragma once

#include <memory>
#include <string>

#include "backup/utils/sql/sql.h"

namespace backup {
class Store;
}

enum class Access {
  read,    ///< the catalogue must be there
  change,  ///< the catalogue must be there
  create   ///< made, and given the schema, when the database is empty or a file that is not there
};

/// Opens the catalogue at `address`: an SQLite file, or a MySQL or MariaDB database when it begins with "mysql://" or
/// "mariadb://", whose password is the environment's MYSQL_PWD. Throws std::runtime_error when it is missing, cannot be
/// opened, or is no catalogue of this schema: with a text for the user, or a Store_Error for `store_error_text`. An
/// address that is opened holds no password.
std::unique_ptr<backup::Store> open_store(std::string const& address, Access access);

/// The dialect of the store at `address`, which is not opened.
SQL::Database_Type dialect_of(std::string const& address);

/// Throws the error that there is no catalogue at `address` for `reason`, which tells how to make one.
[[noreturn]] void refuse_store(std::string const& address, std::string const& reason);

/// True for what may be a URL with a user and a password in it, also a misspelt one; a path that begins with a slash or
/// a point is none. Such a text is shown to nobody.
bool may_hold_password(std::string const& text);
