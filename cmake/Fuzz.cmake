# Instruments everything that is built for libFuzzer, with the address and undefined-behaviour sanitizers.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "BACKUP_FUZZ needs clang++, which brings libFuzzer; this is ${CMAKE_CXX_COMPILER}")
endif()
# RapidJSON adds to the null pointer that its empty stack begins at: harmless, and not this project's to mend.
add_compile_options(-O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined
                    -fno-sanitize=pointer-overflow -fno-sanitize-recover=all)
add_link_options(-fsanitize=address,undefined)
