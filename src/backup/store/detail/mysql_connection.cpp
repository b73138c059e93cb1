#include "backup/store/detail/mysql_connection.h"

#include <mysqld_error.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "backup/store/detail/driver.h"
#include "backup/store/detail/mysql_error.h"

namespace backup {

namespace {

constexpr unsigned int connect_seconds = 10;
constexpr char const* charset = "utf8mb4";
constexpr char const* required_modes[] = {"NO_BACKSLASH_ESCAPES", "STRICT_ALL_TABLES"};
constexpr char const* server_and_id = "CONCAT_WS(' ',@@hostname,@@port,@@socket,@@datadir,@@server_id),CONNECTION_ID()";

MySQL_Result run_plain(MYSQL* db, std::string const& text) {
  if (mysql_real_query(db, text.data(), static_cast<unsigned long>(text.size())) != 0) {
    fail_mysql(mysql_error(db), mysql_errno(db), text);
  }
  MySQL_Result result(mysql_store_result(db));
  if (result == nullptr && mysql_errno(db) != 0) fail_mysql(mysql_error(db), mysql_errno(db), text);
  return result;
}

// The only row of a query's result, NULL as an empty text.
std::vector<std::string> row_of(MYSQL* db, std::string const& query) {
  MySQL_Result const result = run_plain(db, query);
  std::vector<std::string> cells(mysql_num_fields(or_no_memory(result.get())));
  char const* const* const row = mysql_fetch_row(result.get());
  for (std::size_t i = 0; row != nullptr && i < cells.size(); ++i) {
    if (row[i] != nullptr) cells[i] = row[i];
  }
  return cells;
}

// True when the comma-separated list holds the word.
bool has_word(std::string const& list, std::string const& word) {
  return (',' + list + ',').find(',' + word + ',') != std::string::npos;
}

void set_session(MYSQL* db) {
  // A server's settings may overrule the handshake.
  if (mysql_set_character_set(db, charset) != 0) fail_mysql(mysql_error(db), mysql_errno(db), "");
  std::string modes;
  for (char const* const mode : required_modes) modes += std::string(mode) + ',';
  // Another mode replaces EMPTY_STRING_IS_NULL: in that mode an empty text here would be null.
  run_plain(db, "SET SESSION sql_mode=REPLACE(CONCAT('" + modes + "',@@SESSION.sql_mode),'EMPTY_STRING_IS_NULL','" +
                    required_modes[0] + "'),time_zone='+00:00',autocommit=1");
  std::string const set = row_of(db, "SELECT @@SESSION.sql_mode").front();
  for (char const* const mode : required_modes) {
    if (!has_word(set, mode)) throw Store_Error(std::string("the server does not set the SQL mode ") + mode, 0, "");
  }
}

void set_options(MYSQL* db, bool has_socket) {
  my_bool const no = 0;
  unsigned int const off = 0;
  unsigned int const protocol = has_socket ? MYSQL_PROTOCOL_SOCKET : MYSQL_PROTOCOL_TCP;
  mysql_optionsv(db, MYSQL_SET_CHARSET_NAME, charset);
  mysql_optionsv(db, MYSQL_OPT_PROTOCOL, &protocol);
  mysql_optionsv(db, MYSQL_OPT_CONNECT_TIMEOUT, &connect_seconds);
  mysql_optionsv(db, MYSQL_OPT_RECONNECT, &no);
  mysql_optionsv(db, MYSQL_OPT_LOCAL_INFILE, &off);  // else the server could ask for any file of this machine
}

char const* or_null(std::string const& text) { return text.empty() ? nullptr : text.c_str(); }

MySQL_Handle connect(MySQL_URL const& url, Secure_String const& password) {
  MySQL_Handle db(or_no_memory(mysql_init(nullptr)));
  set_options(db.get(), !url.socket.empty());
  MYSQL const* const connected =
      mysql_real_connect(db.get(), or_null(url.host), or_null(url.user), password.c_str(), or_null(url.database),
                         url.port, or_null(url.socket), CLIENT_FOUND_ROWS);
  if (connected == nullptr) fail_mysql(mysql_error(db.get()), mysql_errno(db.get()), "");
  return db;
}

MySQL_URL parse(std::string const& url) {
  try {
    return parse_mysql_url(url);
  } catch (std::runtime_error const& error) {
    throw Store_Error(std::string("cannot read the URL of the database: ") + error.what(), 0, "");
  }
}

}  // namespace

MySQL_Connection::MySQL_Connection(std::string const& url, Secure_String const& password) : url_(parse(url)) {
  try {
    db_ = connect(url_, password);
    set_session(db_.get());
    std::vector<std::string> const self = row_of(db_.get(), std::string("SELECT ") + server_and_id);
    server_ = self[0];
    if (self[1] == std::to_string(mysql_thread_id(db_.get()))) id_ = self[1];
  } catch (Store_Error const& error) {
    throw Store_Error("cannot open '" + url + "': " + error.message(), error.code(), "");
  }
  password_ = password;  // from here on the destructor wipes it
}

MySQL_Connection::~MySQL_Connection() { secure_wipe(password_); }

unsigned int MySQL_Connection::status() const {
  unsigned int status = 0;
  mariadb_get_infov(db_.get(), MARIADB_CONNECTION_SERVER_STATUS, &status);
  return status;
}

MySQL_Result MySQL_Connection::run(std::string const& text) const { return run_plain(db_.get(), text); }

bool MySQL_Connection::cancel() const {
  bool is_sent = false;
  try {
    MySQL_Handle const other = connect(url_, password_);
    std::vector<std::string> const its = row_of(other.get(), std::string("SELECT ") + server_and_id);
    // Another server may answer under the same name, where the number belongs to another connection.
    bool const is_same = its[0] == server_ && its[1] == std::to_string(mysql_thread_id(other.get()));
    is_sent = is_same && !id_.empty();
    if (is_sent) run_plain(other.get(), "KILL QUERY " + id_);
  } catch (std::exception const&) {
    // The caller reads the rows instead.
  }
  return is_sent;
}

void MySQL_Connection::settle() const {
  // A late cancellation may hit the first one.
  if (mysql_query(db_.get(), "DO 0") != 0 && mysql_errno(db_.get()) == ER_QUERY_INTERRUPTED) {
    mysql_query(db_.get(), "DO 0");
  }
}

}  // namespace backup
