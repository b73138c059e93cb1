#pragma once

#include <string>

namespace backup {
class Store_Error;
}

/// "store.db: database is locked (SQLite error 5); another process writes to it: try again later", for the user: which
/// store, what went wrong there, and what to do about it where that is known. The statement is left out.
std::string store_error_text(std::string const& address, backup::Store_Error const& error);
