# kvhttp_add_prepared_tests(<suite> PROGRAM <target> SCRIPT <script> TESTS [<test> <argument>]... [LOCK <resource>])
# The tests of one suite of a GoogleTest program that need programs of the Unix host beside them. The Python
# script, in the caller's folder, prepares those and runs one test: SCRIPT WINE_TEST PROGRAM SUITE.TEST ARGUMENT.
# A further test compares the list with what the program has. With LOCK one of them runs at a time.
include(UnixTest)

function(kvhttp_add_prepared_tests suite)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PROGRAM;SCRIPT;LOCK" "TESTS")
  set(wine_test "${CMAKE_SOURCE_DIR}/scripts/wine-test" "$<TARGET_FILE:${arg_PROGRAM}>")
  set(names)
  set(lock)
  if(arg_LOCK)
    set(lock LOCK "${arg_LOCK}")
  endif()
  while(arg_TESTS)
    list(POP_FRONT arg_TESTS test argument)
    list(APPEND names "${suite}.${test}")
    kvhttp_add_unix_test("system.${suite}.${test}" LABEL system TIMEOUT 180 ${lock}
      COMMAND "${KVHTTP_PYTHON}" "${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT}" ${wine_test}
        "${suite}.${test}" "${argument}")
  endwhile()
  kvhttp_add_unix_test("system.${suite}.AllAreListed" LABEL system TIMEOUT 180
    COMMAND "${KVHTTP_PYTHON}" "${CMAKE_SOURCE_DIR}/tests/support/programs/check_listed.py" ${wine_test}
      "${suite}" ${names})
endfunction()
