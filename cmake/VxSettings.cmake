# How our own targets are compiled; nothing of it reaches the users of the libraries.

add_library(vx_settings INTERFACE)
target_compile_options(vx_settings INTERFACE
    -Wall -Wextra -Wconversion -Werror
    -march=${VX_MARCH}
    # No path of the machine that builds, in debug information or in assertions.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${PROJECT_BINARY_DIR}/=)
if(VX_SANITIZE)
    target_compile_options(vx_settings INTERFACE
        -fsanitize=${VX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vx_settings INTERFACE -fsanitize=${VX_SANITIZE})
endif()

# What every target of ours has in common.
function(vx_configure target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vx_settings>)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
endfunction()
