# kvhttp_test_linker: what links test programs. The compiler's own linker needs up to ten seconds for each, clang's
# less than one. This compiler has a linker built in, and takes another one only under the name of the program
# that it calls it through.
add_library(kvhttp_test_linker INTERFACE)
if(MINGW AND CMAKE_HOST_UNIX AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  find_program(KVHTTP_LLD NAMES ld.lld-19 ld.lld)
  if(KVHTTP_LLD)
    set(folder "${CMAKE_BINARY_DIR}/lld")
    file(CONFIGURE OUTPUT "${folder}/collect2" CONTENT "#!/bin/sh\nexec '@KVHTTP_LLD@' \"$@\"\n" @ONLY)
    file(CHMOD "${folder}/collect2" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    target_link_options(kvhttp_test_linker INTERFACE "-B${folder}/" -fno-use-linker-plugin)
  endif()
endif()
