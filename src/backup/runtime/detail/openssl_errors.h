#pragma once

#include <openssl/err.h>

namespace backup {

/// Removes at its end the errors that OpenSSL has queued for this thread meanwhile. A caller would take such an error
/// for one of its own next OpenSSL call.
class OpenSSL_Errors {
public:
  OpenSSL_Errors() { ERR_set_mark(); }
  OpenSSL_Errors(OpenSSL_Errors const&) = delete;
  OpenSSL_Errors& operator=(OpenSSL_Errors const&) = delete;
  ~OpenSSL_Errors() { ERR_pop_to_mark(); }
};

}  // namespace backup
