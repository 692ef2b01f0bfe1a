# GoogleTest as installed; for a target without one, built from the source that Debian's googletest
# package leaves on the build machine.
find_package(GTest QUIET)
set(CI_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest's source")
if(NOT GTest_FOUND AND EXISTS ${CI_GTEST_SOURCE}/CMakeLists.txt)
  set(BUILD_GMOCK OFF CACHE INTERNAL "")
  set(INSTALL_GTEST OFF CACHE INTERNAL "")
  add_subdirectory(${CI_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  # Each case has GoogleTest look through all of them.
  target_compile_options(gtest PRIVATE -O1)
endif()
set(CI_GTEST OFF)
if(TARGET GTest::gtest)
  set(CI_GTEST ON)
endif()
