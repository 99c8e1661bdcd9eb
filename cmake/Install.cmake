# What a host finds after `cmake --install`: headers, library, a CMake package and a pkg-config file.
include(cmake/DebugFiles.cmake)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/NimaDiagnostics)

install(TARGETS NimaDiagnostics EXPORT NimaDiagnosticsTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(NIMA_BUILD_SHARED)
    nima_install_debug_file(NimaDiagnostics ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY include/Diagnostics DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT NimaDiagnosticsTargets NAMESPACE Nima:: DESTINATION ${package_dir})

configure_package_config_file(cmake/NimaDiagnosticsConfig.cmake.in
    ${PROJECT_BINARY_DIR}/NimaDiagnosticsConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NimaDiagnosticsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/NimaDiagnosticsConfig.cmake
    ${PROJECT_BINARY_DIR}/NimaDiagnosticsConfigVersion.cmake
    DESTINATION ${package_dir})

list(TRANSFORM NIMA_UNWIND_LIBRARIES PREPEND -l OUTPUT_VARIABLE pc_needs)
list(APPEND pc_needs -lstdc++ -pthread)
list(JOIN pc_needs " " pc_needs)
# What a static library needs, every host of it needs, whether or not it asks pkg-config for --static.
if(NOT NIMA_BUILD_SHARED)
    set(pc_public_needs " ${pc_needs}")
    set(pc_needs "")
endif()
# The installed tree may be moved: the file finds its prefix relative to its own location.
file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/nima-diagnostics.pc.in ${PROJECT_BINARY_DIR}/nima-diagnostics.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nima-diagnostics.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
