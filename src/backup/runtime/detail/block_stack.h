#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace backup {

/// A stack that grows by blocks and never copies what it holds: a vector needs three times the memory of its elements
/// while it grows. What is pushed may be anything that is copied by its bytes; a reference to the top is valid until
/// the next push. The first few take no allocation, and nothing is released before the end.
template <class T>
class Block_Stack {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  bool empty() const noexcept { return used_ == 0; }
  T& top() noexcept { return block(block_)[used_ - 1]; }

  void push(T const& element) {
    if (used_ == size_of(block_)) next_block();
    block(block_)[used_++] = element;
  }

  void pop() noexcept {
    if (--used_ > 0 || block_ == 0) return;
    used_ = size_of(--block_);
  }

  T take() noexcept {
    T const element = top();
    pop();
    return element;
  }

private:
  static constexpr std::size_t first_size = 8;

  static std::size_t size_of(std::size_t block) noexcept { return first_size << std::min<std::size_t>(block, 9); }
  T* block(std::size_t index) noexcept { return index == 0 ? first_ : others_[index - 1].get(); }

  void next_block() {
    if (block_ == others_.size()) others_.push_back(std::unique_ptr<T[]>(new T[size_of(block_ + 1)]));
    ++block_;
    used_ = 0;
  }

  T first_[first_size];
  std::vector<std::unique_ptr<T[]>> others_;
  std::size_t block_ = 0;
  std::size_t used_ = 0;  // of that block; 0 only when the stack is empty
};

}  // namespace backup
