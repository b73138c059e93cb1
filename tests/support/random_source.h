#pragma once

#include <dlfcn.h>
#include <openssl/rand.h>

#include <cstddef>
#include <cstring>

constexpr int no_random_bytes = -1;

/// While it lives, OpenSSL's random source gives only `byte`, or fails for `no_random_bytes`.
class Random_Source {
public:
  explicit Random_Source(int byte) {
    // Use OpenSSL's own source once: if it is not set up by now, it is set up at the exit and leaks.
    unsigned char unused = 0;
    reinterpret_cast<int (*)(unsigned char*, int)>(dlsym(RTLD_DEFAULT, "RAND_bytes"))(&unused, 1);
    byte_ = byte;
    use(&method_);
  }
  Random_Source(Random_Source const&) = delete;
  Random_Source& operator=(Random_Source const&) = delete;
  ~Random_Source() { use(nullptr); }

private:
  static int repeat_byte(unsigned char* bytes, int count) {
    std::memset(bytes, byte_, static_cast<std::size_t>(count));
    return byte_ == no_random_bytes ? 0 : 1;
  }

  // Found by name: a direct call would be deprecated and need the test to link libcrypto.
  static void use(RAND_METHOD const* source) {
    reinterpret_cast<int (*)(RAND_METHOD const*)>(dlsym(RTLD_DEFAULT, "RAND_set_rand_method"))(source);
  }

  static inline int byte_ = 0;
  RAND_METHOD method_{nullptr, repeat_byte, nullptr, nullptr, nullptr, nullptr};
};
