# What is installed, and in which Debian package: runtime, development or tools.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/paramset)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(installed_targets paramset)
set(pkgconfig_requires "")
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

if(platform STREQUAL "host")
    # The library needs it to run, and a program on a host may want to control it.
    list(APPEND installed_targets paramset_host)
    set(pkgconfig_requires "paramset_host = ${PROJECT_VERSION}")
    install(FILES platform/platform.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/paramset/platform COMPONENT development)
    install(FILES platform/host/host_platform.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/paramset/platform/host COMPONENT development)
endif()

install(TARGETS ${installed_targets} EXPORT paramset
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT paramset
    FILE paramset-config.cmake NAMESPACE paramset:: DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/paramset-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/paramset-config-version.cmake
    DESTINATION ${package_dir} COMPONENT development)

# The installed folder may be chosen at installation or moved later, so the files in it use relative paths.
file(RELATIVE_PATH prefix_from_pkgconfig /usr/${pkgconfig_dir} /usr)
foreach(name ${installed_targets})
    configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()

if(TARGET pslog)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS tools/pslog/pslog.1)
    execute_process(COMMAND gzip --best --no-name --stdout ${CMAKE_CURRENT_SOURCE_DIR}/tools/pslog/pslog.1
        OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/pslog.1.gz COMMAND_ERROR_IS_FATAL ANY)
    install(TARGETS pslog DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pslog.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES tools/pslog/pslog.bash RENAME pslog
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES tools/lldb/paramset.py DESTINATION ${CMAKE_INSTALL_DATADIR}/paramset/lldb COMPONENT tools)
endif()

if(PROJECT_IS_TOP_LEVEL)
    include(cmake/debian.cmake)
endif()
