#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "file.h"
#include "output.h"
#include "request.h"

/// The rows wanted of `find_files`, and their order. What is not set here is as a request has it.
struct File_Query {
  std::optional<std::string> name;  ///< a part of the name
  std::optional<long long> min_size;
  std::optional<File_Kind> kind;
  std::optional<std::string> host;
  std::vector<std::string> sort;   ///< names of `file_columns()`
  std::vector<std::string> order;  ///< "asc" or "desc" for each sort key; ascending beyond the list
  std::optional<long long> limit;
  std::optional<long long> offset;
};

/// The columns of the statements below, in the order of their result.
Columns const& file_columns();
Columns const& run_columns();
Columns const& total_columns();
Columns const& change_columns();

/// A page of files, and all files of which it is one, to be counted.
struct File_Statements {
  Select_SQL page;
  Select_SQL all;
};

/// Files with the host they were found on, by path unless otherwise wanted, 20 to a page. Equal rows in the wanted
/// order come by path, so that pages never overlap. `request` must outlive the statements; what became of its keys goes
/// to `outcomes`. Throws Misuse for a request that `add_request` refuses, and for more orders than sort keys.
File_Statements find_files(File_Query const& query, Request const& request, SQL::Database_Type db,
                           Key_Outcomes& outcomes);
/// The ids of the files that meet a request, of those that are retired or of those that are not. The rest is as above;
/// the request's controls do not count.
Select_SQL find_ids(Request const& request, SQL::Database_Type db, bool retired, Key_Outcomes& outcomes);
/// The files that the run `to` has and the run `from` has not, by path; `word` says so in the first column.
void find_added(Select_SQL& files, SQL::Database_Type db, char const* word, std::string const& from,
                std::string const& to);
/// Runs, oldest first, those of the same second by directory.
Select_SQL list_runs();
/// Number and size of the files of each host and kind, over all runs. No database sums up the sizes of all files in 64
/// bits: the bytes are a sum of their upper 32 bits, one more column has that of the lower ones, and `with_whole_sum`
/// makes the two of a row one.
Select_SQL file_totals();
backup::Store::Row with_whole_sum(backup::Store::Row row);
