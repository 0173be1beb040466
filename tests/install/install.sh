#!/usr/bin/env bash
# install.sh BUILD SOURCE LIBDIR HARDENING KIND: installs into an empty prefix, other than the one
# that the build was configured for, and uses the files there without the build tree.
# shellcheck disable=SC2317  # functions are called by name
set -euo pipefail
build=$1 source=$2 libdir=$3 hardening=$4 kind=$5
if [[ $kind == sanitized ]]; then
    echo "a sanitized library only serves programs that are sanitized too: nothing to install"
    exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
failed=0

# step TEXT COMMAND...: the command must succeed; otherwise its output is shown.
step() {
    local text=$1
    shift
    if ! "$@" >"$work/output" 2>&1; then
        echo "FAILED: $text"
        sed 's/^/    /' "$work/output"
        failed=1
    fi
}

# Nothing of the environment except the compilers.
clean() {
    env -i PATH=/usr/bin:/bin HOME="$work" CC="$CC" CXX="$CXX" "$@"
}
on_lab_host() { clean "$prefix/bin/kxsim" run --scenario lab -- "$@"; }

step "installing" cmake --install "$build" --prefix "$prefix"

same_headers() { diff -r "$source/include/kxlinhw" "$prefix/include/kxlinhw"; }
step "every public header is installed" same_headers

no_build_path() { ! readelf -d "$prefix"/bin/* "$prefix/$libdir"/*.so* | grep -F "$build"; }
step "no installed file looks for another in the build tree" no_build_path
step "no installed file looks for libraries where others can write" \
    "$source/tests/interface/search_paths.sh" "$prefix"

# ---- The programs ----

same_answer() {
    local expected
    expected=$("$build/kxctl" --sim lab "$@")
    diff <(printf '%s\n' "$expected") <(clean "$prefix/bin/kxctl" --sim lab "$@")
}
step "kxctl lists the lab host's cards" same_answer card list
step "kxctl shows a port" same_answer port show 04:00.4 1

same_scenarios() {
    diff <(cd "$source/sim/scenarios" && printf '%s\n' *.toml | sed 's/\.toml$//') \
        <(clean "$prefix/bin/kxsim" list | awk '/^[a-z]/ {print $1}')
}
step "kxsim finds the scenarios" same_scenarios
step "a command runs on the simulated host" on_lab_host test -d /sys/class/net/eth9

if [[ $hardening == off ]]; then
    echo "the build leaves hardening to others: not looked at"
else
    step "the files are hardened" "$source/tests/interface/hardening.sh" "$hardening" \
        "$prefix/$libdir/libkxlinhw.so" "$prefix/bin/kxctl" "$prefix/bin/kxsim"
fi

# ---- Agents, built from copies of the examples ----

cp -r "$source/examples" "$work/examples"
expected=$source/tests/examples/expected
pkg_config() { clean PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" pkg-config "$@"; }

with_pkg_config() {
    local compiler=$1 standard=$2 example=$3
    # Flags are words.
    # shellcheck disable=SC2046
    "$compiler" "-std=$standard" -Wall -Wextra -Wpedantic -Werror -o "$work/agent" \
        "$work/examples/$example" $(pkg_config --cflags --libs kxlinhw) \
        "-Wl,-rpath,$prefix/$libdir"
}
lists_cards() { diff "$expected/list_cards.out" <(on_lab_host "$@"); }
runs_services() { diff "$expected/own_services.out" <(on_lab_host "$@" 2>"$work/log"); }

step "pkg-config knows the version" test "$(pkg_config --modversion kxlinhw)" = 6.2
step "a C99 agent is built by pkg-config" with_pkg_config "$CC" c99 list_cards.c
step "it lists the cards" lists_cards "$work/agent"
for standard in c++17 c++20; do
    step "a $standard agent is built by pkg-config" \
        with_pkg_config "$CXX" $standard own_services.cpp
    step "its services are the ones called" runs_services "$work/agent"
done

step "cmake finds the library" clean cmake -S "$work/examples" -B "$work/built" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX"
step "it is the installed one" grep -q "^kxlinhw_DIR.*$prefix" "$work/built/CMakeCache.txt"
step "cmake builds the agents" clean cmake --build "$work/built"
step "the C agent lists the cards" lists_cards "$work/built/list_cards"
step "the C++ agent's services are the ones called" runs_services "$work/built/own_services"

sed -i 's/find_package(kxlinhw 6.2 /find_package(kxlinhw 7 /' "$work/examples/CMakeLists.txt"
refused() { ! clean cmake -S "$work/examples" -B "$work/refused" -DCMAKE_PREFIX_PATH="$prefix"; }
step "a library that is too old is refused" refused

python_agent() {
    lists_cards env PYTHONPATH="$prefix/share/kxlinhw/python" \
        KXLINHW_LIBRARY="$prefix/$libdir/libkxlinhw.so.6" python3 "$work/examples/list_cards.py"
}
if [[ -d $prefix/share/kxlinhw/python ]]; then
    step "the Python agent lists the cards" python_agent
else
    echo "built without Python: its agent is left out"
fi
exit $failed
