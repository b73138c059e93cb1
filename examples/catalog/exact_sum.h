#pragma once

#include <string>

#include "backup/utils/sql/binding_value.h"

/// A sum of file sizes. 64 bits hold only two of the largest files; this sum holds 2^64 of them.
class Exact_Sum {
public:
  void add(unsigned long long number, unsigned int shift = 0) { sum_ += static_cast<Wide>(number) << shift; }

  /// A number up to 2^63-1, above that the text of its digits.
  Binding_Value value() const {
    return sum_ >> 63U == 0 ? Binding_Value(static_cast<long long>(sum_)) : Binding_Value(digits());
  }
  std::string digits() const {
    std::string digits;
    for (Wide rest = sum_; rest > 0 || digits.empty(); rest /= 10) {
      digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(rest % 10)));
    }
    return digits;
  }

private:
  __extension__ using Wide = unsigned __int128;

  Wide sum_ = 0;
};
