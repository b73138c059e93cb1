#pragma once

#include <algorithm>
#include <cstddef>

namespace backup {

/// Makes room for `count` more elements, and at least doubles the capacity when it grows.
template <class Container>
void reserve_more(Container& container, std::size_t count) {
  std::size_t const size = container.size();
  if (container.capacity() - size < count) container.reserve(std::max(size + count, 2 * size));
}

}  // namespace backup
