# Included at the end of project() by scripts/check-macos: every target is
# compiled as usual, but linking only touches the output, since the
# dependencies' libraries are Linux's and libstdc++'s, not the target's.
foreach(rule CREATE_SHARED_LIBRARY CREATE_SHARED_MODULE CREATE_STATIC_LIBRARY LINK_EXECUTABLE)
  set(CMAKE_CXX_${rule} "${CMAKE_COMMAND} -E touch <TARGET>")
endforeach()
# Nothing built here can run: tests are listed when ctest runs, never.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
# The dependencies' headers come from the check's own include folder; Linux's
# /usr/include must never reach a compile for another system.
list(APPEND CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)
# The finders look for this machine's libraries: they are found, never linked.
if(CMAKE_CROSSCOMPILING)
  set(CMAKE_FIND_LIBRARY_PREFIXES lib)
  set(CMAKE_FIND_LIBRARY_SUFFIXES .so .a)
  execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE CMAKE_LIBRARY_ARCHITECTURE
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
