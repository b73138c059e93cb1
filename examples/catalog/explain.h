#pragma once

#include <iosfwd>

#include "questions.h"
#include "request.h"

/// Write what became of the keys of a request, and the texts of a statement and its count query for one database: with
/// named parameters, then with positional ones, each with its values below. `printable` writes texts and values.
void explain(Key_Outcomes const& outcomes, std::ostream& out);
void explain(File_Statements const& files, SQL::Database_Type db, std::ostream& out);
