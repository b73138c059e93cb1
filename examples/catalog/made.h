#pragma once

#include <new>

/// The part that a builder returned for filling. Throws std::bad_alloc for null, a builder's sign of short memory.
template <class T>
T& made(T* part) {
  if (part == nullptr) throw std::bad_alloc();
  return *part;
}
