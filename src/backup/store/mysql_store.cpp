#include "backup/store/mysql_store.h"

#include <errmsg.h>
#include <mysql.h>
#include <mysqld_error.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "backup/store/detail/mysql_connection.h"
#include "backup/store/detail/mysql_text.h"
#include "backup/store/detail/mysql_url.h"
#include "backup/store/detail/parameters.h"
#include "backup/store/detail/statement_cache.h"

namespace {

constexpr unsigned int binary_charset = 63;  // the number that MySQL gives to bytes
// The rest of a result that comes within it is cheaper to read than to cancel.
constexpr std::chrono::milliseconds patience(10);

struct Close_Statement {
  void operator()(MYSQL_STMT* statement) const noexcept { mysql_stmt_close(statement); }
};
using Handle = std::unique_ptr<MYSQL_STMT, Close_Statement>;

// What a failed statement with values says. Messages of the client, and those here, quote names at most; others quote
// the values ("Duplicate entry 'x'").
std::string without_values(char const* message, unsigned int code) {
  switch (code) {
    case ER_DUP_ENTRY: return "duplicate entry for a unique key";
    case ER_BAD_NULL_ERROR:
    case ER_CON_COUNT_ERROR:
    case ER_CONNECTION_KILLED:
    case ER_CONSTRAINT_FAILED:
    case ER_DATA_TOO_LONG:
    case ER_LOCK_DEADLOCK:
    case ER_LOCK_WAIT_TIMEOUT:
    case ER_NET_PACKET_TOO_LARGE:
    case ER_NO_DEFAULT_FOR_FIELD:
    case ER_NO_REFERENCED_ROW_2:
    case ER_OPTION_PREVENTS_STATEMENT:
    case ER_QUERY_INTERRUPTED:
    case ER_RECORD_FILE_FULL:
    case ER_ROW_IS_REFERENCED_2:
    case ER_SERVER_SHUTDOWN:
    case ER_STACK_OVERRUN_NEED_MORE:
    case ER_CANT_EXECUTE_IN_READ_ONLY_TRANSACTION:
    case ER_WARN_DATA_OUT_OF_RANGE: return message;
    default: return code >= CR_MIN_ERROR && code <= CR_MYSQL_LAST_ERROR ? message : "a value or its use is refused";
  }
}

// A value on its way to the server: numbers inside, texts and bytes where they are, which must live until the statement
// is through.
class Binder {
public:
  void null() { bind_.buffer_type = MYSQL_TYPE_NULL; }
  void integer(long long value) { number(MYSQL_TYPE_LONGLONG, value); }
  void natural(unsigned long long value) {
    number(MYSQL_TYPE_LONGLONG, value);
    bind_.is_unsigned = 1;
  }
  void real(double value) { number(MYSQL_TYPE_DOUBLE, value); }
  void text(char const* data, std::size_t size) { characters(MYSQL_TYPE_STRING, data, size); }
  void bytes(char const* data, std::size_t size) { characters(MYSQL_TYPE_BLOB, data, size); }

  // What the driver takes; it points into this object.
  MYSQL_BIND bound() {
    if (bind_.buffer == nullptr) bind_.buffer = number_.data();
    return bind_;
  }

private:
  template <class Number>
  void number(enum_field_types type, Number value) {
    static_assert(sizeof value == sizeof number_);
    std::memcpy(number_.data(), &value, sizeof value);
    bind_.buffer_type = type;
  }

  void characters(enum_field_types type, char const* data, std::size_t size) {
    bind_.buffer_type = type;
    bind_.buffer = const_cast<char*>(data);  // the driver reads it only
    bind_.buffer_length = static_cast<unsigned long>(size);
  }

  MYSQL_BIND bind_{};
  std::array<char, 8> number_{};
};

// One column of a result: where the driver puts its cells, and how they are taken.
class Cell {
public:
  explicit Cell(MYSQL_FIELD const& field) : is_unsigned_((field.flags & UNSIGNED_FLAG) != 0) {
    switch (field.type) {
      case MYSQL_TYPE_TINY:
      case MYSQL_TYPE_SHORT:
      case MYSQL_TYPE_INT24:
      case MYSQL_TYPE_LONG:
      case MYSQL_TYPE_LONGLONG:
      case MYSQL_TYPE_YEAR: kind_ = integer; break;
      case MYSQL_TYPE_FLOAT:
      case MYSQL_TYPE_DOUBLE: kind_ = real; break;
      case MYSQL_TYPE_NEWDECIMAL:
      case MYSQL_TYPE_DECIMAL: kind_ = field.decimals == 0 ? whole_decimal : text; break;
      case MYSQL_TYPE_DATE:
      case MYSQL_TYPE_TIME:
      case MYSQL_TYPE_DATETIME:
      case MYSQL_TYPE_TIMESTAMP:
      case MYSQL_TYPE_NULL: kind_ = text; break;
      default: kind_ = field.charsetnr == binary_charset ? bytes : text;
    }
  }

  MYSQL_BIND bound() {
    MYSQL_BIND bind{};
    bind.buffer_type = kind_ == integer ? MYSQL_TYPE_LONGLONG : kind_ == real ? MYSQL_TYPE_DOUBLE : MYSQL_TYPE_STRING;
    bind.is_unsigned = is_unsigned_ ? 1 : 0;
    bind.buffer = buffer_.data();
    bind.buffer_length = static_cast<unsigned long>(buffer_.size());
    bind.length = &size_;
    bind.is_null = &is_null_;
    bind.error = &is_cut_;
    return bind;
  }

  // The fetched cell of the column numbered `column`; false when the driver cannot give it.
  bool read(MYSQL_STMT* statement, unsigned int column, Binding_Value& value) {
    if (is_null_ != 0) {
      value = Binding_Value();
      return true;
    }
    switch (kind_) {
      case integer:
        value = is_unsigned_ ? Binding_Value(number<unsigned long long>()) : Binding_Value(number<long long>());
        return true;
      case real: value = number<double>(); return true;
      case text:
      case bytes:
      case whole_decimal: break;
    }
    if (size_ <= buffer_.size()) {
      characters_.assign(buffer_.data(), size_);
    } else if (!fetch_rest(statement, column)) {
      return false;
    }
    if (kind_ == whole_decimal && (read_as<long long>(value) || read_as<unsigned long long>(value))) return true;
    value = characters_;
    if (kind_ == bytes) value.type(Binding_Value::bin_type);
    return true;
  }

private:
  enum Kind { integer, real, whole_decimal, text, bytes };

  template <class Number>
  Number number() const {
    Number number;
    std::memcpy(&number, buffer_.data(), sizeof number);
    return number;
  }

  template <class Number>
  bool read_as(Binding_Value& value) const {
    Number number{};
    char const* const end = characters_.data() + characters_.size();
    auto const result = std::from_chars(characters_.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = number;
    return true;
  }

  // A cell larger than the buffer is copied a second time, whole.
  bool fetch_rest(MYSQL_STMT* statement, unsigned int column) {
    characters_.resize(size_);
    MYSQL_BIND whole{};
    whole.buffer_type = MYSQL_TYPE_STRING;
    whole.buffer = characters_.data();
    whole.buffer_length = size_;
    return mysql_stmt_fetch_column(statement, &whole, column, 0) == 0;
  }

  Kind kind_;
  bool is_unsigned_;
  my_bool is_null_ = 0;
  my_bool is_cut_ = 0;
  unsigned long size_ = 0;
  std::array<char, 256> buffer_;
  std::string characters_;  // keeps its storage from row to row
};

struct Prepared {
  std::string text;
  Handle handle;
  Parameters parameters;
};

Prepared prepare(MYSQL* db, std::string const& text) {
  MySQL_Text const marked = mark_names(text);
  Prepared prepared{text, Handle(or_no_memory(mysql_stmt_init(db))), marked.parameters};
  MYSQL_STMT* const statement = prepared.handle.get();
  if (mysql_stmt_prepare(statement, marked.text.data(), static_cast<unsigned long>(marked.text.size())) != 0) {
    fail_mysql(mysql_stmt_error(statement), mysql_stmt_errno(statement), text);
  }
  prepared.parameters.places = mysql_stmt_param_count(statement);
  return prepared;
}

using Cache = Statement_Cache<Prepared>;

// True for a SELECT, which can be stopped anywhere: what stops a statement that changes rows takes the changes back.
bool only_reads(std::string const& text) {
  std::string_view rest(text);
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\r("), rest.size()));
  auto const end = std::find_if_not(rest.begin(), rest.end(), is_name_byte);
  return is_word(rest.substr(0, static_cast<std::size_t>(end - rest.begin())), "select");
}

// A statement with the values of one run. One that does not come to its end is closed, which leaves the connection free
// for the next.
class Running_Statement {
public:
  Running_Statement(MySQL_Connection const& connection, Cache& cache, std::string const& text)
      : connection_(connection), cache_(cache), text_(text) {
    node_ = cache_.take(text);
    if (node_.empty()) node_.push_back(prepare(connection.get(), text));
    statement_ = node_.front().handle.get();
  }

  void bind(Bindings const* bindings, std::vector<Binding_Value> const& values) {
    binders_ = std::vector<Binder>(node_.front().parameters.places);
    auto const bind_one = [&](std::size_t place, Binding_Value const& value) {
      hand_over(value, json_texts_, binders_[place]);
    };
    bind_all(text_, node_.front().parameters, bindings, values, bind_one);
    std::vector<MYSQL_BIND> binds;
    binds.reserve(binders_.size());
    for (Binder& binder : binders_) binds.push_back(binder.bound());
    check(binds.empty() || mysql_stmt_bind_param(statement_, binds.data()) == 0);
  }

  // The names of the result's columns; none when the statement has no result.
  std::vector<std::string> execute() {
    check(mysql_stmt_execute(statement_) == 0);
    std::vector<std::string> names;
    if (mysql_stmt_field_count(statement_) == 0) return names;
    MySQL_Result const result(or_no_memory(mysql_stmt_result_metadata(statement_)));
    MYSQL_FIELD const* const fields = mysql_fetch_fields(result.get());
    unsigned int const count = mysql_num_fields(result.get());
    cells_ = std::vector<Cell>(fields, fields + count);
    std::vector<MYSQL_BIND> binds;
    binds.reserve(count);
    for (Cell& cell : cells_) binds.push_back(cell.bound());
    check(mysql_stmt_bind_result(statement_, binds.data()) == 0);
    for (unsigned int i = 0; i < count; ++i) names.emplace_back(fields[i].name, fields[i].name_length);
    return names;
  }

  // Calls `callback`, when set, for each row until it has enough.
  void read_rows(Store::Row_Callback const& callback) {
    Store::Row row;
    try {
      while (fetch()) {
        if (!callback) continue;
        read(row);
        if (!callback(row)) return drop_rest();
      }
    } catch (...) {
      if (has_row_) drop_rest_unheard();
      throw;
    }
  }

  // Ends it after its last row. The number of changed rows.
  unsigned long long finish() {
    if (is_cancelled_) return 0;
    unsigned long long const changed = cells_.empty() ? mysql_stmt_affected_rows(statement_) : 0;
    check(mysql_stmt_free_result(statement_) == 0);
    while (mysql_stmt_more_results(statement_) != 0) {
      check(mysql_stmt_next_result(statement_) == 0 && mysql_stmt_free_result(statement_) == 0);
    }
    // One that returns rows fails, after it has run, when their columns have changed since it was prepared.
    if (cells_.empty() && Cache::keeps(text_)) cache_.put_back(node_);
    return changed;
  }

private:
  // True when there is a row to read, false at the end.
  bool fetch() {
    int const result = mysql_stmt_fetch(statement_);
    has_row_ = result == 0 || result == MYSQL_DATA_TRUNCATED;
    check(has_row_ || result == MYSQL_NO_DATA);
    return has_row_;
  }

  void read(Store::Row& row) {
    row.resize(cells_.size());
    for (unsigned int i = 0; i < cells_.size(); ++i) check(cells_[i].read(statement_, i, row[i]));
  }

  // Reads to the end what nobody wants. When it takes long, the server is told to stop, once.
  void drop_rest() {
    using Clock = std::chrono::steady_clock;
    Clock::time_point const enough = Clock::now() + patience;
    bool may_cancel = only_reads(text_);
    try {
      while (fetch()) {
        if (!may_cancel || Clock::now() < enough) continue;
        may_cancel = false;
        is_cancelled_ = connection_.cancel();
      }
    } catch (Store_Error const& error) {
      if (is_cancelled_) connection_.settle();
      if (!is_cancelled_ || error.code() != ER_QUERY_INTERRUPTED) throw;
      return;
    }
    if (is_cancelled_) connection_.settle();
  }

  // The same where another error is under way.
  void drop_rest_unheard() {
    try {
      drop_rest();
    } catch (Store_Error const&) {
      // The first error is told.
    }
  }

  void check(bool went_well) {
    if (went_well) return;
    // What goes wrong while rows are fetched the driver tells of the connection only.
    bool const is_statement = mysql_stmt_errno(statement_) != 0;
    MYSQL* const db = connection_.get();
    unsigned int const code = is_statement ? mysql_stmt_errno(statement_) : mysql_errno(db);
    std::string message = is_statement ? mysql_stmt_error(statement_) : mysql_error(db);
    if (node_.front().parameters.places > 0) message = without_values(message.c_str(), code);
    fail_mysql(message, code, text_);
  }

  MySQL_Connection const& connection_;
  Cache& cache_;
  std::string const& text_;
  Cache::Node node_;
  MYSQL_STMT* statement_ = nullptr;
  bool has_row_ = false;
  bool is_cancelled_ = false;
  std::vector<Binder> binders_;
  std::vector<Cell> cells_;
  JSON_Texts json_texts_;
};

// What begins and ends a transaction, which not every server prepares.
bool is_control(std::string const& text) {
  return text == "START TRANSACTION" || text == "COMMIT" || text == "ROLLBACK";
}

}  // namespace

struct MySQL_Store::Connection {
  Connection(std::string const& url, Secure_String const& password) : db(url, password) {}

  MySQL_Connection db;
  Cache cache;  // goes before the database
};

MySQL_Store::MySQL_Store(std::string const& url, Secure_String const& password)
    : connection_(std::make_unique<Connection>(url, password)) {}

MySQL_Store::~MySQL_Store() = default;

bool MySQL_Store::is_url(std::string const& text) { return is_mysql_url(text); }

SQL::Database_Type MySQL_Store::dialect() const { return SQL::DB_MYSQL; }

Store::Failure MySQL_Store::failure(Store_Error const& error) const {
  switch (error.code()) {
    case ER_CHECKREAD:  // where a server compares a row with the transaction's snapshot
    case ER_LOCK_DEADLOCK:
    case ER_LOCK_WAIT_TIMEOUT: return CONFLICT;
    case ER_BAD_NULL_ERROR:
    case ER_CONSTRAINT_FAILED:
    case ER_DATA_TOO_LONG:
    case ER_DUP_ENTRY:
    case ER_TOO_BIG_ROWSIZE:
    case ER_TRUNCATED_WRONG_VALUE_FOR_FIELD:
    case ER_WARN_DATA_OUT_OF_RANGE: return REFUSED_VALUE;
    default: return OTHER_FAILURE;
  }
}

bool MySQL_Store::in_transaction() const { return (connection_->db.status() & SERVER_STATUS_IN_TRANS) != 0; }

unsigned long long MySQL_Store::execute(std::string const& text, Bindings const* bindings,
                                        std::vector<Binding_Value> const& values, Row_Callback const& callback,
                                        std::vector<std::string>* columns) {
  MySQL_Connection const& db = connection_->db;
  if ((db.status() & SERVER_STATUS_NO_BACKSLASH_ESCAPES) == 0) {
    throw Store_Error("the session has lost the SQL mode NO_BACKSLASH_ESCAPES", 0, text);
  }
  try {
    if (is_control(text)) {
      db.run(text);
      return 0;
    }
    Running_Statement statement(db, connection_->cache, text);
    statement.bind(bindings, values);
    std::vector<std::string> names = statement.execute();
    bool const has_rows = !names.empty();
    if (columns != nullptr) *columns = std::move(names);
    if (has_rows) statement.read_rows(callback);
    return statement.finish();
  } catch (...) {
    // What was left unread may have ended the transaction, and an error does not tell; the answer to a statement does.
    if (in_transaction()) db.settle();
    throw;
  }
}
