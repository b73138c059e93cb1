#include "backup/store/sqlite_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "backup/store/detail/backoff.h"
#include "backup/store/detail/driver.h"
#include "backup/store/detail/parameters.h"
#include "backup/store/detail/statement_cache.h"

namespace backup {

namespace {

// LIKE recurses for each "%". A pattern of this length can make it do so half as often and take up to 350 KB of stack;
// SQLite's own limit of 50,000 takes 4 MB.
constexpr int longest_pattern = 4096;

struct Close {
  void operator()(sqlite3* db) const noexcept { sqlite3_close(db); }
};
struct Finalize {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Handle = std::unique_ptr<sqlite3_stmt, Finalize>;
using Cache = Statement_Cache<Handle>;
using Prepared = Cache::Prepared;

[[noreturn]] void fail(std::string const& message, int code, std::string const& text) {
  if ((code & 0xFF) == SQLITE_NOMEM) throw std::bad_alloc();
  throw Store_Error(with_code(message, "SQLite", code), code, text);
}

// Waits for a database that another connection holds.
class Lock_Wait {
public:
  Lock_Wait(std::string const& path, std::chrono::milliseconds limit) : path_(path), limit_(limit) {}
  Lock_Wait(Lock_Wait const&) = delete;
  Lock_Wait& operator=(Lock_Wait const&) = delete;

  void attach(sqlite3* db) {
    auto const wait = [](void* self, int times) { return static_cast<Lock_Wait*>(self)->wait(times == 0) ? 1 : 0; };
    sqlite3_busy_handler(db, wait, this);
  }

  // Called when a statement begins.
  void restart() noexcept { waited_ = {}; }

  std::string message() const {
    auto const tenths = std::chrono::duration_cast<std::chrono::milliseconds>(waited_).count() / 100;
    return "database '" + path_ + "' is locked by another connection, waited for " + std::to_string(tenths / 10) + '.' +
           std::to_string(tenths % 10) + " s";
  }

private:
  using Clock = std::chrono::steady_clock;

  // True when it is time to try again.
  bool wait(bool is_first) {
    if (is_first) {
      start_ = Clock::now();
      backoff_.restart();
    }
    waited_ = Clock::now() - start_;
    if (waited_ >= limit_) return false;
    backoff_.pause();
    return true;
  }

  std::string const path_;
  std::chrono::milliseconds const limit_;
  Clock::time_point start_;
  Clock::duration waited_{};
  Backoff backoff_;
};

bool is_locked(int code) { return (code & 0xFF) == SQLITE_BUSY; }

struct Link {
  sqlite3* db;
  Lock_Wait const& lock_wait;
};

[[noreturn]] void fail(Link const& link, char const* message, int code, std::string const& text) {
  fail(is_locked(code) ? link.lock_wait.message() : message, code, text);
}

// True when only blanks, comments and semicolons are left. SQLite's own parser would tell too, but it applies some
// settings while it parses.
bool is_blank(char const* text) {
  std::string_view rest(text);
  for (;;) {
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\f\r;"), rest.size()));
    if (rest.empty()) return true;
    bool const line = rest.substr(0, 2) == "--";
    if (!line && rest.substr(0, 2) != "/*") return false;
    std::size_t const end = rest.find(line ? "\n" : "*/", 2);
    if (end == std::string_view::npos) return true;
    rest.remove_prefix(end + (line ? 1 : 2));
  }
}

Handle compile(Link const& link, std::string const& text, bool keep) {
  std::size_t const zero = text.find('\0');
  if (zero != std::string::npos) throw Store_Error("zero byte at offset " + std::to_string(zero), 0, text);
  sqlite3_stmt* statement = nullptr;
  char const* tail = nullptr;
  int const code =
      sqlite3_prepare_v3(link.db, text.c_str(), -1, keep ? SQLITE_PREPARE_PERSISTENT : 0, &statement, &tail);
  if (code != SQLITE_OK) fail(link, sqlite3_errmsg(link.db), code, text);
  Handle handle(statement);
  if (!handle) throw Store_Error("empty statement", 0, text);
  if (!is_blank(tail)) throw Store_Error("more than one statement", 0, text);
  return handle;
}

// Binds without a copy: texts and bytes must live until the statement ends.
class Binder {
public:
  Binder(sqlite3_stmt* statement, std::size_t place) : statement_(statement), index_(static_cast<int>(place) + 1) {}

  void null() { check(sqlite3_bind_null(statement_, index_)); }
  void integer(long long value) { check(sqlite3_bind_int64(statement_, index_, value)); }
  void natural(unsigned long long value) {
    constexpr unsigned long long largest = std::numeric_limits<long long>::max();
    if (value > largest) throw Unfit_Value("unsigned integer above " + std::to_string(largest));
    integer(static_cast<long long>(value));
  }
  void real(double value) { check(sqlite3_bind_double(statement_, index_, value)); }
  void text(char const* data, std::size_t size) {
    check(sqlite3_bind_text64(statement_, index_, data, size, SQLITE_STATIC, SQLITE_UTF8));
  }
  void bytes(char const* data, std::size_t size) {
    check(sqlite3_bind_blob64(statement_, index_, data, size, SQLITE_STATIC));
  }

private:
  static void check(int code) {
    if (code == SQLITE_NOMEM) throw std::bad_alloc();
    if (code != SQLITE_OK) throw Unfit_Value(with_code(sqlite3_errstr(code), "SQLite", code), code);
  }

  sqlite3_stmt* statement_;
  int index_;
};

Prepared prepare(Link const& link, std::string const& text, bool keep) {
  Prepared prepared{text, compile(link, text, keep), {}};
  // The names are copied: SQLite searches all of them for one, and moves them when it compiles the text again after a
  // schema change.
  Parameters& parameters = prepared.parameters;
  parameters.places = static_cast<std::size_t>(sqlite3_bind_parameter_count(prepared.handle.get()));
  for (std::size_t place = 0; place < parameters.places; ++place) {
    char const* const name = sqlite3_bind_parameter_name(prepared.handle.get(), static_cast<int>(place) + 1);
    if (name != nullptr) parameters.names.emplace_back(name, place);
  }
  std::sort(parameters.names.begin(), parameters.names.end());
  return prepared;
}

// A statement with the values of one run. The destructor makes it ready for the next run and returns it to the cache.
class Running_Statement {
public:
  Running_Statement(Link const& link, Cache& cache, Store::Command const& command)
      : link_(link), cache_(cache), command_(command), keep_(Cache::keeps(command.text)) {
    if (keep_) node_ = cache_.take(command.text);
    if (node_.empty()) node_.push_back(prepare(link_, command.text, keep_));
    statement_ = node_.front().handle.get();
  }
  Running_Statement(Running_Statement const&) = delete;
  Running_Statement& operator=(Running_Statement const&) = delete;
  ~Running_Statement() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
    if (keep_) cache_.put_back(node_);
  }

  void bind() {
    bind_all(command_, node_.front().parameters, [this](std::size_t place, Binding_Value const& value) {
      Binder binder(statement_, place);
      hand_over(value, json_texts_, binder);
    });
  }

  // True when there is a row to read, false at the end.
  bool step() {
    int const code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) fail_step(code);
    return false;
  }

  // Ends the statement, also before its last row. Outside a transaction this commits its changes, which may fail.
  void finish() {
    int const code = sqlite3_reset(statement_);
    if (code != SQLITE_OK) fail_step(code);
  }

  // Valid only after the first step, which may compile the statement again.
  std::size_t column_count() const { return static_cast<std::size_t>(sqlite3_column_count(statement_)); }

  std::vector<std::string> column_names() const {
    std::vector<std::string> names(column_count());
    int column = 0;
    for (std::string& name : names) name = or_no_memory(sqlite3_column_name(statement_, column++));
    return names;
  }

  void read(Store::Row& row) {
    row.resize(column_count());
    int column = 0;
    for (Binding_Value& value : row) read(column++, value);
  }

private:
  void read(int column, Binding_Value& value) {
    switch (sqlite3_column_type(statement_, column)) {
      case SQLITE_INTEGER: value = static_cast<long long>(sqlite3_column_int64(statement_, column)); break;
      case SQLITE_FLOAT: value = sqlite3_column_double(statement_, column); break;
      case SQLITE_TEXT: value = characters(or_no_memory(sqlite3_column_text(statement_, column)), column); break;
      case SQLITE_BLOB:
        value = characters(sqlite3_column_blob(statement_, column), column);
        value.type(Binding_Value::bin_type);
        break;
      default: value = Binding_Value();
    }
  }

  // The text or bytes of the column, in a buffer that keeps its storage from row to row. SQLite gives a null pointer
  // for no bytes.
  std::string const& characters(void const* data, int column) {
    auto const size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    buffer_.assign(size == 0 ? "" : static_cast<char const*>(or_no_memory(data)), size);
    return buffer_;
  }

  // SQLite's functions quote their arguments ("JSON path error near 'x'"). With values bound, only two messages are
  // safe: that of a constraint, which names columns, and that of a text that no longer compiles, which knows no values.
  [[noreturn]] void fail_step(int code) {
    bool const may_quote = node_.front().parameters.places > 0 && (code & 0xFF) != SQLITE_CONSTRAINT;
    if (!may_quote) fail(link_, sqlite3_errmsg(link_.db), code, command_.text);
    compile(link_, command_.text, false);
    fail(link_, sqlite3_errstr(code), code, command_.text);
  }

  Link link_;
  Cache& cache_;
  Store::Command const& command_;
  bool keep_;
  Cache::Node node_;
  sqlite3_stmt* statement_ = nullptr;
  JSON_Texts json_texts_;
  std::string buffer_;
};

int open_flags(SQLite_Store::Open_Mode mode) {
  int const flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;  // a store is used by one thread at a time
  if (mode == SQLite_Store::OPEN_READ_ONLY) return flags | SQLITE_OPEN_READONLY;
  return flags | SQLITE_OPEN_READWRITE | (mode == SQLite_Store::OPEN_OR_CREATE ? SQLITE_OPEN_CREATE : 0);
}

// Why a missing file was not created. SQLite tries a second time without creating it, and reports only that failure.
int creation_error(std::string const& file) {
  std::filesystem::path const directory = std::filesystem::path(file).parent_path();
  return faccessat(AT_FDCWD, directory.empty() ? "." : directory.c_str(), W_OK, AT_EACCESS) == 0 ? ENOENT : errno;
}

// <SQLite's message>[: <the system's message>]
std::string open_error(sqlite3* db, int code, std::string const& file, SQLite_Store::Open_Mode mode) {
  std::string const message = sqlite3_errmsg(db);
  bool const is_system = (code & 0xFF) == SQLITE_CANTOPEN || (code & 0xFF) == SQLITE_IOERR;
  int cause = is_system ? sqlite3_system_errno(db) : 0;
  if (cause == ENOENT && mode == SQLite_Store::OPEN_OR_CREATE) cause = creation_error(file);
  return cause == 0 ? message : message + ": " + std::system_category().message(cause);
}

// SQLite would wait for the other end of a pipe, and report an I/O error for a directory.
bool is_other_than_file(std::string const& path) {
  std::error_code ignored;
  auto const status = std::filesystem::status(path, ignored);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

Database open_database(std::string const& path, SQLite_Store::Open_Mode mode, Lock_Wait& lock_wait) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    throw Store_Error("cannot open a database whose path is empty or holds a zero byte", 0, "");
  }
  std::string const place = "cannot open database '" + path + "': ";
  // A path that begins like a URI is still a path, even where SQLite is built to read URIs.
  std::string const file = path.compare(0, 5, "file:") == 0 ? "./" + path : path;
  if (file != ":memory:" && is_other_than_file(file)) throw Store_Error(place + "not a regular file", 0, "");
  sqlite3* handle = nullptr;
  int code = sqlite3_open_v2(file.c_str(), &handle, open_flags(mode), nullptr);
  Database db(handle);
  if (code == SQLITE_OK) {
    lock_wait.attach(handle);
    sqlite3_limit(handle, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, longest_pattern);
    // The second setting is in the file: this is the first read of it.
    code = sqlite3_exec(handle, "PRAGMA foreign_keys=ON;PRAGMA schema_version", nullptr, nullptr, nullptr);
  }
  if (is_locked(code)) fail(lock_wait.message(), code, "");
  if (code != SQLITE_OK) fail(place + open_error(handle, code, file, mode), code, "");
  if (mode != SQLite_Store::OPEN_READ_ONLY && sqlite3_db_readonly(handle, "main") == 1) {
    throw Store_Error(place + "it cannot be written", 0, "");
  }
  return db;
}

}  // namespace

struct SQLite_Store::Connection {
  Connection(std::string const& path, Open_Mode mode, std::chrono::milliseconds wait)
      : lock_wait(path, wait), db(open_database(path, mode, lock_wait)) {}

  Lock_Wait lock_wait;
  Database db;
  Cache cache;  // destroyed before the database
};

SQLite_Store::SQLite_Store(std::string const& path, Open_Mode mode, std::chrono::milliseconds wait)
    : connection_(std::make_unique<Connection>(path, mode, wait)) {}

SQLite_Store::~SQLite_Store() = default;

SQL::Database_Type SQLite_Store::dialect() const { return SQL::DB_SQLITE; }

Store::Failure SQLite_Store::failure(Store_Error const& error) const {
  switch (error.code() & 0xFF) {
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG: return REFUSED_VALUE;
    default: return OTHER_FAILURE;
  }
}

bool SQLite_Store::in_transaction() const { return sqlite3_get_autocommit(connection_->db.get()) == 0; }

Store::Result SQLite_Store::execute(Command const& command) {
  sqlite3* const db = connection_->db.get();
  sqlite3_int64 const changes_before = sqlite3_total_changes64(db);
  connection_->lock_wait.restart();
  Running_Statement statement({db, connection_->lock_wait}, connection_->cache, command);
  statement.bind();
  bool more = statement.step();
  Result result;
  result.columns = statement.column_names();
  Row row;
  while (more) {
    if (command.on_row) {
      statement.read(row);
      if (!command.on_row(row)) break;
    }
    more = statement.step();
  }
  statement.finish();
  // After a statement that changes no row, SQLite still gives the number of the one before.
  bool const changed = sqlite3_total_changes64(db) != changes_before;
  if (changed) result.changed = static_cast<unsigned long long>(sqlite3_changes64(db));
  return result;
}

}  // namespace backup
