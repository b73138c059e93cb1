#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace backup {

/// A stack that grows by blocks and never moves its elements; a vector needs three times their memory while it grows.
/// Elements must be trivially copyable. A reference to the top is valid until the next push. The first few elements
/// take no allocation, and memory is released only at the end.
template <class T>
class Block_Stack {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  Block_Stack() = default;
  Block_Stack(Block_Stack const&) = delete;
  Block_Stack& operator=(Block_Stack const&) = delete;

  bool empty() const noexcept { return at_ == first_; }
  T& top() noexcept { return at_[-1]; }

  void push(T const& element) {
    if (at_ == end_) next_block();
    *at_++ = element;
  }

  void pop() noexcept {
    if (--at_ == begin_ && block_ > 0) {
      enter(block_ - 1);
      at_ = end_;
    }
  }

  T take() noexcept {
    T const element = top();
    pop();
    return element;
  }

private:
  static constexpr std::size_t first_size = 8;

  static std::size_t size_of(std::size_t block) noexcept { return first_size << std::min<std::size_t>(block, 9); }

  void enter(std::size_t block) noexcept {
    block_ = block;
    begin_ = block == 0 ? first_ : others_[block - 1].get();
    end_ = begin_ + size_of(block);
  }

  void next_block() {
    if (block_ == others_.size()) others_.push_back(std::unique_ptr<T[]>(new T[size_of(block_ + 1)]));
    enter(block_ + 1);
    at_ = begin_;
  }

  T first_[first_size];
  std::vector<std::unique_ptr<T[]>> others_;
  std::size_t block_ = 0;  // the one of `at_`, which is at its beginning only when the stack is empty
  T* begin_ = first_;
  T* end_ = first_ + first_size;
  T* at_ = first_;
};

}  // namespace backup
