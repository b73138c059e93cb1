#pragma once

#include "open_store.h"

/// `open_store` for a database on a server. The database must exist: its administrator makes it.
std::unique_ptr<backup::Store> open_mysql_catalog(std::string const& url, Access access);
