#include "rising_ids.h"

#include <chrono>
#include <cstddef>
#include <stdexcept>

#include "backup/runtime/uuid.h"

namespace {

constexpr std::size_t id_size = 16;
constexpr std::size_t time_size = 6;
constexpr std::size_t first_counted = 9;  // the bytes before hold the time, the version and the variant

}  // namespace

Rising_Ids::Rising_Ids() : id_(id_size, 0) {
  if (!uuid_binary(&id_[0])) throw std::runtime_error("the system has no random bits for ids");
  auto const now = std::chrono::system_clock::now().time_since_epoch();
  auto time = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  for (std::size_t i = time_size; i-- > 0; time >>= 8) id_[i] = static_cast<unsigned char>(time & 0xFF);
  id_[6] = static_cast<unsigned char>((id_[6] & 0x0F) | 0x70);
  id_[first_counted] &= 0x7F;  // room to count more files than there are
}

Byte_String Rising_Ids::next() {
  for (std::size_t i = id_size; i-- > first_counted && ++id_[i] == 0;) {
  }
  return id_;
}
