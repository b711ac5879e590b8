# clang as a second pair of eyes: it compiles everything against the MinGW headers and links nothing.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
include("${CMAKE_CURRENT_LIST_DIR}/ClangForMinGW.cmake")
list(JOIN KVHTTP_CLANG_CXX_FLAGS " " CMAKE_CXX_FLAGS_INIT)
# What it leaves out and why stands in .clang-tidy.
set(CMAKE_CXX_CLANG_TIDY clang-tidy --quiet)
