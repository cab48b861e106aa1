# Errors that say what to install.

# Ends with the Debian package of what is missing, the scripts/setup that installs it, and what the caller adds.
macro(missing_package what package setup)
    message(FATAL_ERROR "${what} is missing. Run \"scripts/setup ${setup}\", or install the Debian package ${package}."
        ${ARGN})
endmacro()

# As find_package; what the caller adds to the message comes last.
macro(require_package name package setup)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
        missing_package(${name} ${package} ${setup} ${ARGN})
    endif()
endmacro()

# What a preset names; without it CMake's own message comes before any of ours.
function(require_program name package setup)
    find_program(found_program NAMES ${name} NO_CACHE)
    if(NOT found_program)
        missing_package(${name} ${package} ${setup})
    endif()
endfunction()
