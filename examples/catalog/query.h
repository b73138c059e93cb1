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
  Read_Options read;
  File_Query query;
  bool explain = false;
};

/// The commands that read: each writes its answer to the standard output.
void find(Find_Options const& options);
void stats(Read_Options const& options);
void runs(Read_Options const& options);
