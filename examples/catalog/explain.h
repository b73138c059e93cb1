#pragma once

#include <iosfwd>

#include "request.h"

class SQL;

/// Writes what became of the keys of a request, then the texts of the statement and of its count query, for MySQL and
/// for SQLite: with named parameters, then with positional ones, the values below each. Texts and values are written as
/// `printable` has them.
void explain(Key_Outcomes const& outcomes, SQL const& statement, std::ostream& out);
