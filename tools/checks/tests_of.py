#!/usr/bin/env python3
"""Print which tests belong to nouns, files and folders: their pattern for ctest, and on a second line
the targets to build for them.

    tools/checks/tests_of.py BUILD-DIRECTORY NOUN-OR-PATH...

A noun (q4_flash) stands for the tests that have it in their names, a test's source for its own test,
another file for the tests with its name, else for those that include it, else for those of its
folder, and a folder for the tests of FOLDERS below, or of all files in it. Without an argument: the
files that differ from the last commit. Prints nothing when those have no test; ends with 1 when an
argument has none.
"""
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# The tests that can notice a change in a folder. Long tests, and tests of other things, are left out.
FOLDERS = {
    "src/adapter": r"unit_(vpd|register_access)|fault_injection_flash_answers|"
                   r"fuzz_(vpd_.*|boot_config|option_rom)|"
                   r"sim_(adapter.*|boot.*|bus_table|config_space|cost|damaged_vpd|"
                   r"default_config_file|find_mac|lspci_vpd|q3_.*|q4_flash|register_window|"
                   r"power_cut)|kxsim_hardware_keys",
    "src/host": r"agent_.*|sim_(addresses|card_fill)|kxsim_machines|vm_.*",
    "src/inventory": r"unit_(addresses|link_texts|offload_table|stat_chain|status)|agent_.*|"
                     r"fuzz_(proc_modules|counter_files|agent_texts|offload_devices)|"
                     r"sim_(addresses|card_.*|cost|driver_inventory|fill_groups|find_mac|"
                     r"module_list|offload_.*|port_.*|query|set_entry|adapter_list.*)|kxsim_nic_.*",
    "src/modules": r"unit_module_file|fuzz_(proc_modules|module_file)|agent_.*|"
                   r"fault_injection_mutated_modules|"
                   r"sim_(driver_inventory|module_(info|list)|card_.*|cost)",
    "src/settings": r"unit_(config_file|detail_text|hex_pair|iwarp_table|"
                    r"settings_text|offload_table)|"
                    r"fuzz_(config_lines|agent_texts)|sim_(iwarp|cost|module_.*|"
                    r"offload_.*|port_.*|recording|set_entry|driver_inventory|power_cut|card_fill)",
    "src/vm": r"unit_(uuid_text|description_edit|hex_pair|shell)|vm_.*|fuzz_(domain_vfs|"
              r"interface_list|block_cut|command_output|uuid_text)|kxsim_machines|agent_.*",
    "src/support": r"unit_.*|fuzz_.*|vm_.*|sim_.*|kxsim_(machines|.*_keys)",
    "sim": r"kxsim_.*|fuzz_scenario|sim_(adapter_list|port_.*|q4_flash)",
    "tools/kxctl": r"kxctl_(command_.*|exit_code|golden|inventory|set_commands)",
    "tools/kxctl-pages": r"docs_.*",
    "include/kxlinhw": r"header_.*|exported_names|interface_baseline|unit_status|docs_records",
    "docs": r"docs_.*",
    "examples": r"example_.*|install",
    "packaging": r"packaged|install|systemd_units|udev_rule",
    "tests/interface": r"header_.*|exported_names|interface_baseline|hardening|systemd_units|udev_rule",
    "tests/examples": r"example_.*",
    "tests/install": r"install|packaged",
}


# What scripts look at, which have no program of their own.
PRODUCTS = ["src/all", "sim/all", "tools/all", "docs/all", "packaging/all", "tests/examples/all"]


def listed_tests(build):
    """{name of a test: the targets that it needs}."""
    text = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"],
                          check=True, capture_output=True, text=True).stdout
    programs = build.resolve() / "tests"
    tests = {}
    for test in json.loads(text)["tests"]:
        # A program that was never built is not shown; it has the name of its test.
        program = pathlib.Path(test.get("command", [programs / test["name"]])[0])
        tests[test["name"]] = [program.name] if program.parent == programs else PRODUCTS
    return tests


def changed_files():
    git = ["git", "-C", ROOT]
    changed = subprocess.run([*git, "diff", "--name-only", "HEAD"],
                             check=True, capture_output=True, text=True).stdout
    new = subprocess.run([*git, "ls-files", "--others", "--exclude-standard"],
                         check=True, capture_output=True, text=True).stdout
    return [name for name in (changed + new).split("\n") if name]


def matching(pattern, tests):
    return {name for name in tests if re.fullmatch(pattern, name)}


def with_noun(noun, tests, kind=""):
    return matching(rf"(.*_)?{re.escape(noun)}(_.*)?", tests) & matching(rf"{kind}.*", tests)


def including(path, tests):
    """The tests whose source includes the header."""
    include = re.compile(rf'#include "([^"]*/)?{re.escape(path.name)}"')
    return {name for source in (ROOT / "tests").rglob("*_test.cpp")
            if include.search(source.read_text()) for name in own_test(source, tests)}


def own_test(source, tests):
    kind = source.relative_to(ROOT).parts[1]
    return matching(f"{kind}_{re.sub('_(test|fuzz)$', '', source.stem)}", tests)


def named_like(path, tests):
    """The tests with the name of the file, or of its folder and the file, of the kind for its place."""
    kind = {"tools": "kxctl_", "sim": "kxsim_"}.get(path.parts[0], "(?!kxctl_|kxsim_)")
    return (with_noun(path.stem, tests, kind) |
            with_noun(f"{path.parent.name}_{path.stem}", tests, kind))


def of_file(path, tests):
    if path.parts[0] != "tests":
        return named_like(path, tests) or around(path, tests)
    return own_test(ROOT / path, tests) or including(path, tests) or of_folder(path.parent, tests)


def around(folder, tests):
    """The tests of the nearest folder above it that the table has."""
    above = next((str(parent) for parent in folder.parents if str(parent) in FOLDERS), None)
    return matching(FOLDERS[above], tests) if above else set()


def of_folder(folder, tests):
    if str(folder) in FOLDERS:
        return matching(FOLDERS[str(folder)], tests)
    if folder.parts[0] == "tests":
        return matching(rf"{folder.parts[1]}_.*" if len(folder.parts) > 1 else ".*", tests)
    found = set().union(*(matching(pattern, tests) for name, pattern in FOLDERS.items()
                          if folder in pathlib.Path(name).parents))
    if folder.parent.name:
        found |= set().union(named_like(folder, tests), *(
            named_like(file.relative_to(ROOT), tests) for file in (ROOT / folder).glob("*.cpp")))
        found = found or around(folder, tests)
    return found


def tests_of(word, tests):
    path = pathlib.Path(word)
    if path.is_absolute():
        path = path.relative_to(ROOT)
    if (ROOT / path).is_dir():
        return of_folder(path, tests)
    if len(path.parts) > 1:
        return of_file(path, tests)
    return with_noun(word, tests)


def main():
    build, words = pathlib.Path(sys.argv[1]), sys.argv[2:]
    tests = listed_tests(build)
    found = set()
    for word in words or changed_files():
        more = tests_of(word, tests)
        if words and not more:
            sys.exit(f"no test has {word} in its name, and no folder has this name")
        found |= more
    if found:
        print("^({})$".format("|".join(map(re.escape, sorted(found)))))
        print(*sorted({target for name in found for target in tests[name]}))


if __name__ == "__main__":
    main()
