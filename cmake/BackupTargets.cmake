# What every target of this project shares: warnings, include root, visibility, install rules.
include_guard(GLOBAL)

add_library(backup_warnings INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(backup_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion $<$<BOOL:${BACKUP_WERROR}>:-Werror>)
endif()

# backup_library(NAME EXPORT_DEFINE headers... SOURCES sources...): one shared library under src/, its headers checked to
# compile alone and installed with their folder.
function(backup_library name define)
  cmake_parse_arguments(arg "" "" "HEADERS;SOURCES" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  add_library(backup::${name} ALIAS ${name})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src" FILES ${arg_HEADERS})
  target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>"
                                            "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_compile_definitions(${name} PRIVATE ${define})
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:backup_warnings>)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                           VERIFY_INTERFACE_HEADER_SETS ON)
  install(TARGETS ${name} EXPORT backup_sql_targets FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
