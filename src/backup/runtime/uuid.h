#pragma once

#include <string>

#include "backup/runtime/runtime_export.h"
#include "backup/runtime/secure_memory.h"

/// Two forms are read as a uuid (RFC 9562): 8-4-4-4-12 hexadecimal digits with hyphens, and 32 digits without, in
/// either case. Bytes have the order of the text. Functions here throw only std::bad_alloc.

/// True for the two forms above, otherwise false.
BACKUP_RUNTIME_API bool is_valid_uuid(std::string const& text);

/// The 16 bytes of the uuid, or no bytes when `text` is null or no uuid.
BACKUP_RUNTIME_API Byte_String uuid_string_to_binary(char const* text);
BACKUP_RUNTIME_API Byte_String uuid_string_to_binary(std::string const& text);
BACKUP_RUNTIME_API Secure_Byte_String uuid_string_to_binary_secure(Secure_String const& text);

/// Writes a new random uuid (RFC 9562, version 4, from the system's cryptographic source) to the 16 bytes at `bytes`.
/// False, with the bytes unchanged, when that source fails.
BACKUP_RUNTIME_API bool uuid_binary(unsigned char* bytes);
