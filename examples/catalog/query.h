#pragma once

#include <string>

#include "output.h"
#include "questions.h"

/// What the commands that read a catalogue have in common.
struct Read_Options {
  std::string store;
  Format format = Format::table;
};

struct Find_Options {
  Read_Options read;  ///< not for `explain_find`
  File_Query query;
  Request_Source request;
  bool explain = false;
  bool lenient = false;  ///< a request of which nothing can be used is no misuse
};

struct Changes_Options {
  Read_Options read;
  std::string from;
  std::string to;
};

/// The commands that read: each writes its answer to the standard output. The first two throw Misuse for a request
/// that cannot be read; `find` says on the standard error stream what it could not use of one, throws Misuse when that
/// is all of it, unless `lenient` is set, and with `explain` set is `explain_find`. When the standard output fails, the
/// rest is not read; that it failed is left to the caller.
void find(Find_Options const& options);
/// Writes the statements of `find` instead, see `explain`.
void explain_find(Find_Options const& options);
/// Lists the files that the run `to` found and `from` did not, and the other way round. Throws std::runtime_error
/// without such a run.
void changes(Changes_Options const& options);
void stats(Read_Options const& options);
void runs(Read_Options const& options);
