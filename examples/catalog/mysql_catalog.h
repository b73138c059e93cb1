#pragma once

#include "open_store.h"

/// `open_store` for a database on a server. The database must be there: making one is its administrator's business.
std::unique_ptr<backup::Store> open_mysql_catalog(std::string const& url, Access access);
