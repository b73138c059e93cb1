#pragma once

#include <memory>
#include <string>

class Store;

enum class Access {
  read,    ///< the file must be there
  change,  ///< the file must be there
  create   ///< made, and given the schema, when it is not there or empty
};

/// Opens the catalogue in `file`. Throws std::runtime_error with a text for the user when the file is missing, cannot
/// be opened, or is no catalogue of this schema.
std::unique_ptr<Store> open_store(std::string const& file, Access access);
