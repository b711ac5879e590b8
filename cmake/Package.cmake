# What "cmake --install" and CPack put together for hosts. ./package.sh makes the ZIP and the installer.
include(CMakePackageConfigHelpers)
# Otherwise the tests would be built first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(kvhttp_config lib/cmake/kvHttp)
set(kvhttp_documents share/doc/kvHttp)

install(TARGETS kvHttp LIBRARY DESTINATION bin RUNTIME DESTINATION bin)
if(MINGW AND CMAKE_BUILD_TYPE STREQUAL "Release")
  install(FILES "$<TARGET_FILE:kvHttp>.debug" DESTINATION bin)
endif()
if(TARGET kvHttpTypeLibrary)
  install(FILES "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/kvHttp.tlb" DESTINATION lib)
endif()
install(DIRECTORY include/kvHttp DESTINATION include)
install(DIRECTORY samples DESTINATION share/kvHttp PATTERN __pycache__ EXCLUDE)
install(FILES packaging/registration-free.manifest DESTINATION share/kvHttp)
install(FILES README.md CHANGELOG.md DESTINATION ${kvhttp_documents})
install(DIRECTORY docs DESTINATION ${kvhttp_documents})

install(TARGETS kvHttpHost EXPORT kvHttpTargets)
install(EXPORT kvHttpTargets NAMESPACE kvHttp:: DESTINATION ${kvhttp_config})
set(kvhttp_module bin/kvHttp.dll)
set(kvhttp_manifest share/kvHttp/registration-free.manifest)
configure_package_config_file(packaging/kvHttpConfig.cmake.in "${CMAKE_BINARY_DIR}/kvHttpConfig.cmake"
  INSTALL_DESTINATION ${kvhttp_config} PATH_VARS kvhttp_module kvhttp_manifest)
# Before 1.0 each minor version may change what hosts rely on.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/kvHttpConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/kvHttpConfig.cmake" "${CMAKE_BINARY_DIR}/kvHttpConfigVersion.cmake"
  DESTINATION ${kvhttp_config})

set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME kvHttp)
set(CPACK_PACKAGE_VENDOR kvHttp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME kvHttp-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_INSTALL_DIRECTORY kvHttp)
set(CPACK_STRIP_FILES OFF)
# The installer's script there stands in for CPack's own.
set(CPACK_MODULE_PATH "${CMAKE_SOURCE_DIR}/packaging")
include(CPack)
