#pragma once

#include <memory>
#include <string>

class Store;

enum class Access {
  read,    ///< the catalogue must be there
  change,  ///< the catalogue must be there
  create   ///< made, and given the schema, when the database is empty or a file that is not there
};

/// Opens the catalogue at `address`: an SQLite file, or a MySQL or MariaDB database when it begins with "mysql://",
/// whose password is the environment's MYSQL_PWD. Throws std::runtime_error with a text for the user when it is
/// missing, cannot be opened, or is no catalogue of this schema.
std::unique_ptr<Store> open_store(std::string const& address, Access access);
