# Debian's packages install into a folder that the loader searches, so the library needs no rpath.
file(GLOB_RECURSE libraries ${CPACK_TEMPORARY_DIRECTORY}/*/libparamset.so.*)
foreach(library ${libraries})
    if(NOT IS_SYMLINK ${library})
        file(RPATH_REMOVE FILE ${library})
    endif()
endforeach()
