#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "backup/utils/sql/sql.h"

namespace backup {

/// The entries of a `Filter_SQL`, no class for callers: objects in order, a reference to each held here. Two take no
/// allocation, for most filters have few entries.
class SQL_List {
public:
  SQL_List() noexcept : first_{}, size_(0), capacity_(inline_capacity) {}
  SQL_List(SQL_List const& other) : SQL_List() {
    reserve(other.size_);
    for (SQL* const sql : other) push_back(sql);
  }
  SQL_List& operator=(SQL_List const&) = delete;
  ~SQL_List() {
    while (!empty()) SQL::intrusive_remove_ref(take_back());
    if (!is_inline()) delete[] heap_;
  }
  void swap(SQL_List& other) noexcept {
    std::swap(first_, other.first_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }
  SQL* const* begin() const noexcept { return is_inline() ? first_ : heap_; }
  SQL* const* end() const noexcept { return begin() + size_; }
  SQL& operator[](std::size_t i) const noexcept { return *begin()[i]; }

  /// Makes room for at least so many. Throws std::bad_alloc and changes nothing then.
  void reserve(std::size_t size) {
    if (size <= capacity_) return;
    if (size > std::numeric_limits<std::uint32_t>::max() / 2) throw std::bad_alloc();
    auto const capacity = static_cast<std::uint32_t>(std::max(size, std::size_t{2} * capacity_));
    auto* const larger = new SQL*[capacity];
    std::copy(begin(), end(), larger);
    if (!is_inline()) delete[] heap_;
    heap_ = larger;
    capacity_ = capacity;
  }
  /// Adds a reference. There must be room.
  void push_back(SQL* sql) noexcept {
    SQL::intrusive_add_ref(sql);
    give_back(sql);
  }
  /// The last one; its reference goes to the caller.
  SQL* take_back() noexcept { return data()[--size_]; }
  /// The reverse: null too. There must be room.
  void give_back(SQL* sql) noexcept { data()[size_++] = sql; }
  void erase(SQL* const* place) noexcept {
    SQL* const sql = *place;
    std::copy(place + 1, end(), data() + (place - begin()));
    --size_;
    SQL::intrusive_remove_ref(sql);
  }

private:
  static constexpr std::uint32_t inline_capacity = 2;

  bool is_inline() const noexcept { return capacity_ == inline_capacity; }
  SQL** data() noexcept { return is_inline() ? first_ : heap_; }

  union {
    SQL* first_[inline_capacity];
    SQL** heap_;
  };
  std::uint32_t size_;
  std::uint32_t capacity_;
};

}  // namespace backup
