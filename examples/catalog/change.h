#pragma once

#include <string>

#include "request.h"

struct Change_Options {
  std::string store;
  Request_Source request;
  bool all = false;  ///< a request may be without conditions
};

/// The commands that change files: `retire` marks the files that meet the request and are not retired yet, `purge`
/// deletes the retired files that meet it. Each writes the number of files to the standard output.
///
/// Both throw Misuse, with nothing changed, when a key of the request is not plainly a condition: with fewer conditions
/// the request finds more files. They also throw it for a request without conditions, unless `all` is set.
void retire(Change_Options const& options);
void purge(Change_Options const& options);
