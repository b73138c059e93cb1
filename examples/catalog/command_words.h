#pragma once

#include <string>

#include "option_values.h"

namespace CLI {
class App;
}

/// Throws Misuse, which suggests the command nearest to `word`, unless it is one of `app`'s.
CLI::App& find_command(CLI::App& app, std::string const& word);

/// Throws Misuse for a word on the command line that `app` could not place, an option or an argument too many; it
/// suggests the nearest option. Returns when there is none.
void require_known_words(CLI::App const& app);
