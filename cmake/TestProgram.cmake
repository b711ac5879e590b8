# kvhttp_add_test_program(<name> SOURCES ... LIBRARIES ... LABEL <label> [TIMEOUT <seconds>])
# One GoogleTest program. ctest runs each of its tests in a process of its own, so that none sees
# process-wide state that another has left. The time-out is the net below the watchdog of the test
# programs (tests/support/Watchdog.h), which acts after 40 s and can say where a test hangs.
include(GoogleTest)

function(kvhttp_add_test_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 180)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE kvhttp_flags kvhttp_test_support ${arg_LIBRARIES})
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    TEST_PREFIX "${arg_LABEL}."
    PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT})
endfunction()
