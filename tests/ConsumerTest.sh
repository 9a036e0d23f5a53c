#!/usr/bin/env bash
# ConsumerTest.sh WAY BUILD SOURCE: builds and runs a program outside the tree that finds Vx as an
# installed CMake package, in a source folder, or by pkg-config.
set -euo pipefail
way=$1 build=$2 source=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

expect()
{
    local found
    found=$("$1")
    [ "$found" = "17.2.0.56356 clip clip.mov 1 1" ] || { echo "$1 printed: $found"; exit 1; }
    echo "$1: $found"
}
# Installs and then moves the result: nothing may depend on the first location.
installed()
{
    cmake --install "$build" --prefix "$scratch/first" >/dev/null
    mv "$scratch/first" "$scratch/moved"
}
with_cmake()
{
    cmake -G Ninja -S "$source/tests/consumer" -B "$scratch/build" "$@" >/dev/null
    cmake --build "$scratch/build" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
    expect "$scratch/build/consumer"
    "$scratch/build/platform_only"
    "$scratch/build/consumer_test"
}

case $way in
    package)
        installed
        with_cmake -DCMAKE_PREFIX_PATH="$scratch/moved"
        # Without the test platform, CMake says what to install.
        find "$scratch/moved" -name 'VxTestPlatform*.cmake' -delete
        reason=$(cmake "$scratch/build" 2>&1) && { echo "found: $reason"; exit 1; }
        [[ $reason == *libvx-test-dev* ]] || { echo "no reason: $reason"; exit 1; } ;;
    source)
        with_cmake -DVX_SOURCE="$source" -DCMAKE_BUILD_TYPE=RelWithDebInfo
        ! grep -q -e -Werror "$scratch/build/build.ninja" || { echo "warnings are errors"; exit 1; }
        # A build in another folder gives the same bytes. Only a compiler cache that makes paths
        # relative puts the folder into the debug information.
        for library in ole/Vx/libVx.so platforms/linux/libOS.so platforms/linux/libVxIPP.so; do
            for place in "$build" "$scratch/build/_deps/vx-build"; do
                copy=$scratch/$(basename "$place").so
                cp -L "$place/$library" "$copy"
                [ -z "${CCACHE_BASEDIR:-}" ] || objcopy --strip-debug -R .note.gnu.build-id "$copy"
            done
            cmp "$scratch/$(basename "$build").so" "$scratch/vx-build.so"
        done ;;
    pkg-config)
        installed
        export PKG_CONFIG_PATH
        PKG_CONFIG_PATH=$(dirname "$(find "$scratch/moved" -name vx.pc)")
        for compiler in g++ clang++; do
            command -v $compiler >/dev/null || { echo "$compiler is not installed"; continue; }
            for standard in 17 20 2b; do
                $compiler -std=c++$standard -E -x c++ /dev/null >"$scratch/log" 2>&1 || {
                    echo "$compiler does not know C++$standard"
                    continue
                }
                # shellcheck disable=SC2046
                $compiler -std=c++$standard -Wall -Wextra -Werror \
                    "$source/tests/consumer/consumer.cpp" $(pkg-config --cflags --libs vx) \
                    -o "$scratch/program" -Wl,-rpath,"$(pkg-config --variable=libdir vx)"
                expect "$scratch/program"
            done
            # The loader never unloads a plug-in that exports a unique object.
            # shellcheck disable=SC2046
            $compiler -std=c++17 -shared -fPIC "$source/tests/consumer/consumer.cpp" \
                $(pkg-config --cflags --libs vx) -o "$scratch/plugin.so"
            unique=$(nm -DC "$scratch/plugin.so" | grep ' u ' | grep -v ' u std::' || true)
            [ -z "$unique" ] || { echo "unique in a plug-in: $unique"; exit 1; }
            # shellcheck disable=SC2046
            $compiler -std=c++17 "$source/tests/consumer/platform_only.cpp" -o "$scratch/program" \
                -Wl,--as-needed $(pkg-config --cflags --libs vx) \
                -Wl,-rpath,"$(pkg-config --variable=libdir vx)"
            "$scratch/program"
            # shellcheck disable=SC2046
            $compiler -std=c++17 "$source/tests/consumer/test.cpp" -o "$scratch/program" \
                $(pkg-config --cflags --libs vx-test-platform) \
                -Wl,-rpath,"$(pkg-config --variable=libdir vx)"
            "$scratch/program"
        done ;;
esac
