#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "backup/runtime/runtime_export.h"

/// Walks the pairs of a query string as the WHATWG URL Standard reads application/x-www-form-urlencoded text.
/// Ampersands separate pairs, and empty pairs are skipped. The first equals sign separates key and value; without one
/// the value is empty. "+" is a blank, "%41" the byte 0x41. Bad escapes, zero bytes and bytes that are no UTF-8 stay
/// unchanged. The only failure is missing memory.
///
/// The iterator keeps a copy of the rest of the text. A walk is linear in the text.
class BACKUP_RUNTIME_API HTTP_Query_String_Iterator {
public:
  using Pair = std::pair<std::string, std::string>;

  /// At the first pair of a text that ends at a zero byte. A null text gives the end iterator. `flags` has no effect.
  HTTP_Query_String_Iterator(char const* text, unsigned int flags);
  /// At the first pair of the whole text.
  HTTP_Query_String_Iterator(std::string text, unsigned int flags);

  /// The decoded pair, valid until the iterator moves or ends. Not allowed at the end.
  Pair const* operator->() const;
  Pair const& operator*() const;
  HTTP_Query_String_Iterator& operator++();

  /// Iterators are equal when the same text is left to read.
  bool operator==(HTTP_Query_String_Iterator const& other) const;
  bool operator!=(HTTP_Query_String_Iterator const& other) const;

private:
  static constexpr std::size_t at_end = static_cast<std::size_t>(-1);

  std::string_view rest() const;
  void read_pair();

  std::string text_;
  std::size_t begin_ = at_end;  // of the pair
  std::size_t next_ = 0;        // where the pair after it may begin
  Pair pair_;
};
