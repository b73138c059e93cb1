# Finds MariaDB Connector/C, which brings no package file of its own. Defines the target MariaDB::Client.
find_path(MARIADB_INCLUDE_DIR mysql.h PATH_SUFFIXES mariadb mysql)
find_library(MARIADB_LIBRARY NAMES mariadb libmariadb)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MariaDB REQUIRED_VARS MARIADB_LIBRARY MARIADB_INCLUDE_DIR)
if(MariaDB_FOUND AND NOT TARGET MariaDB::Client)
  add_library(MariaDB::Client UNKNOWN IMPORTED)
  set_target_properties(MariaDB::Client PROPERTIES IMPORTED_LOCATION "${MARIADB_LIBRARY}"
                                                   INTERFACE_INCLUDE_DIRECTORIES "${MARIADB_INCLUDE_DIR}")
endif()
mark_as_advanced(MARIADB_INCLUDE_DIR MARIADB_LIBRARY)
