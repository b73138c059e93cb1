#pragma once

#include "backup/runtime/secure_memory.h"
#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql_export.h"

/// Turns a caller's value into the form in which a column stores it. On true the caller stores `out`, on false the
/// input as it came, whatever `out` holds then. Converters log nothing, change nothing of their own and may be shared
/// by threads.
class BACKUP_SQL_API Binding_Value_Converter {
public:
  Binding_Value_Converter();
  virtual ~Binding_Value_Converter();

  virtual bool convert(Binding_Value const& in, Binding_Value& out) const = 0;
};

/// Uuid text to its 16 bytes, plain or secret like the text. The empty text becomes no bytes and is accepted. False for
/// a text that gives any other number of bytes (`out` is overwritten all the same) and for other kinds (`out`
/// untouched).
class BACKUP_SQL_API Binding_Value_UUID_Converter : public Binding_Value_Converter {
public:
  bool convert(Binding_Value const& in, Binding_Value& out) const override;
};

/// Hexadecimal text, up to its first zero byte, to bytes; accepts what the uuid converter accepts: exactly 16 bytes or
/// the empty text. Hexadecimal text of any other length is refused, deliberately.
class BACKUP_SQL_API Binding_Value_Hex_Converter : public Binding_Value_Converter {
public:
  bool convert(Binding_Value const& in, Binding_Value& out) const override;
};

/// Encrypts texts, bytes and (as compact JSON) arrays with AES under the caller's key, see `AES_Encoder`. The result is
/// `bin_type`, also for secret input. Objects and scalars are refused, `out` untouched; arrays are not: deliberate.
class BACKUP_SQL_API Binding_Value_AES_Converter : public Binding_Value_Converter {
public:
  /// Keeps the addresses: `key` (16, 24 or 32 bytes) and `param`, the text authenticated with each value or null, must
  /// outlive the converter. The key is never logged.
  Binding_Value_AES_Converter(Secure_Byte_String const& key, char const* param);
  Binding_Value_AES_Converter(Secure_Byte_String&& key, char const* param) = delete;

  bool convert(Binding_Value const& in, Binding_Value& out) const override;
  /// Encrypts one range. False, with `out` holding no bytes, when the encoder gives no output.
  bool convert_i(char const* data, unsigned long long length, Binding_Value& out) const;

private:
  Secure_Byte_String const* key_;
  char const* param_;
};
