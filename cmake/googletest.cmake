# GoogleTest from Debian's sources: built with the tests' own standard library, architecture and sanitizer.
include(GoogleTest)

if(NOT EXISTS /usr/src/googletest/googletest/CMakeLists.txt)
    missing_package(GoogleTest googletest test " To leave out the tests, configure with -DPARAMSET_TESTS=OFF.")
endif()
set(INSTALL_GTEST OFF)
set(CMAKE_WARN_DEPRECATED OFF)
add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -w)
target_compile_options(gtest_main PRIVATE -w)
