#pragma once

/// One entry of a constant table from texts to values. A table ends with an entry whose key is null and whose value is
/// all zero, so a miss reads as a zero value. The table is an aggregate; it must outlive whoever searches it.
template <class T>
struct Key2_Value_T {
  char const* key;
  unsigned long long key_length;
  T value;

  /// The first entry of `table` with exactly this text (case-sensitive), or the closing one. Linear in the table.
  static Key2_Value_T const& find(Key2_Value_T const* table, char const* text, unsigned long long length) {
    while (table->key != nullptr && !table->is(text, length)) ++table;
    return *table;
  }

private:
  bool is(char const* text, unsigned long long length) const {
    if (key_length != length) return false;
    for (unsigned long long i = 0; i < length; ++i) {
      if (key[i] != text[i]) return false;
      if (key[i] == '\0') break;  // the key may be shorter than it says
    }
    return true;
  }
};
