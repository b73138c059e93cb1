#pragma once

#include <string>

struct Index_Options {
  std::string directory;
  std::string store;
  std::string host;
};

enum class Index_Result {
  whole,
  left_out,    ///< done, but something could not be read or stored; how much is kept with the run
  interrupted  ///< ended early by a signal; what was found until then is kept
};

/// Indexes a directory as a new run. What was left out, and an early end, is said on the standard error stream. Throws
/// std::runtime_error with a text for the user when it cannot be done; what was stored until then is kept, unless the
/// run has been dropped.
Index_Result index_directory(Index_Options const& options);
