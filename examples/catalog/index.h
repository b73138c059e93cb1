#pragma once

#include <string>

struct Index_Options {
  std::string directory;
  std::string store;
  std::string host;
};

enum class Index_Result {
  whole,
  left_out,    ///< done, but something could not be read or stored; the catalogue counts how much
  interrupted  ///< ended early by a signal; the files found until then are kept
};

/// Indexes a directory as a new run. Reports on the standard error stream what was left out, and an early end. Throws
/// std::runtime_error with a text for the user on failure; the files stored until then are kept, unless the run was
/// dropped.
Index_Result index_directory(Index_Options const& options);
