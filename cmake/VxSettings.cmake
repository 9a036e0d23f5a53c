# How our own targets are compiled; nothing of it reaches the users of the libraries.

add_library(vx_settings INTERFACE)
target_compile_options(vx_settings INTERFACE
    -Wall -Wextra -Wconversion $<$<BOOL:${VX_WERROR}>:-Werror>
    -march=${VX_MARCH}
    # No path of the machine that builds, in debug information or in assertions: the same sources
    # make the same bytes in every folder. The last map that matches counts; compilers run in
    # the folder of the whole build, which is another's when Vx is a part of it.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${CMAKE_BINARY_DIR}=/build
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=/build)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12[.]")
    # At -O3, g++ 12 takes `"x" + string` for an overlapping copy inside the standard library (its
    # bug 105651).
    target_compile_options(vx_settings INTERFACE -Wno-restrict)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 17)
    # std::stable_sort of the C++ library of g++ 12 calls what this library declares deprecated.
    target_compile_options(vx_settings INTERFACE -Wno-deprecated-declarations)
endif()
target_compile_definitions(vx_settings INTERFACE $<$<BOOL:${VX_PLAIN}>:VX_PLAIN>)
if(VX_SANITIZE)
    target_compile_options(vx_settings INTERFACE
        -fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vx_settings INTERFACE -fsanitize=${VX_SANITIZE})
endif()

# Hardening of released code: container checks, stack protection, indirect jumps checked by
# processors that can (CET), and stacks that cannot jump over their guard page. Debug builds
# compile faster without; the sanitizers check more themselves.
if(NOT VX_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(vx_settings INTERFACE
        -D_GLIBCXX_ASSERTIONS -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
        -fcf-protection -fstack-clash-protection)
endif()
target_link_options(vx_settings INTERFACE
    LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)

# What every target of ours has in common.
function(vx_configure target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vx_settings>)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON
        # The libraries find each other side by side, wherever the tree stands; a platform
        # that LD_LIBRARY_PATH names still comes first.
        BUILD_RPATH_USE_ORIGIN ON
        INSTALL_RPATH "$ORIGIN:$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endfunction()
