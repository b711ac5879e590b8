# KVHTTP_CLANG_VERSION: always the same, which Debian 12 and 13 both have, since each finds other things.
set(KVHTTP_CLANG_VERSION 19)

# KVHTTP_CLANG_CXX_FLAGS: clang++ takes the C++ library's headers from the MinGW compiler with them.
execute_process(
  COMMAND x86_64-w64-mingw32-g++-win32 -print-file-name=include
  OUTPUT_VARIABLE KVHTTP_GCC_INCLUDE OUTPUT_STRIP_TRAILING_WHITESPACE)
set(KVHTTP_CLANG_CXX_FLAGS -nostdinc++)
foreach(folder IN ITEMS c++ c++/x86_64-w64-mingw32 c++/backward)
  list(APPEND KVHTTP_CLANG_CXX_FLAGS -isystem "${KVHTTP_GCC_INCLUDE}/${folder}")
endforeach()
