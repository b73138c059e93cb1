#pragma once

#include "open_store.h"

/// `open_store` for a file.
std::unique_ptr<backup::Store> open_sqlite_catalog(std::string const& file, Access access);
