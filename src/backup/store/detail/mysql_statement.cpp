#include "backup/store/detail/mysql_statement.h"

#include <mysqld_error.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "backup/store/detail/driver.h"
#include "backup/store/detail/mysql_binder.h"
#include "backup/store/detail/mysql_column.h"
#include "backup/store/detail/mysql_error.h"
#include "backup/store/detail/mysql_text.h"
#include "backup/store/detail/parameters.h"

namespace backup {

namespace {

// Rows that come within this time are cheaper to read than to cancel.
constexpr std::chrono::milliseconds patience(10);

MySQL_Statement_Cache::Prepared prepare(MYSQL* db, std::string const& text) {
  MySQL_Text const marked = mark_names(text);
  MySQL_Statement_Cache::Prepared prepared{text, {}, marked.parameters};
  MYSQL_STMT* const statement = or_no_memory(mysql_stmt_init(db));
  prepared.handle.reset(statement);
  if (mysql_stmt_prepare(statement, marked.text.data(), static_cast<unsigned long>(marked.text.size())) != 0) {
    fail_mysql(mysql_stmt_error(statement), mysql_stmt_errno(statement), text);
  }
  prepared.parameters.places = mysql_stmt_param_count(statement);
  return prepared;
}

// True for a SELECT, which can be cancelled anywhere; cancelling a statement that changes rows undoes the changes.
bool only_reads(std::string const& text) {
  std::string_view rest(text);
  rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\r("), rest.size()));
  auto const end = std::find_if_not(rest.begin(), rest.end(), is_name_byte);
  return is_word(rest.substr(0, static_cast<std::size_t>(end - rest.begin())), "select");
}

// The client library's form of `elements`; it points into them.
template <class Elements>
std::vector<MYSQL_BIND> bound(Elements& elements) {
  std::vector<MYSQL_BIND> binds;
  binds.reserve(elements.size());
  for (auto& element : elements) binds.push_back(element.bound());
  return binds;
}

// A statement with the values of one run. Unless the run comes to its end, the statement is closed, and the connection
// is free for the next one.
class Running_Statement {
public:
  Running_Statement(MySQL_Connection const& connection, MySQL_Statement_Cache& cache, Store::Command const& command)
      : connection_(connection), cache_(cache), command_(command), node_(cache.take(command.text)) {
    if (node_.empty()) node_.push_back(prepare(connection.get(), command.text));
    statement_ = node_.front().handle.get();
  }

  Store::Result run() {
    Store::Result result;
    bind();
    result.columns = execute();
    if (!columns_.empty()) read_rows();
    result.changed = finish();
    return result;
  }

private:
  void bind() {
    Parameters const& parameters = node_.front().parameters;
    binders_ = std::vector<MySQL_Binder>(parameters.places);
    bind_all(command_, parameters,
             [this](std::size_t place, Binding_Value const& value) { hand_over(value, json_texts_, binders_[place]); });
    std::vector<MYSQL_BIND> binds = bound(binders_);
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
    columns_ = std::vector<MySQL_Column>(fields, fields + count);
    std::vector<MYSQL_BIND> binds = bound(columns_);
    check(mysql_stmt_bind_result(statement_, binds.data()) == 0);
    for (unsigned int i = 0; i < count; ++i) names.emplace_back(fields[i].name, fields[i].name_length);
    return names;
  }

  void read_rows() {
    Store::Row row;
    try {
      while (fetch()) {
        if (!command_.on_row) continue;
        read(row);
        if (!command_.on_row(row)) return drop_rest();
      }
    } catch (...) {
      if (has_row_) drop_rest_unheard();
      throw;
    }
  }

  // Ends the statement after its last row. Returns the number of changed rows.
  unsigned long long finish() {
    if (is_cancelled_) return 0;
    unsigned long long const changed = columns_.empty() ? mysql_stmt_affected_rows(statement_) : 0;
    check(mysql_stmt_free_result(statement_) == 0);
    while (mysql_stmt_more_results(statement_) != 0) {
      check(mysql_stmt_next_result(statement_) == 0 && mysql_stmt_free_result(statement_) == 0);
    }
    // A kept statement that returns rows would fail, after it has run, once their columns have changed.
    if (columns_.empty() && MySQL_Statement_Cache::keeps(command_.text)) cache_.put_back(node_);
    return changed;
  }

  // True when there is a row to read, false at the end.
  bool fetch() {
    int const result = mysql_stmt_fetch(statement_);
    has_row_ = result == 0 || result == MYSQL_DATA_TRUNCATED;
    check(has_row_ || result == MYSQL_NO_DATA);
    return has_row_;
  }

  void read(Store::Row& row) {
    row.resize(columns_.size());
    for (unsigned int i = 0; i < columns_.size(); ++i) check(columns_[i].read(statement_, i, row[i]));
  }

  // Reads the unwanted rest to its end. When that takes long, tries once to cancel it.
  void drop_rest() {
    using Clock = std::chrono::steady_clock;
    Clock::time_point const enough = Clock::now() + patience;
    bool may_cancel = only_reads(command_.text);
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

  // `drop_rest` during another exception.
  void drop_rest_unheard() {
    try {
      drop_rest();
    } catch (Store_Error const&) {
      // The caller gets the first error.
    }
  }

  void check(bool went_well) {
    if (went_well) return;
    // The driver reports errors of fetching for the connection only.
    bool const is_statement = mysql_stmt_errno(statement_) != 0;
    MYSQL* const db = connection_.get();
    unsigned int const code = is_statement ? mysql_stmt_errno(statement_) : mysql_errno(db);
    std::string const message = is_statement ? mysql_stmt_error(statement_) : mysql_error(db);
    bool const has_values = node_.front().parameters.places > 0;
    fail_mysql(has_values ? mysql_message_without_values(message, code) : message, code, command_.text);
  }

  MySQL_Connection const& connection_;
  MySQL_Statement_Cache& cache_;
  Store::Command const& command_;
  MySQL_Statement_Cache::Node node_;
  MYSQL_STMT* statement_ = nullptr;
  bool has_row_ = false;
  bool is_cancelled_ = false;
  std::vector<MySQL_Binder> binders_;
  std::vector<MySQL_Column> columns_;
  JSON_Texts json_texts_;
};

}  // namespace

Store::Result run_statement(MySQL_Connection const& connection, MySQL_Statement_Cache& cache,
                            Store::Command const& command) {
  return Running_Statement(connection, cache, command).run();
}

}  // namespace backup
