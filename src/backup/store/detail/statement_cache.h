#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <string>

#include "backup/store/detail/parameters.h"

namespace backup {

/// Prepared statements kept for their next use, the last used first. `Handle` owns the driver's statement.
template <class Handle>
class Statement_Cache {
public:
  struct Prepared {
    std::string text;
    Handle handle;
    Parameters parameters;
  };
  using Node = std::list<Prepared>;  // holds one statement or none

  /// True when a statement of this text is kept.
  static bool keeps(std::string const& text) { return text.size() <= most_characters; }

  /// Takes the statement for `text` out of the cache; empty when there is none. While in use it cannot be dropped or
  /// taken again.
  Node take(std::string const& text) {
    Node taken;
    auto const kept = std::find_if(kept_.begin(), kept_.end(), [&](Prepared const& p) { return p.text == text; });
    if (kept == kept_.end()) return taken;
    characters_ -= text.size();
    taken.splice(taken.begin(), kept_, kept);
    return taken;
  }

  void put_back(Node& used) noexcept {
    characters_ += used.front().text.size();
    kept_.splice(kept_.begin(), used);
    while (kept_.size() > most_statements || characters_ > most_characters) {
      characters_ -= kept_.back().text.size();
      kept_.pop_back();
    }
  }

private:
  // SQLite's memory for an INSERT is 25 times its text by name and 40 times by position, so the cache takes about 12 or
  // 20 MB at most. It keeps a repeated multi-row INSERT of some hundred kilobytes, but never many of them.
  static constexpr std::size_t most_statements = 64;
  static constexpr std::size_t most_characters = 512UL * 1024UL;

  Node kept_;
  std::size_t characters_ = 0;
};

}  // namespace backup
