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

/// Takes back what was appended to a container since, unless `keep` is called.
template <class Container>
class Take_Back {
public:
  explicit Take_Back(Container& container) : container_(container), size_(container.size()) {}
  Take_Back(Take_Back const&) = delete;
  Take_Back& operator=(Take_Back const&) = delete;
  ~Take_Back() {
    if (!is_kept_) container_.erase(container_.begin() + static_cast<std::ptrdiff_t>(size_), container_.end());
  }
  void keep() { is_kept_ = true; }

private:
  Container& container_;
  std::size_t size_;
  bool is_kept_ = false;
};

}  // namespace backup
