# kvhttp_add_unix_test(<name> LABEL <label> COMMAND ... [TIMEOUT <seconds>] [PROCESSORS <count>] [LOCK <resource>])
# A test that needs bash, Python, or programs that Debian brings. Hosts without them leave it out, and
# kvhttp_name_left_out_tests says so. Exit code 77 means skipped.
option(KVHTTP_UNIX_TESTS "Have the tests that need bash, Python and Debian's programs" ${CMAKE_HOST_UNIX})
if(KVHTTP_UNIX_TESTS)
  find_program(KVHTTP_PYTHON python3 REQUIRED)
endif()

function(kvhttp_add_unix_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT;PROCESSORS;LOCK" "COMMAND")
  if(NOT KVHTTP_UNIX_TESTS)
    set_property(GLOBAL APPEND PROPERTY KVHTTP_LEFT_OUT_TESTS "${name}")
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  add_test(NAME "${name}" COMMAND ${arg_COMMAND})
  set_tests_properties("${name}" PROPERTIES
    LABELS "${arg_LABEL}" TIMEOUT "${arg_TIMEOUT}" SKIP_RETURN_CODE 77 COST 10 ENVIRONMENT PYTHONDONTWRITEBYTECODE=1)
  if(arg_PROCESSORS)
    set_tests_properties("${name}" PROPERTIES PROCESSORS "${arg_PROCESSORS}")
  endif()
  if(arg_LOCK)
    # They run one after another: who begins with them has time for the others meanwhile.
    set_tests_properties("${name}" PROPERTIES RESOURCE_LOCK "${arg_LOCK}" COST 100
      ENVIRONMENT "PYTHONDONTWRITEBYTECODE=1;KVHTTP_LOCK=${arg_LOCK}")
  endif()
endfunction()

function(kvhttp_name_left_out_tests)
  get_property(names GLOBAL PROPERTY KVHTTP_LEFT_OUT_TESTS)
  if(names)
    list(JOIN names "\n  " names)
    message(STATUS "Left out, since they need bash, Python or Debian's programs:\n  ${names}")
  endif()
endfunction()
