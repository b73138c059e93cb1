#pragma once

#include "backup/runtime/secure_memory.h"
#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql_export.h"

/// Turns a caller's value into the form that a column stores. After true the caller stores `out`; after false it stores
/// the input and ignores `out`. Converters log nothing and never change, so threads may share one.
class BACKUP_SQL_API Binding_Value_Converter {
public:
  Binding_Value_Converter();
  virtual ~Binding_Value_Converter();

  virtual bool convert(Binding_Value const& in, Binding_Value& out) const = 0;
};

/// Turns uuid text into its 16 bytes, plain or secret like the text. The empty text becomes no bytes and is accepted.
/// False for a text that gives any other number of bytes (`out` is overwritten) and for other kinds of value (`out` is
/// unchanged).
class BACKUP_SQL_API Binding_Value_UUID_Converter : public Binding_Value_Converter {
public:
  bool convert(Binding_Value const& in, Binding_Value& out) const override;
};

/// Turns hexadecimal text, up to its first zero byte, into bytes. Like the uuid converter it accepts exactly 16 bytes
/// or the empty text; any other length is deliberately refused.
class BACKUP_SQL_API Binding_Value_Hex_Converter : public Binding_Value_Converter {
public:
  bool convert(Binding_Value const& in, Binding_Value& out) const override;
};

/// Encrypts texts, bytes and (as compact JSON) arrays with AES under the caller's key, see `AES_Encoder`. The result is
/// `bin_type`, also for secret input. Objects and scalars are refused and leave `out` unchanged; arrays are
/// deliberately accepted.
class BACKUP_SQL_API Binding_Value_AES_Converter : public Binding_Value_Converter {
public:
  /// Keeps the addresses of `key` (16, 24 or 32 bytes) and `param` (a text authenticated with each value, or null):
  /// both must outlive the converter. The key is never logged.
  Binding_Value_AES_Converter(Secure_Byte_String const& key, char const* param);
  Binding_Value_AES_Converter(Secure_Byte_String&& key, char const* param) = delete;

  bool convert(Binding_Value const& in, Binding_Value& out) const override;
  /// Encrypts one range. False, and no bytes in `out`, when the encoder gives no output.
  bool convert_i(char const* data, unsigned long long length, Binding_Value& out) const;

private:
  Secure_Byte_String const* key_;
  char const* param_;
};
