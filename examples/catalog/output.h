#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <vector>

#include "backup/store/store.h"

enum class Format { table, json, csv };

/// The meaning of a column's values, which decides how they are written. A number above 2^63-1 comes as the text of its
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
///   table  columns, aligned and written 1,000 rows at a time, then "21-40 of 1,234"; `printable` writes names with
///          control characters
///   json   one object with total, offset and rows; bytes that are no UTF-8 become U+FFFD, characters that harm a
///          terminal are escaped. One row per line. Up to `most_held_rows` rows are written at the end of the page; of
///          a longer page each row is written as it comes
///   csv    RFC 4180, a header line first; names are written byte for byte, to a terminal by `printable`. One row per
///          line, written as it comes
class Page_Writer {
public:
  virtual ~Page_Writer() = default;
  /// `values` in the order of the columns.
  virtual void row(backup::Store::Row const& values) = 0;
  virtual void end() = 0;
};

constexpr std::size_t most_held_rows = 1000;

/// Returns how many rows there are without paging; `rows` is the number of those that the page has had.
using Total = std::function<unsigned long long(unsigned long long rows)>;

/// Calls `total` once, and only to show the total: in a table after all rows are written, in JSON before the first.
/// `offset`: rows before the page; `is_terminal`: `out` is a terminal. `out` and `columns` outlive the writer.
std::unique_ptr<Page_Writer> page_writer(Format format, std::ostream& out, bool is_terminal, Columns const& columns,
                                         Total total, unsigned long long offset);
