#include "command_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

#include "misuse.h"
#include "open_store.h"

namespace {

// The least number of letters to insert, delete, replace or swap with a neighbour to make one word of the other.
std::size_t distance(std::string const& from, std::string const& to) {
  std::vector<std::size_t> before_last(to.size() + 1);
  std::vector<std::size_t> last(to.size() + 1);
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    before_last.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      std::size_t const replaced = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({row[j - 1] + 1, last[j] + 1, replaced});
      bool const is_swapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (is_swapped) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
  }
  return row.back();
}

// The word that was most likely meant, "" when none is near. The beginning of a word is near to it.
std::string nearest(std::string const& word, Words const& words) {
  constexpr std::size_t longest = 64;
  std::string best;
  std::size_t least = std::max<std::size_t>(word.size() / 3, 1);
  if (word.size() > longest) return best;
  for (std::string const& candidate : words) {
    bool const is_beginning = word.size() > 2 && candidate.compare(0, word.size(), word) == 0;
    std::size_t const far = is_beginning ? 0 : distance(word, candidate);
    if (far > least || (far == least && !best.empty())) continue;
    best = candidate;
    least = far;
  }
  return best;
}

[[noreturn]] void refuse(std::string const& what, std::string const& word, Words const& words,
                         std::string const& list) {
  std::string const meant = nearest(word, words);
  std::string const help = meant.empty() ? "; " + list : ", did you mean '" + meant + "'?";
  throw Misuse(what + (may_hold_password(word) ? "" : " '" + word + "'") + help);
}

void require_known_words_of(CLI::App const& app) {
  Words const left = app.remaining();
  if (left.empty()) return;
  bool const is_command = app.get_parent() != nullptr;
  std::string const place = is_command ? app.get_name() + ": " : "";
  std::string const list =
      is_command ? "'catalog help " + app.get_name() + "' tells all" : "options follow the command";
  auto const option = std::find_if(left.begin(), left.end(), [](std::string const& w) { return w[0] == '-'; });
  if (option == left.end()) refuse(place + "one argument too many", left.front(), {}, list);
  Words options;
  for (CLI::Option const* known : app.get_options()) {
    for (std::string const& name : known->get_lnames()) options.push_back("--" + name);
  }
  refuse(place + "unknown option", option->substr(0, option->find('=')), options, list);
}

}  // namespace

CLI::App& find_command(CLI::App& app, std::string const& word) {
  Words names;
  for (CLI::App* const command : app.get_subcommands(nullptr)) {
    if (command->get_name() == word) return *command;
    names.push_back(command->get_name());
  }
  refuse("unknown command", word, names, "'catalog help' lists the commands");
}

void require_known_words(CLI::App const& app) {
  require_known_words_of(app);
  for (CLI::App const* const command : app.get_subcommands()) require_known_words_of(*command);
}
