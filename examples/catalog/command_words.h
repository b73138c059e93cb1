#pragma once

#include <string>

#include "option_values.h"

namespace CLI {
class App;
}

/// The command `word` of `app`. Throws Misuse, which suggests the nearest command, when there is none.
CLI::App& find_command(CLI::App& app, std::string const& word);

/// Throws Misuse for an unknown option or an argument too many; suggests the nearest option. Returns when there is
/// neither.
void require_known_words(CLI::App const& app);
