# Debian packages, one for each component: `./dev package`.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vx)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The Vx maintainers <maintainers@users.noreply.vx.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_COMPONENTS_ALL runtime development testing tools)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Debug information goes to packages of its own, libvx17-dbgsym and vx-tools-dbgsym, where tools
# find it by build ID.
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
# Where our own libraries stand while the dependencies of what links them are worked out.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/ole/Vx ${PROJECT_BINARY_DIR}/platforms/linux)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvx${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "libVx.so, and the Linux platform that it stands on: libOS.so and libVxIPP.so.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvx-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libvx${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Headers, CMake and pkg-config files, guides and the debugger's pretty printers.")

set(CPACK_DEBIAN_TESTING_PACKAGE_NAME libvx-test-dev)
set(CPACK_DEBIAN_TESTING_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TESTING_PACKAGE_DEPENDS "libvx-dev (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TESTING_DESCRIPTION
    "The platform that tests run on: Vx::TestPlatform, its headers and CMake files.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vx-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libvx${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "vx, which inspects and edits what the library stores, and platform-check.")

include(CPack)
