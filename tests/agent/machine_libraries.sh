#!/usr/bin/env bash
# machine_libraries.sh LIBRARIES SOURCE COMPILER: libvirt and Xerces come when a machine operation asks
# for them, and functions of libvirt that a program brings are called instead of libvirt's.
# shellcheck disable=SC2317  # functions are called by name
set -euo pipefail
libraries=$1 source=$2 compiler=$3
here=$source/tests/agent/machines
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failed=0

# step TEXT COMMAND...: the command succeeds; else its output is shown.
step() {
    local text=$1
    shift
    if ! "$@" >"$work/output" 2>&1; then
        echo "FAILED: $text"
        sed 's/^/    /' "$work/output"
        failed=1
    fi
}

# Linked as agents are: with the library and no other option.
build() { "$compiler" -std=c++20 -I"$source/include" "$@" -L"$libraries" -lkxlinhw; }
share() { "$compiler" -std=c++20 -I"$source/include" -shared -fPIC "$here/own_libvirt.cpp" "$@"; }
build -o agent "$here/agent.cpp"
build -o agent-with-own "$here/agent.cpp" "$here/own_libvirt.cpp"
mkdir path
share -o preloaded.so
share -o path/libvirt.so.0 -Wl,-soname,libvirt.so.0
echo '<domain/>' >description.xml

# run DIRECTORY COMMAND...: with the library of that directory.
run() {
    local directory=$1
    shift
    LIBVIRT_DEFAULT_URI=test:///default LD_LIBRARY_PATH=$directory "$@" 2>&1
}

# ---- Who answers ----

own_answers() {
    local output
    output=$(run "$@")
    echo "$output"
    diff - <(grep -E '^own|^(listVMs|attachVFToVM|VMShutdown) ' <<<"$output") <<'END'
own virConnectOpenAuth
own virConnectGetURI
own virConnectNumOfDomains
own virConnectNumOfDefinedDomains
own virConnectListDefinedDomains
own virConnectListDomains
listVMs 0
own virDomainLookupByID 1
own virDomainAttachDevice <hostdev mode='subsystem' type='pci' managed='yes'><source><address domain='0x0000' bus='0x03' slot='0x01' function='0x2'/></source></hostdev>
own virDomainGetXMLDesc 0
attachVFToVM 0
own virDomainLookupByID 1
own virDomainGetXMLDesc 0
own virDomainLookupByID 1
own virDomainGetXMLDesc 0
own virDomainShutdown
VMShutdown 0
END
}
step "functions of the program answer" own_answers "$libraries" ./agent-with-own
step "functions of a preloaded library answer" \
    own_answers "$libraries" env LD_PRELOAD=./preloaded.so ./agent
step "functions of another libvirt answer" own_answers "$work/path:$libraries" ./agent

libvirt_answers() { run "$1" ./agent | tee /dev/stderr | grep -x "count 1"; }
step "libvirt itself answers" libvirt_answers "$libraries"

# ---- Where the private library is found ----

mkdir moved links elsewhere alone
cp "$libraries"/libkxlinhw.so.6 "$libraries"/libkxlinhw-machines.so.6 moved
ln -s "$work/moved/libkxlinhw.so.6" links
cp "$libraries"/libkxlinhw.so.6 alone
step "a moved library finds it" libvirt_answers "$work/moved"
step "a library reached by a link finds it" libvirt_answers "$work/links"

"$compiler" -x c++ -std=c++20 -I"$source/include" -o loader - <<'END'
#include <dlfcn.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
int main(int, char** arguments) {
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr || chdir(arguments[2]) != 0) {
        return 1;
    }
    auto* const construct = reinterpret_cast<void (*)(void*)>(dlsym(library, "_ZN7VMUtilsC1Ev"));
    void* object[9] = {};
    construct(object);
    return object[8] == nullptr ? 2 : 0;
}
END
loaded_by_relative_path() { LD_LIBRARY_PATH='' ./loader moved/libkxlinhw.so.6 elsewhere; }
step "a library loaded by a relative path finds it from another working directory" \
    loaded_by_relative_path

# ---- Without them ----

lost_connection() {
    local output
    output=$(run "$1" ./agent)
    echo "$output"
    diff - <(sort <<<"$output") < <(sort <<'END'
names missing
No connection to hypervisor
thrown -128
Attempting to connect to hypervisor
No connection to hypervisor
libkxlinhw: error: [module 2] ListVMs: LibVirt connection failure
listVMs 1
count -1
No connection to hypervisor
libkxlinhw: error: [module 2] AttachVFToVM: LibVirt connection failure
attachVFToVM 1
No connection to hypervisor
libkxlinhw: error: [module 2] DeleteVNETFromVM: libvirtd connection failure
dettachInterfaceFromVM 1
No connection to hypervisor
libkxlinhw: error: [module 2] AddBridgeToVM: LibVirt connection failed
attachBrdgToVM 1
No connection to hypervisor
libkxlinhw: error: [module 2] ListVFsForVM: LibVirtConnection Failed
listVFsForVM -1
some thing went wrong in getting document node
getVFsFromDomainInfo none
getDomainState -1
VMReboot 1
VMShutdown 1
END
    )
}
step "without the private library the connection is lost" lost_connection "$work/alone"

for missing in libvirt.so.0 libxerces-c-3.2.so; do
    mkdir "without-$missing"
    : >"without-$missing/$missing" # no library: the loader gives up
    step "without $missing the connection is lost" \
        lost_connection "$work/without-$missing:$libraries"
done

# ---- What the library itself needs ----

needs() {
    ! ldd "$libraries/libkxlinhw.so" | grep -E 'libvirt|xerces|glib|curl|icu'
}
step "the library needs neither libvirt nor Xerces" needs
named() { readelf -p .note.dlopen "$libraries/libkxlinhw.so" | grep -F 'libvirt.so.0' | grep -F 'libxerces-c'; }
step "the ELF note names the optional libraries" named
one_name() { [[ $(nm -D --defined-only "$libraries/libkxlinhw-machines.so.6" | wc -l) == 1 ]]; }
step "the private library exports its entry alone" one_name

instructions() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 |
        awk '/I +refs/ {gsub(",", "", $NF); print $NF}'
}
loads_quickly() {
    printf 'int main() { return 0; }\n' >empty.cpp
    build -Wl,--no-as-needed -o empty-with empty.cpp
    "$compiler" -o empty empty.cpp
    local with without
    with=$(LD_LIBRARY_PATH=$libraries instructions ./empty-with)
    without=$(instructions ./empty)
    echo "$((with - without)) instructions; at most 3,000,000"
    ((with - without <= 3000000))
}
if command -v valgrind >/dev/null; then
    step "loading the library takes at most 3 million instructions" loads_quickly
else
    echo "valgrind is not installed: the instructions of loading the library are not counted"
fi
exit $failed
