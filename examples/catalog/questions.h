#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "file.h"
#include "output.h"

/// The rows wanted of `find_files`, and their order.
struct File_Query {
  std::optional<std::string> name;  ///< a part of the name, ASCII letters in either case
  std::optional<long long> min_size;
  std::optional<File_Kind> kind;
  std::optional<std::string> host;
  std::vector<std::string> sort{"path"};  ///< names of `file_columns()`
  std::vector<std::string> order;         ///< "asc" or "desc" for each of `sort`; ascending beyond the list
  long long limit = 20;
  long long offset = 0;
};

/// The columns of the three statements below, in the order of their result.
Columns const& file_columns();
Columns const& run_columns();
Columns const& total_columns();

/// Files with the host they were found on. Equal rows in the wanted order come by path, so that pages never overlap.
Select_SQL find_files(File_Query const& query);
/// Runs, oldest first, those of the same second by directory.
Select_SQL list_runs();
/// Number and size of the files of each host and kind, over all runs.
Select_SQL file_totals();
