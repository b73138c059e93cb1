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
/// Brings the tables of an older catalogue, or of one upgraded only in part, to this version. Throws Store_Error.
void upgrade_schema(backup::Store& store);

/// Creates the missing tables of the catalogue:
///
///   hosts  a machine, by name
///   runs   one indexing of a directory of a host; `ended` is null while it runs, and when it died; `left_out`
///          counts what could not be read or stored
///   files  what a run found; `retired` says since when a file is no longer wanted, null for the others
///
/// Keys are uuids of 16 bytes. A column that refers to one ends in "_uuid": so filter documents recognise it. Times are
/// POSIX seconds, except `retired`, the text YYYY-MM-DD hh:mm:ss in UTC. Names and paths are stored byte for byte.
/// Files are indexed by run, by name and, if they are retired, by that time. Throws Store_Error.
void create_schema(backup::Store& store);
