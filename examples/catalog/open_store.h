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
  create   ///< makes the catalogue when the database is empty, or the file missing
};

/// Opens the catalogue at `address`: a MySQL or MariaDB database when it begins with "mysql://" or "mariadb://", else
/// an SQLite file. The server's password is the environment's MYSQL_PWD. Throws std::runtime_error when the catalogue
/// is missing, cannot be opened, or is none of this schema: with a text for the user, or a Store_Error for
/// `store_error_text`. An address with a password is never opened.
std::unique_ptr<backup::Store> open_store(std::string const& address, Access access);

/// The dialect of the store at `address`; does not open it.
SQL::Database_Type dialect_of(std::string const& address);

/// Throws an error with `address`, `reason`, and how to make a catalogue.
[[noreturn]] void refuse_store(std::string const& address, std::string const& reason);

/// True for a text that may be a URL with a user and a password, even a misspelt one; false for a path that begins with
/// a slash or a point. A text that may hold a password is shown to nobody.
bool may_hold_password(std::string const& text);
