# What `cmake --install` lays down: headers, libraries, a CMake package and pkg-config files.
# Components: runtime, development, testing, tools.

include(CMakePackageConfigHelpers)

install(TARGETS Vx OS IPP EXPORT VxTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY ole/Vx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.h" # but not what only the library's sources include:
    REGEX "detail/(CrcFold|FixedDecimals|MetadataText|NumberReader|NumericMode|PlayoutTable|ReverseSearch|WideCase|WidePrefixAvx)[.]h$" EXCLUDE)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Vx)
install(EXPORT VxTargets NAMESPACE Vx:: DESTINATION ${package_folder} COMPONENT development)
install(TARGETS TestPlatform EXPORT VxTestPlatformTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT testing)
install(DIRECTORY platforms/scripted/Vx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT testing)
install(EXPORT VxTestPlatformTargets NAMESPACE Vx:: DESTINATION ${package_folder}
    COMPONENT testing)
configure_package_config_file(cmake/VxConfig.cmake.in ${PROJECT_BINARY_DIR}/VxConfig.cmake
    INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VxConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VxConfig.cmake ${PROJECT_BINARY_DIR}/VxConfigVersion.cmake
    DESTINATION ${package_folder} COMPONENT development)

# The prefix is written relative to the file itself, so that the tree may be moved.
file(RELATIVE_PATH VX_PREFIX_FROM_PKGCONFIG
    /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vx.pc.in ${PROJECT_BINARY_DIR}/vx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vx.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
configure_file(cmake/vx-test-platform.pc.in ${PROJECT_BINARY_DIR}/vx-test-platform.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vx-test-platform.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT testing)

# Side by side as in the tree, so that the pages find each other.
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
