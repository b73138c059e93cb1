#pragma once

#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"

/// The same work by the library and by code written by hand: the same text, the same values.
namespace workloads {

struct Result {
  std::string sql;
  Bindings bindings;
  std::vector<Binding_Value> values;
};

struct Workload {
  char const* name;
  char const* floor;  ///< the other side, by its name in docs/performance.md
  double bar;         ///< the wanted ratio of instructions
  void (*prepare)();  ///< runs before the measurement; may be null
  void (*library)(Result& result);
  void (*by_hand)(Result& result);
};

std::vector<Workload> statements();
std::vector<Workload> requests();
std::vector<Workload> documents();

}  // namespace workloads
