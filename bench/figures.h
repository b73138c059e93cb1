#pragma once

#include <cstdio>
#include <cstring>

/// The benchmarks print for report.awk: a line "#table", column..., then one line for each row. Tabs separate fields;
/// "-" is a missing figure.
namespace figures {

/// True when the row's name has one of the texts of the command line, or there are none. Then shows the name as
/// progress.
inline bool is_wanted(char const* name, int argc, char** argv) {
  bool wanted = argc == 1;
  for (int i = 1; i < argc; ++i) wanted = wanted || std::strstr(name, argv[i]) != nullptr;
  if (wanted) std::fprintf(stderr, "%s\n", name);
  return wanted;
}

}  // namespace figures
