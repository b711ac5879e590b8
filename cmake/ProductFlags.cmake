# Flags of every target of this project, kept off the third-party test framework.
add_library(kvhttp_flags INTERFACE)

# ./test.sh makes warnings errors. What a compiler newer than these finds nobody has looked at: it only warns.
set(kvhttp_newest_GNU 14)
set(kvhttp_newest_Clang 19)
string(REGEX MATCH "^[0-9]+" kvhttp_compiler "${CMAKE_CXX_COMPILER_VERSION}")
if(CMAKE_HOST_UNIX AND kvhttp_compiler LESS_EQUAL "${kvhttp_newest_${CMAKE_CXX_COMPILER_ID}}")
  list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_SOURCE_DIR}/cmake/compile")
endif()

target_compile_definitions(kvhttp_flags INTERFACE
  UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN STRICT _WIN32_WINNT=0x0600)

if(MSVC)
  target_compile_definitions(kvhttp_flags INTERFACE _CRT_SECURE_NO_WARNINGS _CRT_NONSTDC_NO_WARNINGS)
  target_compile_options(kvhttp_flags INTERFACE /W4 /permissive- /utf-8 /Zc:__cplusplus /EHsc /guard:cf)
  target_link_options(kvhttp_flags INTERFACE /guard:cf /CETCOMPAT)
else()
  # A compiler cache may hand the paths on as relative ones.
  file(RELATIVE_PATH up "${CMAKE_BINARY_DIR}" "${CMAKE_SOURCE_DIR}")
  target_compile_options(kvhttp_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wcast-qual -Woverloaded-virtual -Wformat=2 -Wundef -Wunused
    -ffunction-sections -fdata-sections
    "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=." "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build"
    "-ffile-prefix-map=${up}=./")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(kvhttp_flags INTERFACE -Wduplicated-cond -Wlogical-op -Wuseless-cast)
  else()
    target_compile_options(kvhttp_flags INTERFACE -Wthread-safety)
  endif()
  target_link_options(kvhttp_flags INTERFACE -static -Wl,--gc-sections -Wl,--no-insert-timestamp)
  if(KVHTTP_COVERAGE)
    target_compile_options(kvhttp_flags INTERFACE --coverage -O0 -g)
    target_link_options(kvhttp_flags INTERFACE --coverage)
  endif()
  if(KVHTTP_TRAP_UNDEFINED)
    target_compile_options(kvhttp_flags INTERFACE
      -fsanitize=undefined -fsanitize-undefined-trap-on-error)
  endif()
endif()
