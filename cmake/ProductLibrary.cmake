# kvhttp_add_library(<name> SOURCES ... DEPENDS ... SYSTEM ...)
# One static library for a folder of src/, or for the sources listed of a folder that has two. DEPENDS
# is the one place that says which libraries of the project its files may include. The compiler cannot
# see to that, because src/ as a whole is on the include path: the test checks.Layering does, and also
# that no two libraries depend on each other.
function(kvhttp_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;SYSTEM")
  add_library(kvhttp_${name} STATIC ${arg_SOURCES})
  target_include_directories(kvhttp_${name} PUBLIC "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}/include")
  list(TRANSFORM arg_DEPENDS PREPEND kvhttp_)
  target_link_libraries(kvhttp_${name} PUBLIC ${arg_DEPENDS} ${arg_SYSTEM} PRIVATE kvhttp_flags)
  # The platform's headers take most of the time of a file: compiled once, they are there for all. That each file
  # names those that it needs shows with clang, which gets none.
  if(name STREQUAL "base")
    target_precompile_headers(kvhttp_base PRIVATE
      <windows.h> <objbase.h> <wininet.h> <atomic> <memory> <optional> <string> <vector>)
  else()
    target_precompile_headers(kvhttp_${name} REUSE_FROM kvhttp_base)
  endif()
  if(KVHTTP_CLANG_TIDY)
    kvhttp_analyse(kvhttp_${name})
  endif()
endfunction()
