#pragma once

#include <new>
#include <string>

#include "backup/store/store.h"

/// What the drivers of all databases have in common.
namespace backup {

/// Throws std::bad_alloc for null, by which a driver reports missing memory.
template <class T>
T* or_no_memory(T* result) {
  if (result == nullptr) throw std::bad_alloc();
  return result;
}

/// "<message> (<driver> error <code>)"
inline std::string with_code(std::string const& message, char const* driver, int code) {
  return message + " (" + driver + " error " + std::to_string(code) + ')';
}

}  // namespace backup
