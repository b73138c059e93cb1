#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "file.h"

class Select_SQL;
class Store;

/// What changes a catalogue. Each call is one transaction; after a Store_Error nothing of it is kept.
class Catalog {
public:
  /// `store` holds the schema and outlives this object.
  explicit Catalog(Store& store);

  /// Returns the new run's id. The host is added when it is new.
  Binding_Value start_run(std::string const& host, std::string const& directory, long long time);
  void add_files(Binding_Value const& run, std::vector<File> const& files);
  void end_run(Binding_Value const& run, bool complete, long long time);

  /// Deletes a run, by its id's text, and its files. The number of files; none when there is no such run.
  std::optional<unsigned long long> drop_run(std::string const& run);

  /// Mark files as no longer wanted, and delete them. `files` selects their ids. The number of files.
  unsigned long long retire(Select_SQL const& files, long long time);
  unsigned long long remove(Select_SQL const& files);

private:
  Store& store_;
};
