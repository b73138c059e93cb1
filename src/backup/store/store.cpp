#include "backup/store/store.h"

#include <cstddef>

#include "backup/store/detail/backoff.h"

namespace backup {

namespace {

constexpr std::size_t shown_characters = 500;
constexpr int most_attempts = 10;

// `text`, or its beginning and its size when it is long; no UTF-8 character is cut in two.
std::string shorten(std::string const& text) {
  if (text.size() <= shown_characters) return text;
  std::size_t end = shown_characters;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end) + "... (" + std::to_string(text.size()) + " bytes)";
}

// <message>[ in: <statement>]
std::string error_text(std::string const& message, std::string const& statement) {
  return statement.empty() ? shorten(message) : shorten(message) + " in: " + shorten(statement);
}

Store::Command render(SQL const& statement, SQL::Database_Type db, Store::Binding_Mode mode, bool count) {
  Store::Command command;
  auto const write = [&](auto& values) {
    count ? statement.get_count_sql(db, command.text, values) : statement.get_sql(db, command.text, values);
  };
  try {
    if (mode == Store::BY_NAME) {
      write(command.values.emplace<Bindings>());
    } else {
      write(command.values.emplace<std::vector<Binding_Value>>());
    }
  } catch (std::length_error const&) {
    throw Store_Error("more names are bound than the text can hold", 0, command.text);
  }
  return command;
}

bool is_count(Store::Row const& row) {
  if (row.size() != 1 || row.front().type() != Binding_Value::int_type) return false;
  json_spirit::Value const& number = row.front().val();
  return number.is_uint64() || number.get_int64() >= 0;
}

char const* begin_text(SQL::Database_Type db) {
  // When the first change after a read takes the lock, it fails at once instead of waiting for another writer.
  return db == SQL::DB_SQLITE ? "BEGIN IMMEDIATE" : "START TRANSACTION";
}

}  // namespace

Store_Error::Store_Error(std::string const& message, int code, std::string const& statement)
    : std::runtime_error(error_text(message, statement)),
      code_(code),
      texts_(std::make_shared<Texts const>(Texts{message, statement})) {}

Store_Error::~Store_Error() = default;

Store::Store() = default;
Store::~Store() = default;

Store::Result Store::perform(Command const& command) {
  if (has_transaction_ && !in_transaction()) {
    throw Store_Error("the transaction is over: rolled back by the database, or committed by a statement in it", 0,
                      command.text);
  }
  if (is_running_) throw Store_Error("the store is used from its own row callback", 0, command.text);
  struct Running {
    explicit Running(bool& is_running) : flag(is_running) { flag = true; }
    ~Running() { flag = false; }
    bool& flag;
  } const running(is_running_);
  return execute(command);
}

unsigned long long Store::run(SQL const& statement, Binding_Mode mode) {
  return perform(render(statement, dialect(), mode, false)).changed;
}

unsigned long long Store::run(std::string const& text) { return perform({text, {}, nullptr}).changed; }

std::vector<std::string> Store::query(SQL const& statement, Row_Callback const& callback, Binding_Mode mode) {
  Command command = render(statement, dialect(), mode, false);
  command.on_row = callback;
  return perform(command).columns;
}

std::vector<std::string> Store::query(std::string const& text, Row_Callback const& callback) {
  return perform({text, {}, callback}).columns;
}

std::vector<Store::Row> Store::rows(SQL const& statement, Binding_Mode mode) {
  std::vector<Row> all;
  auto const keep = [&all](Row const& row) {
    all.push_back(row);
    return true;
  };
  query(statement, keep, mode);
  return all;
}

unsigned long long Store::count(SQL const& statement, Binding_Mode mode) {
  Command command = render(statement, dialect(), mode, true);
  Row number;
  command.on_row = [&number](Row const& row) {
    number = row;
    return false;
  };
  perform(command);
  if (!is_count(number)) throw Store_Error("the count query does not give one number", 0, command.text);
  return number.front().val().get_uint64();
}

void Store::transact(std::function<void()> const& work) {
  Backoff backoff;
  for (int attempt = 1;; ++attempt) {
    try {
      Transaction transaction(*this);
      work();
      return transaction.commit();
    } catch (Store_Error const& error) {
      if (attempt == most_attempts || failure(error) != CONFLICT) throw;
    }
    backoff.pause();
  }
}

Transaction::Transaction(Store& store) : store_(store), open_(false) {
  if (store_.in_transaction()) throw Store_Error("a transaction is open already", 0, "");
  store_.run(begin_text(store_.dialect()));
  open_ = store_.has_transaction_ = true;
}

Transaction::~Transaction() {
  if (!open_) return;
  store_.has_transaction_ = false;
  try {
    if (store_.in_transaction()) store_.run("ROLLBACK");
  } catch (std::exception const&) {
    // The database rolls back when the connection closes.
  }
}

void Transaction::commit() {
  store_.run("COMMIT");
  open_ = store_.has_transaction_ = false;
}

}  // namespace backup
