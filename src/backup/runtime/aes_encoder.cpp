#include "backup/runtime/aes_encoder.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "backup/runtime/detail/openssl_errors.h"

// output: nonce(12) ciphertext(as long as the data) tag(16)

namespace {

constexpr std::size_t nonce_size = 12;
constexpr std::size_t tag_size = 16;
constexpr unsigned long long overhead = nonce_size + tag_size;
constexpr unsigned long long max_data = (1ULL << 36) - 32;  // bytes under one nonce, NIST SP 800-38D section 5.2.1.1
constexpr unsigned long long max_piece = 1ULL << 30;        // libcrypto takes an int

enum class Direction { decrypt = 0, encrypt = 1 };

EVP_CIPHER const* cipher_of(unsigned long long key_length) {
  switch (key_length) {
    case 16: return EVP_aes_128_gcm();
    case 24: return EVP_aes_192_gcm();
    case 32: return EVP_aes_256_gcm();
    default: return nullptr;
  }
}

/// One message on its way through the cipher.
class Cipher {
public:
  Cipher() : context_(EVP_CIPHER_CTX_new()) {}
  Cipher(Cipher const&) = delete;
  Cipher& operator=(Cipher const&) = delete;
  ~Cipher() { EVP_CIPHER_CTX_free(context_); }  // wipes the key; null is fine

  bool start(Direction direction, unsigned char const* key, unsigned long long key_length, unsigned char const* nonce) {
    EVP_CIPHER const* const cipher = cipher_of(key_length);
    return context_ != nullptr && cipher != nullptr && key != nullptr &&
           EVP_CipherInit_ex(context_, cipher, nullptr, key, nonce, static_cast<int>(direction)) == 1;
  }

  /// Null authenticates nothing.
  bool authenticate(char const* text) {
    return text == nullptr || update(nullptr, reinterpret_cast<unsigned char const*>(text), std::strlen(text));
  }

  /// Feeds `length` bytes; a null `out` only authenticates them.
  bool update(unsigned char* out, unsigned char const* in, unsigned long long length) {
    while (length > 0) {
      int const piece = static_cast<int>(std::min(length, max_piece));
      int written = 0;
      if (EVP_CipherUpdate(context_, out, &written, in, piece) != 1) return false;
      if (out != nullptr) out += piece;
      in += piece;
      length -= static_cast<unsigned long long>(piece);
    }
    return true;
  }

  bool finish_writing(unsigned char* tag) {
    return finish() && EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_GET_TAG, static_cast<int>(tag_size), tag) == 1;
  }

  /// False when the tag does not belong to this message and text.
  bool finish_reading(unsigned char const* tag) {
    unsigned char expected[tag_size];
    std::copy_n(tag, tag_size, expected);
    return EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_SET_TAG, static_cast<int>(tag_size), expected) == 1 && finish();
  }

private:
  bool finish() {
    unsigned char none[EVP_MAX_BLOCK_LENGTH];  // a stream cipher has no last block to write
    int written = 0;
    return EVP_CipherFinal_ex(context_, none, &written) == 1;
  }

  backup::OpenSSL_Errors errors_;
  EVP_CIPHER_CTX* context_;
};

}  // namespace

AES_Encoder::AES_Encoder(char const* data, unsigned long long length, unsigned char const* key,
                         unsigned long long key_length, bool /*flag*/, char const* text, int /*number*/) {
  if (length > max_data || (data == nullptr && length > 0)) return;
  std::vector<unsigned char> output(static_cast<std::size_t>(length + overhead));
  unsigned char* const nonce = output.data();
  unsigned char* const ciphertext = nonce + nonce_size;
  Cipher cipher;
  if (RAND_bytes(nonce, static_cast<int>(nonce_size)) == 1 &&
      cipher.start(Direction::encrypt, key, key_length, nonce) && cipher.authenticate(text) &&
      cipher.update(ciphertext, reinterpret_cast<unsigned char const*>(data), length) &&
      cipher.finish_writing(ciphertext + length))
    output_.swap(output);
}

unsigned char const* AES_Encoder::buffer() const { return output_.empty() ? nullptr : output_.data(); }

unsigned long long AES_Encoder::length() const { return output_.size(); }

namespace backup {

AES_Decoder::AES_Decoder(unsigned char const* data, unsigned long long length, unsigned char const* key,
                         unsigned long long key_length, char const* text) {
  if (data == nullptr || length < overhead || length - overhead > max_data) return;
  unsigned long long const count = length - overhead;
  unsigned char const* const ciphertext = data + nonce_size;
  output_.resize(static_cast<std::size_t>(count));
  Cipher cipher;
  decoded_ = cipher.start(Direction::decrypt, key, key_length, data) && cipher.authenticate(text) &&
             cipher.update(&output_[0], ciphertext, count) && cipher.finish_reading(ciphertext + count);
  if (!decoded_) secure_wipe(output_);  // decoding writes plain text before it checks the tag
}

AES_Decoder::~AES_Decoder() { secure_wipe(output_); }

unsigned char const* AES_Decoder::buffer() const { return decoded_ ? output_.data() : nullptr; }

unsigned long long AES_Decoder::length() const { return output_.size(); }

}  // namespace backup
