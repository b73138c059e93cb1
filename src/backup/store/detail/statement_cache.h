#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <string>

#include "backup/store/detail/parameters.h"

namespace backup {

/// Prepared statements that wait for their next use, the last used first. `Handle` owns what the driver has of one.
template <class Handle>
class Statement_Cache {
public:
  struct Prepared {
    std::string text;
    Handle handle;
    Parameters parameters;
  };
  using Node = std::list<Prepared>;  // of one statement

  /// A statement of this text is worth keeping.
  static bool keeps(std::string const& text) { return text.size() <= most_characters; }

  /// Empty when there is none for `text`. A statement in use is out of here, so it is neither dropped nor given out
  /// again.
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
  // SQLite takes 25 times the text of an INSERT by name and 40 times that of one by position, so what is kept stays
  // near 12 or 20 MB: a multi-row INSERT of some hundred kilobytes while it repeats, and never many of them.
  static constexpr std::size_t most_statements = 64;
  static constexpr std::size_t most_characters = 512UL * 1024UL;

  Node kept_;
  std::size_t characters_ = 0;
};

}  // namespace backup
