#pragma once

#include <string>

#include "backup/runtime/runtime_export.h"

/// The time `seconds` after 1970-01-01T00:00:00Z, in UTC, written by a strftime `pattern`; "%Y-%m-%d %H:%M:%S" gives
/// "2026-01-31 23:59:59". Negative seconds give times before 1970. Empty for a null or empty pattern, and when the
/// year, or the year less 1900, does not fit an int. Uses the proleptic Gregorian calendar without leap seconds on
/// every platform.
BACKUP_RUNTIME_API std::string POSIX_Time_To_ISO8601(long long seconds, char const* pattern);
