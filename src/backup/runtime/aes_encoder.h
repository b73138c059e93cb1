#pragma once

#include <vector>

#include "backup/runtime/runtime_export.h"
#include "backup/runtime/secure_memory.h"

/// AES in Galois/Counter Mode (FIPS 197, NIST SP 800-38D), the variant chosen by the key's length: 16, 24 or 32 bytes.
/// Output: a random nonce of 12 bytes, the ciphertext (as long as the data), the authentication tag of 16 bytes.
/// Nonces are random, so one key must not encrypt more than 2^32 values (SP 800-38D, 8.3). May throw std::bad_alloc.
class BACKUP_RUNTIME_API AES_Encoder {
public:
  /// Encrypts `length` bytes of `data`. `text` is authenticated with the data, and decoding needs it again; null: none.
  /// `flag` and `number` have no effect. No argument is kept. With another key length, or when the cryptographic
  /// library fails, there is no output.
  AES_Encoder(char const* data, unsigned long long length, unsigned char const* key, unsigned long long key_length,
              bool flag, char const* text, int number);

  /// Null when there is no output. Owned by the encoder.
  unsigned char const* buffer() const;
  /// Bytes at `buffer()`, 0 without output.
  unsigned long long length() const;

private:
  std::vector<unsigned char> output_;
};

namespace backup {

/// Reads back what `AES_Encoder` wrote.
class BACKUP_RUNTIME_API AES_Decoder {
public:
  /// Takes the encoder's output, and the same key and text. There is no output when a byte of any of them differs, or
  /// when the input is shorter than nonce and tag. Empty data gives a buffer of length 0, which is an output.
  AES_Decoder(unsigned char const* data, unsigned long long length, unsigned char const* key,
              unsigned long long key_length, char const* text);
  AES_Decoder(AES_Decoder const&) = delete;
  AES_Decoder& operator=(AES_Decoder const&) = delete;
  /// Wipes the output.
  ~AES_Decoder();

  /// Null when there is no output. Owned by the decoder.
  unsigned char const* buffer() const;
  unsigned long long length() const;

private:
  Secure_Byte_String output_;
  bool decoded_ = false;
};

}  // namespace backup
