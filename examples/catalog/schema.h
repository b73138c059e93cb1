#pragma once

#include <string>

namespace backup {
class Store;
}

constexpr long long schema_version = 4;

/// Throws std::runtime_error with a text for the user when the catalogue at `address` has another version.
void check_version(long long version, std::string const& address);

/// True for a version that `upgrade_schema` brings forward.
bool is_older(long long version);
/// Brings the tables of an older catalogue, or of one whose upgrade did not come to its end, to this version. Throws
/// Store_Error.
void upgrade_schema(backup::Store& store);

/// Creates those of the catalogue's tables that are not there:
///
///   hosts  a machine, by name
///   runs   one indexing of a directory of a host; `ended` is null while it is running, and if it died; `left_out`
///          counts what could not be read or stored
///   files  what a run found; `retired` says since when a file is no longer wanted, null for one that is
///
/// Keys are uuids of 16 bytes; a column that refers to one ends in "_uuid", by which filter documents know it. Times
/// are POSIX seconds, `retired` the text YYYY-MM-DD hh:mm:ss in UTC, names and paths the bytes they are. Files are
/// indexed by run, by name and, where they have one, by the time since when they are retired: docs/performance.md says
/// why by nothing else. Throws Store_Error.
void create_schema(backup::Store& store);
