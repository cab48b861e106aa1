# Options for the generated code: of all targets, and of the library.

include(CheckCXXSourceCompiles)

# A device may have pages of 16 KiB, and a processor that checks the targets of jumps and returns.
check_cxx_source_compiles("
#ifndef __aarch64__
#error another architecture
#endif
int main() { return 0; }" PARAMSET_ON_AARCH64)
if(PARAMSET_ON_AARCH64)
    add_compile_options(-mbranch-protection=standard)
    add_link_options(-Wl,-z,max-page-size=16384)
endif()

# A public function calls operations in other files, so the library is optimised across its files. Calls from one
# exported function to another may be direct: a program cannot replace them for the library itself.
function(optimise_across_files target)
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    if(PARAMSET_SANITIZE)
        return()
    endif()
    set(optimised $<CONFIG:Release,RelWithDebInfo>)
    if(ANDROID)
        # Not check_ipo_supported: for Android it asks for a linker that the NDK does not have.
        set(CMAKE_REQUIRED_FLAGS -flto=thin)
        set(CMAKE_REQUIRED_LINK_OPTIONS -fuse-ld=lld)
        check_cxx_source_compiles("int main() { return 0; }" PARAMSET_THIN_LTO)
        if(NOT PARAMSET_THIN_LTO)
            message(FATAL_ERROR
                "The library of a device is built with -flto=thin and -fuse-ld=lld, which this compiler does not "
                "support; ${CMAKE_BINARY_DIR}/CMakeFiles/CMakeError.log tells why.")
        endif()
        target_compile_options(${target} PRIVATE $<${optimised}:-flto=thin>)
        target_link_options(${target} PRIVATE -fuse-ld=lld $<${optimised}:-flto=thin>)
        return()
    endif()
    include(CheckIPOSupported)
    check_ipo_supported(RESULT ipo OUTPUT why LANGUAGES CXX)
    if(NOT ipo)
        message(WARNING "The library is built without optimisation across its files: ${why}")
    endif()
    set_target_properties(${target} PROPERTIES
        INTERPROCEDURAL_OPTIMIZATION_RELEASE ${ipo}
        INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ${ipo})
endfunction()
