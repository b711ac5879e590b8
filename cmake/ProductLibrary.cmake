# kvhttp_add_library(<folder> SOURCES ... DEPENDS ... SYSTEM ...)
# One static library for a folder of src/. DEPENDS names the folders below it; nothing else of the
# project can be included, because src/ is a public include directory of those libraries only in
# the sense of the list here: tests/support/CheckLayering.cmake fails on any other include.
function(kvhttp_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;SYSTEM")
  add_library(kvhttp_${name} STATIC ${arg_SOURCES})
  target_include_directories(kvhttp_${name} PUBLIC "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}/include")
  list(TRANSFORM arg_DEPENDS PREPEND kvhttp_)
  target_link_libraries(kvhttp_${name} PUBLIC ${arg_DEPENDS} ${arg_SYSTEM} PRIVATE kvhttp_flags)
endfunction()
