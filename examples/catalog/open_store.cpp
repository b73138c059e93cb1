#include "open_store.h"

#include "backup/store/store.h"
#include "mysql_catalog.h"
#include "sqlite_catalog.h"

std::unique_ptr<Store> open_store(std::string const& address, Access access) {
  bool const is_url = address.compare(0, 8, "mysql://") == 0;
  return is_url ? open_mysql_catalog(address, access) : open_sqlite_catalog(address, access);
}
