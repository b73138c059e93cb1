# What the targets of this project share: warnings, include root, install rules.
include_guard(GLOBAL)

# Installed libraries and programs find the libraries they need by their own place, so an install tree can be anywhere.
file(RELATIVE_PATH libs_from_programs "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${libs_from_programs}")

add_library(backup_warnings INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(backup_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion $<$<BOOL:${BACKUP_WERROR}>:-Werror>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  # What sanitizers add to the code makes g++ see uninitialised values in the standard library's own headers.
  target_compile_options(backup_warnings INTERFACE -Wno-maybe-uninitialized)
endif()

# backup_library(NAME EXPORT_DEFINE HEADERS headers... SOURCES sources...): one shared library under src/. The headers are
# its public ones: checked to compile alone, and installed with their folders.
function(backup_library name define)
  cmake_parse_arguments(arg "" "" "HEADERS;SOURCES" ${ARGN})
  add_library(${name} SHARED ${arg_SOURCES})
  add_library(backup::${name} ALIAS ${name})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src" FILES ${arg_HEADERS})
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_compile_definitions(${name} PRIVATE ${define})
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:backup_warnings>)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # Functions are looked up at the start: at a first call it would leave copies of registers on the stack, secrets too.
    target_link_options(${name} PRIVATE LINKER:-z,relro,-z,now)
    # A library calls its own functions directly, as a DLL does: no program can put another in their place.
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)
    target_link_options(${name} PRIVATE LINKER:-Bsymbolic-functions)
  endif()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION}
                                           SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                                           VERIFY_INTERFACE_HEADER_SETS ON)
  install(TARGETS ${name} EXPORT backup_sql_targets FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
