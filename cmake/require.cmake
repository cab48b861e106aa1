# Errors that say what to install.

# Ends with an error that names the missing Debian package and the call of scripts/setup that installs it, followed by
# the caller's own text.
macro(missing_package what package setup)
    message(FATAL_ERROR "${what} is missing. Run \"scripts/setup ${setup}\", or install the Debian package ${package}."
        ${ARGN})
endmacro()

# Like find_package, but with the error of missing_package.
macro(require_package name package setup)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
        missing_package(${name} ${package} ${setup} ${ARGN})
    endif()
endmacro()

# For a program that a preset names. Called before project(), because CMake's own error message would come first.
function(require_program name package setup)
    find_program(found_program NAMES ${name} NO_CACHE)
    if(NOT found_program)
        missing_package(${name} ${package} ${setup})
    endif()
endfunction()
