# clang-tidy over src/, in the build with clang; what it leaves out and why stands in .clang-tidy. The checks spend
# nearly all of their time on the platform's headers: they see the sources as one file, and so each header once.
# The static analyser looks into the functions of a file itself only: it gets the sources one by one, as they are
# compiled, and only those that have changed.
set(kvhttp_tidy "${KVHTTP_CLANG_TIDY}" --quiet "--config-file=${CMAKE_SOURCE_DIR}/.clang-tidy")
if(CMAKE_COMPILE_WARNING_AS_ERROR)
  list(APPEND kvhttp_tidy "--warnings-as-errors=*")
endif()

# kvhttp_analyse(<target>)
function(kvhttp_analyse target)
  set_target_properties(${target} PROPERTIES CXX_CLANG_TIDY "${kvhttp_tidy};--checks=-*,clang-analyzer-*")
endfunction()

# kvhttp_add_lint(): the target with all other checks.
function(kvhttp_add_lint)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/src/*/*.cpp")
  list(TRANSFORM sources REPLACE "(.+)" "#include \"\\1\"\n")
  list(JOIN sources "" text)
  set(all "${CMAKE_BINARY_DIR}/AllSources.cpp")
  file(CONFIGURE OUTPUT "${all}" CONTENT "${text}" @ONLY)
  # Other rules are a reason to look again.
  set_source_files_properties("${all}" PROPERTIES OBJECT_DEPENDS "${CMAKE_SOURCE_DIR}/.clang-tidy")
  add_library(kvhttp_lint OBJECT "${all}")
  target_include_directories(kvhttp_lint PRIVATE "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}/include")
  target_link_libraries(kvhttp_lint PRIVATE kvhttp_flags)
  set_target_properties(kvhttp_lint PROPERTIES
    CXX_CLANG_TIDY "${kvhttp_tidy};--checks=-clang-analyzer-*,-bugprone-suspicious-include")
endfunction()
