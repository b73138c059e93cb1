#pragma once

#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"

/// What the library does and code written by hand does too: the same text, the same values.
namespace workloads {

struct Result {
  std::string sql;
  Bindings bindings;
  std::vector<Binding_Value> values;
};

struct Workload {
  char const* name;
  char const* floor;  ///< what the library is compared with, as docs/performance.md names it
  double bar;         ///< the ratio of instructions that is wanted
  void (*prepare)();  ///< makes what is not measured; null when there is nothing to make
  void (*library)(Result& result);
  void (*by_hand)(Result& result);
};

std::vector<Workload> statements();
std::vector<Workload> requests();
std::vector<Workload> documents();

}  // namespace workloads
