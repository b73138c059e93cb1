#pragma once

#include <new>

/// The part that a builder returned. Throws std::bad_alloc for null, by which a builder reports missing memory.
template <class T>
T& made(T* part) {
  if (part == nullptr) throw std::bad_alloc();
  return *part;
}
