# The platform of a device, as far as a host can run it; and that the platform's build system builds the same.

file(READ ${PROJECT_SOURCE_DIR}/Android.bp android_bp)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/Android.bp)
function(expect_in part text)
    foreach(file ${ARGN})
        string(FIND "${text}" "\"${file}\"" place)
        if(place EQUAL -1)
            message(SEND_ERROR "Android.bp lacks ${file}, of ${part}")
        endif()
    endforeach()
endfunction()
get_target_property(sources paramset SOURCES)
expect_in("the library" "${android_bp}" ${sources})
get_target_property(fixture store_fixture SOURCES)
foreach(test store_test threads_test model_test)
    get_target_property(folder ${test} SOURCE_DIR)
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${folder})
    get_target_property(sources ${test} SOURCES)
    list(TRANSFORM sources PREPEND ${folder}/)
    get_target_property(libraries ${test} LINK_LIBRARIES)
    if(store_fixture IN_LIST libraries)
        list(APPEND sources tests/${fixture})
    endif()
    string(REGEX MATCH "name: \"paramset_${test}\"[^}]*" module "${android_bp}")
    expect_in(paramset_${test} "${module}" ${sources})
endforeach()
string(REGEX MATCHALL "\"(src|platform|tests)/[^\"\\]*" files "${android_bp}")
foreach(file ${files})
    string(SUBSTRING ${file} 1 -1 file)
    file(GLOB found ${PROJECT_SOURCE_DIR}/${file})
    if(NOT found)
        message(SEND_ERROR "Android.bp names ${file}, which is not there")
    endif()
endforeach()

add_executable(android_stack_log_test android_stack_log_test.cpp ${PROJECT_SOURCE_DIR}/platform/android/log_greatest.cpp)
target_compile_definitions(android_stack_log_test PRIVATE PARAMSET_STACK_LOG_HEADER="tests/android_stack_log.h")
target_include_directories(android_stack_log_test PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(android_stack_log_test PRIVATE GTest::gtest_main)
gtest_discover_tests(android_stack_log_test PROPERTIES ${properties})

add_test(NAME android_preset_asks_for_the_ndk
    COMMAND ${CMAKE_COMMAND} -E env --unset=ANDROID_NDK_ROOT
        ${CMAKE_COMMAND} --preset android-arm64 -S ${PROJECT_SOURCE_DIR} -B ${CMAKE_CURRENT_BINARY_DIR}/android_preset)
set_tests_properties(android_preset_asks_for_the_ndk PROPERTIES
    PASS_REGULAR_EXPRESSION "\n  Set ANDROID_NDK_ROOT to the folder of an Android NDK; it names none now.\n")

# The platform's log library is there for this machine only.
if(CMAKE_CROSSCOMPILING)
    return()
endif()
find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_LOG_LIBRARY log PATH_SUFFIXES android REQUIRED)

# Compiled as on a device; what is linked to it differs.
add_library(paramset_on_liblog SHARED
    $<TARGET_OBJECTS:paramset>
    ${PROJECT_SOURCE_DIR}/platform/android/log.cpp
    ${PROJECT_SOURCE_DIR}/platform/android/log_greatest.cpp)
set_target_properties(paramset_on_liblog PROPERTIES CXX_VISIBILITY_PRESET hidden)
target_compile_options(paramset_on_liblog PRIVATE -fno-rtti -fno-exceptions)
target_include_directories(paramset_on_liblog PRIVATE ${PROJECT_SOURCE_DIR})
target_include_directories(paramset_on_liblog SYSTEM PUBLIC ${ANDROID_LOG_INCLUDE_DIR})
target_link_options(paramset_on_liblog PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/src/paramset.map)
target_link_libraries(paramset_on_liblog PUBLIC ${ANDROID_LOG_LIBRARY} PRIVATE paramset_host)

add_executable(android_log_test
    android_log_test.cpp
    ${PROJECT_SOURCE_DIR}/platform/android/log.cpp
    ${PROJECT_SOURCE_DIR}/platform/android/log_greatest.cpp)
target_include_directories(android_log_test PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(android_log_test PRIVATE paramset_on_liblog GTest::gtest_main)
gtest_discover_tests(android_log_test PROPERTIES ${properties})
