# Brings in GoogleMock as GTest::gmock: from the sources in KVHTTP_GOOGLETEST_DIR, where they are there, and else
# from an installed package.
set(gtest_disable_pthreads ON CACHE BOOL "Windows has its own threads" FORCE)
set(KVHTTP_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "Folder with GoogleTest's sources; Debian's by default")

if(EXISTS "${KVHTTP_GOOGLETEST_DIR}/CMakeLists.txt")
  message(STATUS "GoogleTest: the sources in ${KVHTTP_GOOGLETEST_DIR}")
  add_subdirectory("${KVHTTP_GOOGLETEST_DIR}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
else()
  find_package(GTest CONFIG)
  if(NOT TARGET GTest::gmock)
    message(FATAL_ERROR "GoogleTest is neither in ${KVHTTP_GOOGLETEST_DIR} nor installed as a package with GoogleMock: "
      "install it, or name the folder of its sources with -DKVHTTP_GOOGLETEST_DIR=...")
  endif()
  message(STATUS "GoogleTest: the package in ${GTest_DIR}")
endif()
