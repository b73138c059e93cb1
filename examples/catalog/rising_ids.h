#pragma once

#include <cstdint>

#include "backup/runtime/secure_memory.h"

/// Ids in rising order: uuids of version 7 (RFC 9562, section 6.2, method 2). The first one has its time and random
/// bits, each later one is the next number. A database adds rows with such keys at the end of its index; for random
/// keys it would read and write every page again.
class Rising_Ids {
public:
  /// Throws std::runtime_error when the system has no random bits.
  Rising_Ids();

  /// 16 bytes.
  Byte_String next();

private:
  Byte_String id_;
};
