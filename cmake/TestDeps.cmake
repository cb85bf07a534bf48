# GoogleTest: the host uses the distribution's build; the target build compiles
# the distribution's sources with the cross compiler.
if(CMAKE_CROSSCOMPILING)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
  add_library(GTest::gmock ALIAS gmock)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# umockdev backs the system tests, which run on the host only.
set(TACTORD_SYSTEM_TESTS OFF)
if(NOT CMAKE_CROSSCOMPILING)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(UMOCKDEV REQUIRED IMPORTED_TARGET umockdev-1.0)
  set(TACTORD_SYSTEM_TESTS ON)
endif()
