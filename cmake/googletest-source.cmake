# GoogleTest built from the sources Debian ships (package googletest), for
# builds where no GoogleTest package for the target exists (cross builds).
# Provides the same GTest:: targets as find_package(GTest).
set(KEL_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
if(NOT EXISTS ${KEL_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${KEL_GTEST_SOURCE_DIR} (package googletest)")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${KEL_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(lib gtest gtest_main gmock gmock_main)
  if(NOT TARGET GTest::${lib})
    add_library(GTest::${lib} ALIAS ${lib})
  endif()
endforeach()
