#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "backup/store/store.h"
#include "backup/store/store_export.h"

namespace backup {

/// A database of the embedded SQLite library: a file, or ":memory:".
///
/// SQLite has no unsigned 64-bit integer and stores a NaN as NULL, so the store refuses a value above 2^63-1 and a NaN.
/// A LIKE pattern of more than 4,096 bytes is an error too ("SQL logic error"): SQLite needs more stack for a longer
/// pattern. Foreign keys are enforced. The store refuses the path of a directory, a pipe or another file that is not
/// regular.
///
/// A database has one writer at a time, and a writer cannot commit while another connection reads. Each statement waits
/// for its turn, by default for a minute. Then it fails with SQLite's code 5, and the message names the database and
/// the time waited. So keep transactions short, and do not pass rows to a slow reader while their query is open.
///
/// SQLite's cost of named parameters grows with the square of their number: run a statement of some thousand values
/// BY_POSITION.
class BACKUP_STORE_API SQLite_Store : public Store {
public:
  enum Open_Mode {
    OPEN_OR_CREATE,
    OPEN_READ_WRITE,  ///< an error when the file is missing
    OPEN_READ_ONLY    ///< an error when the file is missing
  };

  static constexpr std::chrono::milliseconds default_wait{60'000};

  /// When another connection holds the database, this call and each statement wait up to `wait`; 0: not at all. Throws
  /// Store_Error when the file cannot be opened or is no database.
  explicit SQLite_Store(std::string const& path, Open_Mode mode = OPEN_OR_CREATE,
                        std::chrono::milliseconds wait = default_wait);
  ~SQLite_Store() override;

  SQL::Database_Type dialect() const override;
  /// Never CONFLICT: each statement has already waited for a locked database.
  Failure failure(Store_Error const& error) const override;

private:
  struct Connection;

  Result execute(Command const& command) override;
  bool in_transaction() const override;

  std::unique_ptr<Connection> connection_;
};

}  // namespace backup
