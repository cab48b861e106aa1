# `cpack` in a build folder makes the Debian packages.

set(CPACK_PACKAGE_CONTACT "paramset developers <paramset@invalid>" CACHE STRING "Maintainer of the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "parameter store of a camera pipeline")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/remove_rpath.cmake)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET pslog)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The packages' permissions do not depend on the umask.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libparamset${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library, and the stand-ins for a device's platform that it needs.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libparamset-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "The headers, and what CMake and pkg-config need to find the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME paramset-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS lldb)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "The log reader pslog, and a command for lldb that shows the store of a process.")

# Files that only a Debian package has; `cmake --install` does not install them.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/changelog.in debian/changelog @ONLY)
execute_process(COMMAND gzip --best --no-name --force debian/changelog
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz
        DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES cmake/debian/overrides.${component} RENAME ${package}
        DESTINATION share/lintian/overrides COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
