#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backup/store/store.h"
#include "backup/store/store_export.h"

/// A database of the embedded SQLite library: a file, or ":memory:".
///
/// SQLite has no unsigned 64-bit integer and stores a NaN as NULL: a value above 2^63-1 and a NaN are refused with an
/// error rather than changed. A LIKE pattern of more than 4,096 bytes is refused too ("SQL logic error"), for SQLite's
/// stack grows with a pattern. Foreign keys are enforced. The store waits up to 5 seconds for a database that another
/// process has locked.
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

  /// Throws Store_Error when the file cannot be opened or is no database.
  explicit SQLite_Store(std::string const& path, Open_Mode mode = OPEN_OR_CREATE);
  ~SQLite_Store() override;

  SQL::Database_Type dialect() const override;

private:
  struct Connection;

  unsigned long long execute(std::string const& text, Bindings const* bindings,
                             std::vector<Binding_Value> const& values, Row_Callback const& callback,
                             std::vector<std::string>* columns) override;
  bool in_transaction() const override;

  std::unique_ptr<Connection> connection_;
};
