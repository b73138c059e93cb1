#pragma once

#include <openssl/err.h>

namespace backup {

/// While one lives, OpenSSL's errors of this thread are this library's own; they go with it. An error left in the queue
/// would be taken for one of the caller's next OpenSSL call.
class OpenSSL_Errors {
public:
  OpenSSL_Errors() { ERR_set_mark(); }
  OpenSSL_Errors(OpenSSL_Errors const&) = delete;
  OpenSSL_Errors& operator=(OpenSSL_Errors const&) = delete;
  ~OpenSSL_Errors() { ERR_pop_to_mark(); }
};

}  // namespace backup
