#pragma once

#include <cstdint>

#include "backup/runtime/secure_memory.h"

/// Ids in rising order: uuids of version 7 (RFC 9562, section 6.2, method 2), the first of the time it is made at and
/// random bits, each other one the next number. A database adds rows with such keys at the end of its index; keys at
/// random places would have every page of it read and written again.
class Rising_Ids {
public:
  /// Throws std::runtime_error when the system has no random bits.
  Rising_Ids();

  /// 16 bytes.
  Byte_String next();

private:
  Byte_String id_;
};
