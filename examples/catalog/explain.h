#pragma once

#include <iosfwd>

class SQL;

/// Writes the texts of a statement and of its count query, for MySQL and for SQLite: with named parameters, then with
/// positional ones, the values below each.
void explain(SQL const& statement, std::ostream& out);
