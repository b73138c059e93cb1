#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "backup/store/store.h"
#include "backup/store/store_export.h"

namespace backup {

/// A database of the embedded SQLite library: a file, or ":memory:".
///
/// SQLite has no unsigned 64-bit integer and stores a NaN as NULL: a value above 2^63-1 and a NaN are refused with an
/// error rather than changed. A LIKE pattern of more than 4,096 bytes is refused too ("SQL logic error"), for SQLite's
/// stack grows with a pattern. Foreign keys are enforced. A path to what is no regular file, a directory or a pipe, is
/// refused.
///
/// A database has one writer at a time, and none commits while another reads. Each statement waits for its turn, for a
/// minute unless the constructor is told otherwise. Then comes an error, SQLite's code 5, that names the database and
/// tells how long it was waited for. So keep transactions short, and no query open while its rows go to someone slow.
///
/// SQLite's cost of named parameters grows with the square of their number: a statement of some thousand values is
/// better run BY_POSITION.
class BACKUP_STORE_API SQLite_Store : public Store {
public:
  enum Open_Mode {
    OPEN_OR_CREATE,
    OPEN_READ_WRITE,  ///< an error when the file is missing
    OPEN_READ_ONLY    ///< an error when the file is missing
  };

  static constexpr std::chrono::milliseconds default_wait{60'000};

  /// Waits up to `wait` when another connection holds the database, here and in each statement; 0: not at all. Throws
  /// Store_Error when the file cannot be opened or is no database.
  explicit SQLite_Store(std::string const& path, Open_Mode mode = OPEN_OR_CREATE,
                        std::chrono::milliseconds wait = default_wait);
  ~SQLite_Store() override;

  SQL::Database_Type dialect() const override;
  /// Never CONFLICT: a database that stays locked has been waited for.
  Failure failure(Store_Error const& error) const override;

private:
  struct Connection;

  Result execute(Command const& command) override;
  bool in_transaction() const override;

  std::unique_ptr<Connection> connection_;
};

}  // namespace backup
