# clang for aarch64 with libc++ and lld, as on a device. Uses Debian's cross C library and the arm64 packages that
# scripts/setup unpacks. The built programs run under user-mode emulation.
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-linux-gnu.cmake)

get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot ABSOLUTE)
if(NOT EXISTS ${sysroot}/packages)
    message(FATAL_ERROR "No arm64 libraries in ${sysroot}; run scripts/setup aarch64.")
endif()

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${triplet})
set(CMAKE_CXX_COMPILER_TARGET ${triplet})
set(CMAKE_CXX_FLAGS_INIT "-stdlib++-isystem ${sysroot}/usr/include/c++/v1")
set(libraries ${sysroot}/usr/lib/${triplet})
foreach(kind EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-stdlib=libc++ -fuse-ld=lld -L${libraries} -Wl,-rpath,${libraries}")
endforeach()
list(APPEND CMAKE_FIND_ROOT_PATH ${sysroot})
