# What `cmake --install` puts where, and how other projects find it.
include(CMakePackageConfigHelpers)

# A process's mapped files are counted by the library's name; the platform's stand-in comes with it.
set(installed varnok)
if(NOT VARNOK_PLATFORM_LIBRARY)
    list(APPEND installed varnok_platform)
endif()
set_target_properties(varnok PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${installed} EXPORT varnok-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/libvarnok/include/varnok_mgmt.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT varnok-targets NAMESPACE varnok:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/varnok)

write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/varnok-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/varnok-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/varnok-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/varnok)

# Relative, so that a moved install still works.
file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(${PROJECT_SOURCE_DIR}/cmake/varnok.pc.in varnok.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/varnok.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES examples/inventory.c examples/inventory.cpp examples/inventory.py examples/lab.json DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 FILES_MATCHING PATTERN "*.3")
install(FILES README.md docs/scenario.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET varnokctl)
    install(TARGETS varnokctl varnok-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(TARGETS varnok-hostsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set_target_properties(varnokctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()
