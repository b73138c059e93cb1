#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <vector>

#include "backup/store/store.h"

enum class Format { table, json, csv };

/// What the values of a column mean, and so how they are written. A number above 2^63-1 comes as the text of its
/// digits, and stays a text in JSON.
enum class Cell { text, number, kind, time, uuid };

/// A column of a result: its SQL expression, its name in the statement and in the output, its meaning.
struct Column {
  char const* expression;
  char const* name;
  Cell cell;
};
using Columns = std::vector<Column>;

/// Writes a page of rows. Times are UTC.
///
///   table  columns, each 1,000 rows aligned as they come, then "21-40 of 1,234"; names with control characters are
///          written as `printable` has them
///   json   one object with total, offset and rows; bytes that are no UTF-8 become U+FFFD, characters that harm a
///          terminal are escaped. A row a line, `most_held_rows` at the end of the page, more of them as they come
///   csv    RFC 4180, a header line first; names are written byte for byte, to a terminal as `printable` has them. A
///          row a line, as it comes
class Page_Writer {
public:
  virtual ~Page_Writer() = default;
  /// `values` in the order of the columns.
  virtual void row(backup::Store::Row const& values) = 0;
  virtual void end() = 0;
};

constexpr std::size_t most_held_rows = 1000;

/// Tells how many rows there are without paging, given the number of those that the page has had.
using Total = std::function<unsigned long long(unsigned long long rows)>;

/// `total` is asked once and only where the total is shown: in a table after all rows are written, in JSON before the
/// first one is; `offset`: rows before the page; `is_terminal`: `out` is one. `out` and `columns` outlive the writer.
std::unique_ptr<Page_Writer> page_writer(Format format, std::ostream& out, bool is_terminal, Columns const& columns,
                                         Total total, unsigned long long offset);
