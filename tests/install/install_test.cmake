# Installs the build tree, builds the README's first program from the install tree alone, and runs it. Also fails when
# the README shows another program, CMakeLists.txt or output, and when a project that adds this one as a part asks for
# packages that the library does not need.
set(prefix "${WORK_DIR}/prefix")
set(first_program_dir "${SOURCE_DIR}/examples/first_program")
file(READ "${SOURCE_DIR}/README.md" readme)

function(expect_in_readme language text)
  string(FIND "${readme}" "```${language}\n${text}```\n" position)
  if(position EQUAL -1)
    message(SEND_ERROR "README.md lacks this block of ${language}:\n${text}")
  endif()
endfunction()

file(READ "${first_program_dir}/first_program.cpp" program)
expect_in_readme(cpp "${program}")
file(READ "${first_program_dir}/CMakeLists.txt" project)
expect_in_readme(cmake "${project}")

file(REMOVE_RECURSE "${WORK_DIR}")
set(run_or_fail COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" --config "${CONFIG}"
                OUTPUT_QUIET ${run_or_fail})
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}/consumer" -B "${WORK_DIR}/build" -G "${GENERATOR}"
                        "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
                        "-DCMAKE_BUILD_TYPE=${CONFIG}" "-DINCLUDE_DIR=${prefix}/include"
                        "-DFIRST_PROGRAM_DIR=${first_program_dir}" ${run_or_fail})
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/build" --config "${CONFIG}" ${run_or_fail})
execute_process(COMMAND "${WORK_DIR}/build/first_program/first_program" OUTPUT_VARIABLE output ${run_or_fail})
expect_in_readme(text "${output}")

set(needless)
foreach(package IN ITEMS CLI11 GTest MariaDB SQLite3)
  list(APPEND needless "-DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON")
endforeach()
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}/part" -B "${WORK_DIR}/part" -G "${GENERATOR}"
                        "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DPART_DIR=${SOURCE_DIR}" ${needless} OUTPUT_QUIET ${run_or_fail})
