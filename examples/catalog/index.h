#pragma once

#include <string>

struct Index_Options {
  std::string directory;
  std::string store;
  std::string host;
};

/// Indexes a directory as a new run. False, said on the standard error stream, when a signal ended it early; what was
/// stored until then is kept. Throws std::runtime_error with a text for the user when it cannot be done.
bool index_directory(Index_Options const& options);
