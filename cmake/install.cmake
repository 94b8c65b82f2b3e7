# What `cmake --install` puts where, how other projects find it, and the Debian packages: the library, what
# developers need of it, and the tools.
include(CMakePackageConfigHelpers)

# A process's mapped files are counted by the library's name; the platform's stand-in comes with it.
set(installed varnok)
if(NOT VARNOK_PLATFORM_LIBRARY)
    list(APPEND installed varnok_platform)
endif()
set_target_properties(varnok PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${installed} EXPORT varnok-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/varnok)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/varnok-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
# Relative, so that a moved install still works.
file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(${PROJECT_SOURCE_DIR}/cmake/varnok.pc.in varnok.pc @ONLY)
install(EXPORT varnok-targets NAMESPACE varnok:: DESTINATION ${package_dir} COMPONENT dev)
install(FILES cmake/varnok-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/varnok-config-version.cmake
        DESTINATION ${package_dir} COMPONENT dev)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/varnok.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES libvarnok/include/varnok_mgmt.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY bindings/cpp/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev
        FILES_MATCHING PATTERN "*.3")
install(FILES examples/inventory.c examples/inventory.cpp examples/inventory.py examples/lab.json
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES docs/demo-host.svg docs/many-hosts.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT dev)

if(TARGET varnokctl)
    set_target_properties(varnokctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS varnokctl varnok-host
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(TARGETS varnok-hostsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tools)
    install(FILES man/varnokctl.1 man/varnok-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES man/varnok-scenario.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT tools)
    install(FILES completion/varnokctl completion/varnok-host
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES varnokctl/schema/varnok-1.json DESTINATION ${CMAKE_INSTALL_DATADIR}/varnok COMPONENT tools)
    install(DIRECTORY share/varnok/ DESTINATION ${CMAKE_INSTALL_DATADIR}/varnok COMPONENT tools USE_SOURCE_PERMISSIONS)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "the libvarnok developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvarnok5)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvarnok-dev)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME varnok-tools)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, lsof")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
include(CPack)
