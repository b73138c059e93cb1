#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "file.h"

class Store;

/// How a run stands. The numbers are stored, but for `running`, which is the lack of one.
enum class Run_State : int { running = 1, complete = 2, interrupted = 3 };

/// The word for a number; null for a number that is no state.
char const* run_state_word(long long number);

/// What changes a catalogue. Each call is one transaction; after a Store_Error nothing of it is kept.
class Catalog {
public:
  /// `store` holds the schema and outlives this object.
  explicit Catalog(Store& store);

  /// Returns the new run's id. The host is added when it is new.
  Binding_Value start_run(std::string const& host, std::string const& directory, long long time);
  void add_files(Binding_Value const& run, std::vector<File> const& files);
  void end_run(Binding_Value const& run, Run_State state, long long time);

  /// Deletes a run, by its id's text, and its files. The number of files; none when there is no such run.
  std::optional<unsigned long long> drop_run(std::string const& run);

private:
  Store& store_;
};
