#include "store_error.h"

#include "backup/store/mysql_store.h"
#include "backup/store/store.h"

namespace {

struct Advice {
  int code;
  char const* text;
};

constexpr char const* wait = "it is in use by another process: try again later";

// By SQLite's primary codes.
constexpr Advice sqlite_advice[] = {
    {5, wait},
    {6, wait},
    {8, "the file and its directory must be writable"},
    {10, "the disk fails or is full, or the file is gone"},
    {11, "the file is damaged: take a copy of it that is not"},
    {13, "make room on its disk"},
    {14, "the directory must be there, and be writable to make the file"},
    {26, "'catalog index DIR --store STORE' makes a catalogue in a new file or an empty database"},
};

constexpr Advice mysql_advice[] = {
    {1021, "make room on the server's disk"},
    {1044, "the user needs rights on the database"},
    {1045, "the password is the environment's MYSQL_PWD"},
    {1049, "make the database, then 'catalog index DIR --store STORE' makes the catalogue in it"},
    {1114, "make room on the server's disk"},
    {1142, "the user needs rights on the database"},
    {1205, wait},
    {1213, "try again"},
    {2002, "does the server run there?"},
    {2003, "does the server run there?"},
    {2005, "the name of the host is unknown"},
    {2006, "the connection is lost: try again"},
    {2013, "the connection is lost: try again"},
};

template <class Table>
char const* find(Table const& table, int code) {
  for (Advice const& advice : table) {
    if (advice.code == code) return advice.text;
  }
  return nullptr;
}

}  // namespace

std::string store_error_text(std::string const& address, backup::Store_Error const& error) {
  // An error without a statement comes from opening. It names the store already, or keeps it out on purpose.
  std::string text = error.statement().empty() ? error.message() : address + ": " + error.message();
  bool const is_server = backup::MySQL_Store::is_url(address);
  char const* const advice = is_server ? find(mysql_advice, error.code()) : find(sqlite_advice, error.code() & 0xFF);
  return advice == nullptr ? text : text + "; " + advice;
}
