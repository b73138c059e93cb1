#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "file.h"
#include "output.h"
#include "request.h"

/// The wanted rows of `find_files` and their order. The request decides what is not set here.
struct File_Query {
  std::optional<std::string> name;  ///< a part of the name
  std::optional<long long> min_size;
  std::optional<File_Kind> kind;
  std::optional<std::string> host;
  std::vector<std::string> sort;   ///< names of `file_columns()`
  std::vector<std::string> order;  ///< "asc" or "desc" for each sort key; further keys ascend
  std::optional<long long> limit;
  std::optional<long long> offset;
};

/// The columns of the statements below, in the order of their result.
Columns const& file_columns();
Columns const& run_columns();
Columns const& total_columns();
Columns const& change_columns();

/// A page of files, and all files without paging, to be counted.
struct File_Statements {
  Select_SQL page;
  Select_SQL all;
};

/// Files with their host, by path unless another order is wanted, 20 to a page. Rows that are equal in the wanted order
/// come by path, so pages never overlap. `request` must outlive the statements; `outcomes` gets what became of its
/// keys. Throws Misuse for a request that `add_request` refuses, and for more orders than sort keys.
File_Statements find_files(File_Query const& query, Request const& request, SQL::Database_Type db,
                           Key_Outcomes& outcomes);
/// The ids of the files that meet a request, only the retired ones or only the others. Ignores the request's controls;
/// else as above.
Select_SQL find_ids(Request const& request, SQL::Database_Type db, bool retired, Key_Outcomes& outcomes);
/// The files that the run `to` has and the run `from` has not, compared by path; `word` stands in the first column.
void find_added(Select_SQL& files, SQL::Database_Type db, char const* word, std::string const& from,
                std::string const& to);
/// Runs, oldest first, those of the same second by directory.
Select_SQL list_runs();
/// Number and size of the files of each host and kind, over all runs. The sum of all sizes may need more than 64 bits:
/// so the bytes are a sum of the sizes' upper 32 bits, and one more column is a sum of the lower ones. `with_whole_sum`
/// adds up the two of a row.
Select_SQL file_totals();
backup::Store::Row with_whole_sum(backup::Store::Row row);
