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

/// The floor that a workload is compared with.
enum class Floor {
  map,   ///< C: text, and the map of bindings filled in the order of its names with hints
  list,  ///< V: text into one reserved string, values into a reserved list
  other  ///< as the workload's name says
};

struct Workload {
  char const* name;
  Floor floor;
  double bar;         ///< the ratio of instructions that is wanted
  void (*prepare)();  ///< makes what is not measured
  void (*library)(Result& result);
  void (*by_hand)(Result& result);
};

std::vector<Workload> const& all();

}  // namespace workloads
