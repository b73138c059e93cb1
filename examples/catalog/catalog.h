#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "file.h"
#include "rising_ids.h"

class SQL;
class Select_SQL;
namespace backup {
class Store;
}

/// A file that the database does not take.
struct Refused_File {
  std::size_t index;  ///< in the list of files
  std::string reason;
};

/// Changes a catalogue. Each call is one transaction, which runs again after a conflict with another one; after an
/// exception nothing of it is kept. All calls lock a run's row before its files.
class Catalog {
public:
  /// `store` holds the schema and outlives this object.
  explicit Catalog(backup::Store& store);

  /// Returns the new run's id. The host is added when it is new.
  Binding_Value start_run(std::string const& host, std::string const& directory, long long time);
  /// Adds files, and stores how many were left out until now. Returns, in order, the files that could not be added.
  std::vector<Refused_File> add_files(Binding_Value const& run, std::vector<File> const& files,
                                      unsigned long long left_out);
  void end_run(Binding_Value const& run, bool complete, unsigned long long left_out, long long time);
  // `add_files` and `end_run` throw std::runtime_error with a text for the user when the run was dropped meanwhile.

  /// Deletes a run and its files; `run` is the text of its id. Returns the number of files, none when there is no such
  /// run. Throws std::runtime_error with a text for the user when the run has not ended, unless `force` is set.
  std::optional<unsigned long long> drop_run(std::string const& run, bool force);

  /// Mark files as no longer wanted, or delete them. `files` selects their ids. Both return the number of files.
  unsigned long long retire(Select_SQL const& files, long long time);
  unsigned long long remove(Select_SQL const& files);

private:
  void insert(Binding_Value const& run, std::vector<File> const& files, std::size_t begin, std::size_t end,
              std::vector<Refused_File>& refused);
  unsigned long long run_alone(SQL const& statement);

  backup::Store& store_;
  Rising_Ids ids_;                // of files
  std::size_t const most_bytes_;  // of a statement
};
