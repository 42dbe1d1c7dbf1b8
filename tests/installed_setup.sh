# What the tests of an installation begin with: one in $prefix, moved after it was made, an empty device, and a folder
# $work that goes at the end.
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/usr
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
export ROSTER_ROOT=$work/device
unset ROSTER_RESOURCES

fail() { echo "$*"; exit 1; }
# Runs a command that prints only when it fails.
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }; }
# Builds a client's project in $work/build, with these flags.
build_client() {
  quietly cmake -S "$1" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$CXX" \
    -DCMAKE_CXX_FLAGS="${*:2}"
  quietly cmake --build "$work/build"
}

mkdir "$ROSTER_ROOT"
quietly cmake --install "$ROSTER_BUILD_DIR" --prefix "$work/elsewhere"
mv "$work/elsewhere" "$prefix"
