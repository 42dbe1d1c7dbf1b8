# Clients outside the source tree. Each installed header compiles by itself, with one include path and both compilers,
# in a folder whose own headers have the names of the library's; a program is built through CMake, through pkg-config
# and by hand; a project that embeds the source tree gets the library and nothing else.
source "$ROSTER_SOURCE_DIR/tests/installed_setup.sh"
include=$prefix/include
hostile=$work/hostile
tests=$ROSTER_SOURCE_DIR/tests/installed_consumer
library=$(dirname "$(find "$prefix" -name libroster.so)")
run_consumer() { [[ $("$1") == "consumer works" ]] || fail "$1 prints: $("$1" 2>&1)"; }

# A client's own headers: the names are those of the library's, where nothing but "roster/" would tell them apart.
(cd "$ROSTER_SOURCE_DIR/roster" && find . -mindepth 2 -name '*.h' -printf '%P\n') >"$work/own"
[[ $(wc -l <"$work/own") -gt 50 ]] || fail "the library's headers are not found"
{ cat "$work/own"; echo platform/export.h; echo account/string_list.h; } | while read -r header; do
  mkdir -p "$hostile/$(dirname "$header")"
  echo '#error a header of the client is taken for one of the library' >"$hostile/$header"
done
cd "$hostile"

# What is installed is what roster.h reaches.
g++ -std=c++20 -I"$include" -M -x c++ "$include/roster/roster.h" | tr -s ' \\' '\n' | grep "^$include" | sort >"$work/reached"
find "$include" -type f | sort | diff "$work/reached" - || fail "installed (>) is not what roster.h reaches (<)"

# Twice, since a header may be met twice.
compile_alone() {
  printf '#include <%s>\n#include <%s>\n' "$2" "$2" |
    "$1" -std=c++20 -iquote "$hostile" -I"$hostile" -I"$include" "${@:3}" -fsyntax-only -x c++ - 2>&1 ||
    { echo "$1 does not compile <$2> by itself"; exit 1; }
}
export -f compile_alone
export hostile include
# Sources of the library include their own header first, so g++ has met most of them alone; it sees all in roster.h, and
# before a merge each by itself.
compilers=(clang++)
if [[ -n ${ROSTER_LONG_TESTS:-} ]]; then compilers+=(g++); fi
{
  for compiler in "${compilers[@]}"; do (cd "$include" && find . -type f -printf "$compiler\n%P\n"); done
  printf '%s\n' g++ roster/roster.h
} | xargs -P2 -n2 bash -c 'compile_alone "$2" "$3" $1' - "${warnings[*]}" >"$work/log" || { cat "$work/log"; exit 1; }

cp "$tests/main.cpp" "$tests/CMakeLists.txt" .
build_client . "-I$hostile" "${warnings[@]}"
run_consumer "$work/build/consumer"
read -ra package < <(PKG_CONFIG_PATH=$library/pkgconfig pkg-config --cflags --libs roster)
by_hand=(-I"$include" -L"$library" -lroster)
quietly "$CXX" -std=c++20 -I"$hostile" "${warnings[@]}" main.cpp "${package[@]}" -o "$work/through-pkg-config"
quietly clang++ -std=c++20 "${warnings[@]}" main.cpp "${by_hand[@]}" -o "$work/by-hand"
for program in through-pkg-config by-hand; do
  LD_LIBRARY_PATH=$library run_consumer "$work/$program"
done

# The embedding project's own file checks what it gets from the source tree.
mkdir embedder
cp main.cpp "$tests/embedding/CMakeLists.txt" embedder
quietly cmake -S embedder -B "$work/embedding" -G Ninja -DCMAKE_CXX_COMPILER="$CXX"
grep -q '^CMAKE_BUILD_TYPE:STRING=$' "$work/embedding/CMakeCache.txt" || fail "the embedding project's build type is set"
if grep -r --include=cmake_install.cmake -l 'file(INSTALL' "$work/embedding"; then fail "it gets install rules"; fi
[[ $(ctest --test-dir "$work/embedding" -N) == *"Total Tests: 0"* ]] || fail "it gets tests"
quietly cmake --build "$work/embedding" --target CMakeFiles/embedder.dir/main.cpp.o

# The installed tool finds the library it was installed with, and not the one in the build tree.
[[ $(ldd "$prefix/bin/rosterctl") == *"libroster.so.1 => $prefix/"* ]] || fail "rosterctl uses another library"
quietly "$prefix/bin/rosterctl" types
[[ $(readlink "$library/libroster.so") == libroster.so.1 ]] || fail "the library's links are not those of its SONAME"
