#pragma once

#include <string>

#include "backup/store/store.h"

namespace backup {

/// Throws Store_Error with the message and its code, and std::bad_alloc for the client's code of short memory.
[[noreturn]] void fail_mysql(std::string const& message, unsigned int code, std::string const& text);

/// The message for a failed statement with values: `message` when it quotes only names, else words for its code.
std::string mysql_message_without_values(std::string const& message, unsigned int code);

/// `Store::failure` by the server's code.
Store::Failure mysql_failure(int code);

}  // namespace backup
