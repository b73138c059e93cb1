#pragma once

#include <string>

#include "output.h"
#include "questions.h"

/// The options of all commands that read a catalogue.
struct Read_Options {
  std::string store;
  Format format = Format::table;
};

struct Find_Options {
  Read_Options read;  ///< `explain_find` does not use it
  File_Query query;
  Request_Source request;
  bool explain = false;
  bool lenient = false;  ///< lists files also when no part of the request can be used
};

struct Changes_Options {
  Read_Options read;
  std::string from;
  std::string to;
};

/// The commands that read. Each writes its answer to the standard output and reads no further when that fails; the
/// caller reports the failure. The first two throw Misuse for a request that cannot be read. `find` reports on the
/// standard error stream what it could not use of a request. When that is all of it, `find` throws Misuse, unless
/// `lenient` is set. With `explain` set it is `explain_find`.
void find(Find_Options const& options);
/// Writes the statements of `find` instead, see `explain`.
void explain_find(Find_Options const& options);
/// Lists the files that the run `to` found and `from` did not, and the other way round. Throws std::runtime_error when
/// one of the runs does not exist.
void changes(Changes_Options const& options);
void stats(Read_Options const& options);
void runs(Read_Options const& options);
