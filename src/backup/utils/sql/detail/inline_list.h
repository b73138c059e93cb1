#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>

namespace backup {

/// A list of small elements. The first 16 take no allocation.
template <class T>
class Inline_List {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  Inline_List() = default;
  Inline_List(Inline_List const&) = delete;
  Inline_List& operator=(Inline_List const&) = delete;

  void reserve(std::size_t size) {
    if (size > capacity_) grow(std::max(size, 2 * capacity_));
  }
  void push_back(T element) {
    if (size_ == capacity_) grow(2 * capacity_);
    data_[size_++] = element;
  }
  void clear() { size_ = 0; }
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  T operator[](std::size_t i) const { return data_[i]; }
  T const* begin() const { return data_; }
  T const* end() const { return data_ + size_; }

private:
  static constexpr std::size_t inline_capacity = 16;

  [[gnu::noinline]] void grow(std::size_t capacity) {
    std::unique_ptr<T[]> larger(new T[capacity]);
    std::copy_n(data_, size_, larger.get());
    heap_ = std::move(larger);
    data_ = heap_.get();
    capacity_ = capacity;
  }

  T first_[inline_capacity];
  std::unique_ptr<T[]> heap_;
  T* data_ = first_;
  std::size_t size_ = 0;
  std::size_t capacity_ = inline_capacity;
};

}  // namespace backup
