# What `cmake --install` puts where, and how other projects find it: the library, what developers need of it,
# and the tools. debian/*.install sort the files into packages.
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
# README's links lead to docs/.
install(FILES README.md NEWS DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)

if(TARGET varnokctl)
    set_target_properties(varnokctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS varnokctl varnok-host
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(TARGETS varnok-hostsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/varnok COMPONENT tools)
    install(FILES man/varnokctl.1 man/varnok-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES man/varnok-scenario.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT tools)
    install(FILES completion/varnokctl completion/varnok-host
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES varnokctl/schema/varnok-1.json DESTINATION ${CMAKE_INSTALL_DATADIR}/varnok COMPONENT tools)
    install(DIRECTORY share/varnok/ DESTINATION ${CMAKE_INSTALL_DATADIR}/varnok COMPONENT tools USE_SOURCE_PERMISSIONS)
endif()
