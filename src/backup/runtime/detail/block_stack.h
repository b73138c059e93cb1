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
/// the next push. Nothing is allocated before the first push, and nothing released before the end.
template <class T>
class Block_Stack {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  bool empty() const noexcept { return used_ == 0; }
  T& top() noexcept { return blocks_[block_][used_ - 1]; }

  void push(T const& element) {
    if (used_ == size_of(block_) || blocks_.empty()) next_block();
    blocks_[block_][used_++] = element;
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
  static std::size_t size_of(std::size_t block) noexcept { return std::size_t{16} << std::min<std::size_t>(block, 8); }

  void next_block() {
    std::size_t const next = blocks_.empty() ? 0 : block_ + 1;
    if (next == blocks_.size()) blocks_.push_back(std::unique_ptr<T[]>(new T[size_of(next)]));
    block_ = next;
    used_ = 0;
  }

  std::vector<std::unique_ptr<T[]>> blocks_;
  std::size_t block_ = 0;
  std::size_t used_ = 0;  // of that block; 0 only when the stack is empty
};

}  // namespace backup
