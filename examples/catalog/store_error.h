#pragma once

#include <string>

namespace backup {
class Store_Error;
}

/// The error for the user: the store, what went wrong there, and a known remedy; without the statement. "store.db:
/// database or disk is full (SQLite error 13); make room on its disk".
std::string store_error_text(std::string const& address, backup::Store_Error const& error);
