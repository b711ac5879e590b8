# clang as a second pair of eyes: it compiles everything against the MinGW headers and links nothing.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
execute_process(
  COMMAND x86_64-w64-mingw32-g++-win32 -print-file-name=include
  OUTPUT_VARIABLE gccInclude OUTPUT_STRIP_TRAILING_WHITESPACE)
set(cxxInclude "${gccInclude}/c++")
set(CMAKE_CXX_FLAGS_INIT
  "-nostdinc++ -isystem ${cxxInclude} -isystem ${cxxInclude}/x86_64-w64-mingw32 -isystem ${cxxInclude}/backward")
# What it leaves out and why stands in .clang-tidy.
set(CMAKE_CXX_CLANG_TIDY clang-tidy --quiet)
