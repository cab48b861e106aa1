# Stands in for the toolchain file of a development kit: the same compiler and linker, as far as Debian has them, and
# ANDROID set. Without the start-up files of Debian's C library and the atomics of its libgcc, which lack the marks of
# branch protection; a kit's have them. What a device's C library defines is there for the linker alone.
include(${CMAKE_CURRENT_LIST_DIR}/../../../cmake/aarch64-clang.cmake)

set(ANDROID TRUE)
string(APPEND CMAKE_CXX_FLAGS_INIT " -mno-outline-atomics"
    " -isystem ${CMAKE_CURRENT_LIST_DIR}/.. -isystem ${sysroot}/usr/include/android")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT
    " -nostartfiles -L${libraries}/android -Wl,--defsym,android_set_abort_message=0")
