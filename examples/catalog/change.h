#pragma once

#include <string>

#include "request.h"

struct Change_Options {
  std::string store;
  Request_Source request;
  bool all = false;  ///< a request without conditions is meant so
};

/// The commands that change files: `retire` marks those that meet the request and are not retired yet, `purge` deletes
/// those that meet it and are. Each writes their number to the standard output.
///
/// Both throw Misuse, with nothing changed, when the request has a key that is not plainly a condition, for what is
/// left out of a request widens it; or no condition at all and `all` is not set.
void retire(Change_Options const& options);
void purge(Change_Options const& options);
