# Stands in for the NDK's toolchain file: Debian's packages of the same compiler and linker, with ANDROID
# set. Does not link the start-up files of Debian's C library and the atomics of its libgcc: unlike the NDK's, they are
# not marked for branch protection. The symbols of a device's C library are stubs to link with.
include(${CMAKE_CURRENT_LIST_DIR}/../../../cmake/aarch64-clang.cmake)

set(ANDROID TRUE)
string(APPEND CMAKE_CXX_FLAGS_INIT " -mno-outline-atomics"
    " -isystem ${CMAKE_CURRENT_LIST_DIR}/.. -isystem ${sysroot}/usr/include/android")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT
    " -nostartfiles -L${libraries}/android -Wl,--defsym,android_set_abort_message=0")
