# kvhttp_add_test_program(<name> SOURCES ... LIBRARIES ... LABEL <label> [TIMEOUT <seconds>] [ALONE])
# One GoogleTest program. ctest knows each of its tests. With ALONE each runs in a process of its own, because
# of what the product or the platform remembers for a process; without, those of one program share a few
# processes when ./test.sh runs all tests. The time-out is the net below the watchdog of the test programs
# (tests/support/Watchdog.h), which acts after 40 s and can say where a test hangs.
include(GoogleTest)
include(TestLinker)

# kvhttp_set_test_code(<target>...)
# What holds for all test code: most of its time goes into building it. So it is not optimised, unlike what it
# tests, gets the headers that nearly all of it includes from kvhttp_test_support, which compiles them once, and a
# quick linker.
function(kvhttp_set_test_code)
  foreach(target IN LISTS ARGN)
    if(NOT MSVC)
      target_compile_options(${target} PRIVATE -O0)
    endif()
    target_link_libraries(${target} PRIVATE kvhttp_test_linker)
    if(target STREQUAL kvhttp_test_support)
      target_precompile_headers(${target} PRIVATE
        <winsock2.h> <windows.h> <objbase.h> <oleauto.h> <wininet.h>
        <algorithm> <array> <atomic> <functional> <map> <memory> <optional> <string> <vector> <gmock/gmock.h>)
    else()
      target_precompile_headers(${target} REUSE_FROM kvhttp_test_support)
    endif()
  endforeach()
endfunction()

# kvhttp_read_unaligned(<source>...)
# For sources that read the import table: clang's linker puts its entries where the type's alignment does not hold.
function(kvhttp_read_unaligned)
  if(KVHTTP_TRAP_UNDEFINED)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -fno-sanitize=alignment)
  endif()
endfunction()

# kvhttp_tell_of_counted_lines(<target>)
# For tests of every call that the module makes: in a build that counts lines it makes calls of its own.
function(kvhttp_tell_of_counted_lines target)
  target_compile_definitions(${target} PRIVATE KVHTTP_COUNTS_LINES=$<BOOL:${KVHTTP_COVERAGE}>)
endfunction()

function(kvhttp_add_test_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "ALONE" "LABEL;TIMEOUT" "SOURCES;LIBRARIES")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 180)
  endif()
  add_executable(${name} ${arg_SOURCES})
  if(KVHTTP_GUARDED_HEAP)
    list(APPEND arg_LIBRARIES kvhttp_guarded_heap)
    list(REMOVE_DUPLICATES arg_LIBRARIES)
  endif()
  target_link_libraries(${name} PRIVATE kvhttp_flags kvhttp_test_support ${arg_LIBRARIES})
  kvhttp_set_test_code(${name})
  if(NOT arg_ALONE AND CMAKE_HOST_UNIX AND MINGW)
    set_target_properties(${name} PROPERTIES
      CROSSCOMPILING_EMULATOR "${CMAKE_SOURCE_DIR}/tests/support/programs/shared-start")
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 300
    TEST_PREFIX "${arg_LABEL}."
    PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT})
endfunction()
