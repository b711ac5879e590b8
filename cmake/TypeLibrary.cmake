# What widl makes of include/kvHttp/IHttpRaw.idl: the type library kvHttp.tlb beside the module, and for the tests a
# header. Without widl, or without the platform's own type library that it refers to, there is neither.
find_program(KVHTTP_WIDL NAMES x86_64-w64-mingw32-widl widl)
file(GLOB kvhttp_type_libraries "/usr/lib/*/wine/x86_64-windows/stdole2.tlb")
if(kvhttp_type_libraries)
  list(GET kvhttp_type_libraries 0 kvhttp_stdole2)
endif()

set(KVHTTP_IDL "${CMAKE_SOURCE_DIR}/include/kvHttp/IHttpRaw.idl")

# kvhttp_add_widl_output(<file> <option>...)
function(kvhttp_add_widl_output file)
  set(platform "${CMAKE_SOURCE_DIR}/cmake/idl")
  # widl would write the time into a type library.
  add_custom_command(OUTPUT "${file}"
    COMMAND "${CMAKE_COMMAND}" -E env WIDL_TIME_OVERRIDE=0 "${KVHTTP_WIDL}" --nostdinc "-I${platform}" --win64 ${ARGN}
      -o "${file}" "${KVHTTP_IDL}"
    DEPENDS "${KVHTTP_IDL}" "${platform}/oaidl.idl"
    VERBATIM)
endfunction()

function(kvhttp_add_type_library)
  if(NOT KVHTTP_WIDL OR NOT kvhttp_stdole2)
    message(STATUS "No type library: widl or stdole2.tlb is not here")
    return()
  endif()
  cmake_path(GET kvhttp_stdole2 PARENT_PATH folder)
  set(file "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/kvHttp.tlb")
  kvhttp_add_widl_output("${file}" -t -DKVHTTP_TYPE_LIBRARY "-L${folder}")
  add_custom_target(kvHttpTypeLibrary ALL DEPENDS "${file}")
endfunction()
