# Tests of the binary interface, the installation and the packages. Not with a sanitizer, which changes all of
# them.
if(PARAMSET_SANITIZE)
    return()
endif()

# The dumps were made from a build by g++.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    set_target_properties(paramset_interface PROPERTIES EXCLUDE_FROM_ALL OFF)
    add_test(NAME abi_dump COMMAND ${PROJECT_SOURCE_DIR}/scripts/abi $<TARGET_FILE:paramset_interface>)
    set(shipped paramset)
    if(TARGET paramset_on_liblog)
        list(APPEND shipped paramset_on_liblog)
    endif()
    list(TRANSFORM shipped REPLACE ".+" "$<TARGET_FILE:\\0>")
    add_test(NAME abi_exports COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/abi_exports_test.sh
        ${CMAKE_NM} $<TARGET_FILE:paramset_interface> ${shipped})
endif()

if(CMAKE_CROSSCOMPILING)
    return()
endif()

add_test(NAME subproject
    COMMAND ${CMAKE_COMMAND} --fresh -S ${CMAKE_CURRENT_SOURCE_DIR}/subproject_test -B ${CMAKE_CURRENT_BINARY_DIR}/subproject_test
        -DPARAMSET_SOURCES=${PROJECT_SOURCE_DIR}
        -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER})

separate_arguments(cxx_flags UNIX_COMMAND "${CMAKE_CXX_FLAGS}")
add_test(NAME install
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/install_test/run.sh ${PROJECT_BINARY_DIR} ${PROJECT_VERSION}
        ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER} ${cxx_flags})

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_test(NAME packages COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/install_test/packages.sh ${PROJECT_BINARY_DIR})
endif()
