# kvhttp_add_prepared_tests(<suite> PROGRAM <target> SCRIPT <script> TESTS [<test> <argument>]... [LOCK <resource>])
# The tests of one suite of a GoogleTest program that need programs of the Unix host beside them. The Python
# script, in the caller's folder, prepares those and runs one test: SCRIPT WINE_TEST PROGRAM SUITE.TEST ARGUMENT.
# A further test compares the list with what the program has. With LOCK one of them runs at a time.
find_program(KVHTTP_PYTHON python3 REQUIRED)

function(kvhttp_add_prepared_tests suite)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PROGRAM;SCRIPT;LOCK" "TESTS")
  set(wine_test "${CMAKE_SOURCE_DIR}/scripts/wine-test" "$<TARGET_FILE:${arg_PROGRAM}>")
  set(names)
  while(arg_TESTS)
    list(POP_FRONT arg_TESTS test argument)
    list(APPEND names "${suite}.${test}")
    add_test(NAME "system.${suite}.${test}"
      COMMAND "${KVHTTP_PYTHON}" "${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT}" ${wine_test}
        "${suite}.${test}" "${argument}")
    set_tests_properties("system.${suite}.${test}" PROPERTIES
      LABELS system TIMEOUT 180 ENVIRONMENT PYTHONDONTWRITEBYTECODE=1)
    if(arg_LOCK)
      set_tests_properties("system.${suite}.${test}" PROPERTIES RESOURCE_LOCK "${arg_LOCK}")
    endif()
  endwhile()
  add_test(NAME "system.${suite}.AllAreListed"
    COMMAND "${KVHTTP_PYTHON}" "${CMAKE_SOURCE_DIR}/tests/support/programs/check_listed.py" ${wine_test}
      "${suite}" ${names})
  set_tests_properties("system.${suite}.AllAreListed" PROPERTIES LABELS system TIMEOUT 180)
endfunction()
