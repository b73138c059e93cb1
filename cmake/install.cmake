include(CMakePackageConfigHelpers)
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/backup_sql")
install(EXPORT backup_sql_targets NAMESPACE backup:: DESTINATION "${package_dir}")
configure_package_config_file(cmake/backup_sql-config.cmake.in "${PROJECT_BINARY_DIR}/backup_sql-config.cmake"
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/backup_sql-config-version.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/backup_sql-config.cmake" "${PROJECT_BINARY_DIR}/backup_sql-config-version.cmake"
              cmake/FindACE.cmake
        DESTINATION "${package_dir}")
