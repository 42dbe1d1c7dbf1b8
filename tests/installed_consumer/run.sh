# A client outside the source tree: finds the installed package, through CMake and through pkg-config, and runs.
set -euo pipefail

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$ROSTER_BUILD_DIR" --prefix "$prefix/usr" >/dev/null
library=$(dirname "$(find "$prefix/usr" -name libroster.so)")
consumer=$ROSTER_SOURCE_DIR/tests/installed_consumer

cmake -S "$consumer" -B "$prefix/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/usr" -DCMAKE_CXX_COMPILER="$CXX" >/dev/null
cmake --build "$prefix/cmake" >/dev/null
test "$("$prefix/cmake/consumer")" = "consumer works"

export PKG_CONFIG_PATH=$library/pkgconfig
read -ra flags < <(pkg-config --cflags --libs roster)
"$CXX" -std=c++20 "$consumer/main.cpp" "${flags[@]}" -Wl,-rpath,"$library" -o "$prefix/consumer"
test "$("$prefix/consumer")" = "consumer works"

# The installed tool finds the library it was installed with, and not the one in the build tree.
libraries=$(ldd "$prefix/usr/bin/rosterctl")
[[ $libraries == *"libroster.so.1 => $prefix/usr/"* ]]
"$prefix/usr/bin/rosterctl" types >/dev/null

test "$(readlink "$library/libroster.so")" = libroster.so.1
for unwanted in platform/linux tools tests; do
  test ! -e "$prefix/usr/include/roster/$unwanted"
done
