#pragma once

#include <cstdio>
#include <cstring>

/// What the benchmarks print, for report.awk: a line "#table", column...; then a line for each row. A tab stands
/// between two fields; "-" is a figure that could not be had.
namespace figures {

/// Whether a row was asked for: its name has one of the texts of the command line, or there are none. Tells who waits.
inline bool is_wanted(char const* name, int argc, char** argv) {
  bool wanted = argc == 1;
  for (int i = 1; i < argc; ++i) wanted = wanted || std::strstr(name, argv[i]) != nullptr;
  if (wanted) std::fprintf(stderr, "%s\n", name);
  return wanted;
}

}  // namespace figures
