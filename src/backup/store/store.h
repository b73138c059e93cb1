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

/// What went wrong on the database. `what()` holds the driver's message, its code and the statement's text; a bound
/// value never, so a message that might quote one is replaced by the driver's general words for the code.
class BACKUP_STORE_API Store_Error : public std::runtime_error {
public:
  Store_Error(std::string const& message, int code, std::string const& statement);
  Store_Error(Store_Error const&) noexcept = default;
  ~Store_Error() override;

  /// The driver's code; 0 when the store itself refused.
  int code() const noexcept { return code_; }
  /// What went wrong, without the statement: for users of a program, whom a statement tells nothing.
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
/// Statements are rendered for the store's own dialect and their values are bound, by name or by position; prepared
/// statements are kept where the driver allows it, and used again for the same text. A parameter without a value is
/// an error and nothing is run; a value that the text does not name is one BY_NAME, and left out BY_POSITION. Every
/// failure is a Store_Error, but for want of memory (std::bad_alloc).
///
/// Values go in as their own kind: null, integers, reals, texts and bytes of any length with zero bytes, secret kinds
/// like plain ones; booleans as 1 and 0; objects and arrays as compact JSON text. They come back as null, integer,
/// real, text or bytes.
class BACKUP_STORE_API Store {
public:
  enum Binding_Mode { BY_NAME, BY_POSITION };

  using Row = std::vector<Binding_Value>;
  /// Called for each row, with the values in column order; the row is valid during the call. False stops the statement,
  /// what it throws passes through. It must not use the store, which refuses that.
  using Row_Callback = std::function<bool(Row const& row)>;

  Store(Store const&) = delete;
  Store& operator=(Store const&) = delete;
  virtual ~Store();

  virtual SQL::Database_Type dialect() const = 0;

  /// What an error of this store's tells about the next attempt.
  enum Failure {
    CONFLICT,       ///< another transaction stood in the way: the whole transaction may succeed when it is run again
    REFUSED_VALUE,  ///< a value that the database never takes: too long, out of range, against a constraint
    OTHER_FAILURE
  };
  virtual Failure failure(Store_Error const& error) const = 0;

  /// Runs `work`, all of one transaction, and commits it. After a CONFLICT it is rolled back and runs again, ten times
  /// in all with growing pauses between, so what `work` leaves outside the database it makes anew each time. Any other
  /// error rolls back and passes through, as does the tenth CONFLICT.
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

  /// One run of one statement, as a database is asked for it.
  struct Command {
    std::string text;
    /// The values of its parameters: a list gives them by position, a map by name.
    std::variant<std::vector<Binding_Value>, Bindings> values;
    /// Empty: nobody looks at the rows, so they are not even read from the driver.
    Row_Callback on_row;
  };
  /// What came of it.
  struct Result {
    unsigned long long changed = 0;    ///< rows inserted, changed or deleted
    std::vector<std::string> columns;  ///< names; none when the statement returns no rows
  };

protected:
  Store();

private:
  friend class Transaction;

  /// The one way to a database, which each store has its own of: all functions above make a command and come here.
  /// `command` lives until it is through, so its values are bound where they are.
  virtual Result execute(Command const& command) = 0;
  /// As the database itself last said.
  virtual bool in_transaction() const = 0;

  /// `execute`, unless a Transaction is open here that the database has ended, or a row callback asks for it.
  Result perform(Command const& command);

  bool has_transaction_ = false;
  bool is_running_ = false;
};

/// A transaction from construction to `commit()`; destroyed before that, it is rolled back. They do not nest: a second
/// one is an error.
///
/// Nothing else may begin or end one: on MariaDB a text that does both at once (BEGIN, COMMIT AND CHAIN) goes
/// unnoticed.
///
/// A database may end one by itself: MariaDB rolls back to resolve a deadlock and commits before a statement that
/// changes the schema, SQLite rolls back when its disk is full. Statements that follow are errors then, rather than
/// each committed alone.
///
/// `Store::transact` is the same for work that can run again, which a database may ask for at any time.
///
/// On MariaDB others may change what a transaction has read before it writes. On SQLite a transaction is the only
/// writer from its beginning.
class BACKUP_STORE_API Transaction {
public:
  explicit Transaction(Store& store);
  Transaction(Transaction const&) = delete;
  Transaction& operator=(Transaction const&) = delete;
  /// Rolls back what was not committed; a failure to do so is left to the database, which rolls back with the
  /// connection.
  ~Transaction();

  /// After a failure the transaction is still open and is rolled back at the end.
  void commit();

private:
  Store& store_;
  bool open_;
};

}  // namespace backup
