#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "backup/store/store_export.h"
#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql.h"

namespace backup {

/// An error of the database or the store. `what()` holds the driver's message, its code and the statement's text, never
/// a bound value: general words replace a message that may quote one.
class BACKUP_STORE_API Store_Error : public std::runtime_error {
public:
  Store_Error(std::string const& message, int code, std::string const& statement);
  Store_Error(Store_Error const&) noexcept = default;
  ~Store_Error() override;

  /// The driver's code; 0 when the store itself refused.
  int code() const noexcept { return code_; }
  /// The error without the statement, for users of a program.
  std::string const& message() const noexcept { return texts_->message; }
  /// The text of the statement, with its parameter marks; empty when there was none.
  std::string const& statement() const noexcept { return texts_->statement; }

private:
  struct Texts {
    std::string message;
    std::string statement;
  };

  int code_;
  std::shared_ptr<Texts const> texts_;  // copying an exception must not throw
};

/// Runs rendered statements on one connection to a real database. Used by one thread at a time.
///
///     SQLite_Store store("shop.db");
///     Select_SQL cheap("item", nullptr);
///     cheap.add_key("name", nullptr).and_filter()->add_kv_item(Item_SQL::OP_LT, "price", 100, 0);
///     for (Store::Row const& row : store.rows(cheap)) std::cout << row[0].val().get_str() << '\n';
///     store.transact([&] { store.run("DELETE FROM item"); });
///
/// The store renders a statement for its own dialect and binds the values by name or by position. Where the driver
/// allows it, it keeps the prepared statement and uses it again for the same text. A parameter without a value is an
/// error, and nothing runs. A value that the text does not name is an error BY_NAME and is left out BY_POSITION.
/// Missing memory throws std::bad_alloc, every other failure a Store_Error.
///
/// Null, integers, reals, texts and bytes are stored as such; texts and bytes have any length and may hold zero bytes.
/// Secret kinds are stored like plain ones, booleans as 1 and 0, objects and arrays as compact JSON text. Values come
/// back as null, integer, real, text or bytes.
class BACKUP_STORE_API Store {
public:
  enum Binding_Mode { BY_NAME, BY_POSITION };

  using Row = std::vector<Binding_Value>;
  /// Called for each row, with the values in column order; the row is valid during the call. False stops the statement,
  /// an exception passes through. The callback must not use the store: that is an error.
  using Row_Callback = std::function<bool(Row const& row)>;

  Store(Store const&) = delete;
  Store& operator=(Store const&) = delete;
  virtual ~Store();

  virtual SQL::Database_Type dialect() const = 0;

  /// What an error of this store means for another attempt.
  enum Failure {
    CONFLICT,       ///< another transaction was in the way; run again, the whole transaction may succeed
    REFUSED_VALUE,  ///< a value that the database never takes: too long, out of range, against a constraint
    OTHER_FAILURE
  };
  virtual Failure failure(Store_Error const& error) const = 0;

  /// Runs `work` as one transaction and commits it. After a CONFLICT, rolls back and runs `work` again, ten times in
  /// all with growing pauses, so `work` must set anew what it changes outside the database. Any other error rolls back
  /// and passes through, and so does the tenth CONFLICT.
  void transact(std::function<void()> const& work);

  /// Runs a statement and returns the number of rows it inserted, changed or deleted.
  unsigned long long run(SQL const& statement, Binding_Mode mode = BY_NAME);
  /// Runs one statement text without parameters, for schemas and settings.
  unsigned long long run(std::string const& text);

  /// Streams the result rows, one in memory at a time, and returns the column names.
  std::vector<std::string> query(SQL const& statement, Row_Callback const& callback, Binding_Mode mode = BY_NAME);
  std::vector<std::string> query(std::string const& text, Row_Callback const& callback);
  /// All result rows; for results known to be small.
  std::vector<Row> rows(SQL const& statement, Binding_Mode mode = BY_NAME);
  /// The number that the statement's count query gives.
  unsigned long long count(SQL const& statement, Binding_Mode mode = BY_NAME);

  /// One run of one statement.
  struct Command {
    std::string text;
    /// The values of its parameters: a list gives them by position, a map by name.
    std::variant<std::vector<Binding_Value>, Bindings> values;
    /// Empty: the store does not read the rows' values from the driver.
    Row_Callback on_row;
  };
  /// The result of a run.
  struct Result {
    unsigned long long changed = 0;    ///< rows inserted, changed or deleted
    std::vector<std::string> columns;  ///< names; none when the statement returns no rows
  };

protected:
  Store();

private:
  friend class Transaction;

  /// Runs a command on the store's database; all functions above end here. `command` outlives the call, so its values
  /// are bound without a copy.
  virtual Result execute(Command const& command) = 0;
  /// As the database itself last answered.
  virtual bool in_transaction() const = 0;

  /// `execute`; an error from a row callback, and after the database has ended the open Transaction.
  Result perform(Command const& command);

  bool has_transaction_ = false;
  bool is_running_ = false;
};

/// A transaction from construction to `commit()`; the destructor rolls back what is not committed. Transactions do not
/// nest: a second one is an error.
///
/// No statement may begin or end a transaction itself: on MariaDB the store does not notice a text that does both at
/// once (BEGIN, COMMIT AND CHAIN).
///
/// A database may end a transaction: MariaDB rolls back to resolve a deadlock and commits before a statement that
/// changes the schema, SQLite rolls back when its disk is full. Each later statement is then an error and is not
/// committed alone.
///
/// A database may ask at any time to run a transaction again: `Store::transact` does so.
///
/// On MariaDB others may change what a transaction has read before it writes. On SQLite a transaction is the only
/// writer from its beginning.
class BACKUP_STORE_API Transaction {
public:
  explicit Transaction(Store& store);
  Transaction(Transaction const&) = delete;
  Transaction& operator=(Transaction const&) = delete;
  /// Rolls back what was not committed. When that fails, the database rolls back at the end of the connection.
  ~Transaction();

  /// After a failure the transaction is still open, and the destructor rolls it back.
  void commit();

private:
  Store& store_;
  bool open_;
};

}  // namespace backup
