#!/usr/bin/env python3
"""Compare which folder includes headers of which other folder with the table folders.txt.

    tools/checks/folders.py            end with 1 when the table, the sources or the picture in
                                       docs/architecture.md disagree, or when the table has a circle
    tools/checks/folders.py --picture  write the picture into docs/architecture.md
"""
import graphlib
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
TABLE = pathlib.Path(__file__).with_name("folders.txt")
PAGE = ROOT / "docs" / "architecture.md"
INCLUDE = re.compile(r'^\s*#\s*include\s+["<]([^">]+)[">]', re.MULTILINE)
# Where a header's name begins, beside the folder of the file that includes it.
STARTS = ("include", "src", "sim", "sim/include", "tools/kxctl")
PICTURE = re.compile(r"(<!-- folders: begin -->\n).*?(<!-- folders: end -->\n)", re.DOTALL)


def read_table():
    """{folder: the folders that it may include}"""
    table = {}
    for line in TABLE.read_text().splitlines():
        if line and not line.startswith("#"):
            folder, _, used = line.partition(":")
            table[folder.strip()] = set(used.split())
    return table


def sources(folders):
    listed = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", *folders],
        cwd=ROOT, check=True, capture_output=True, text=True).stdout.splitlines()
    return [pathlib.Path(name) for name in listed
            if name.endswith((".c", ".cpp", ".h", ".hpp")) and (ROOT / name).exists()]


def resolve(name, source):
    """The file of this tree that an #include line means, or None."""
    for start in (source.parent, *map(pathlib.Path, STARTS)):
        if source.parts[0] == "src" and start.parts[0] in ("sim", "tools"):
            continue
        if (ROOT / start / name).is_file():
            return pathlib.Path(*(start / name).parts)
    return None


def folder_of(path, table):
    return next((str(parent) for parent in path.parents if str(parent) in table), str(path.parent))


def found_includes(table):
    """{(folder, other folder): a source that includes a header there}"""
    found = {}
    for source in sources(table):
        for name in INCLUDE.findall((ROOT / source).read_text()):
            header = resolve(name, source)
            if header is not None:
                ends = (folder_of(source, table), folder_of(header, table))
                if ends[0] != ends[1]:
                    found.setdefault(ends, f"{source} includes {header}")
    return found


def reachable(table, folder):
    further = set(table[folder])
    return further.union(*(reachable(table, other) for other in further))


def drawn(table):
    """The picture: arrows to what a folder reaches only by including it."""
    lines = ["```mermaid", "flowchart TD"]
    for top in dict.fromkeys(folder.split("/")[0] for folder in table):
        lines.append(f"    subgraph {top}")
        lines += [f"        {folder}" for folder in table if folder.split("/")[0] == top]
        lines.append("    end")
    for folder, used in table.items():
        around = set().union(*(reachable(table, other) for other in used))
        lines += [f"    {folder} --> {other}" for other in sorted(used - around)]
    return "\n".join([*lines, "```", ""])


def circle(table):
    try:
        graphlib.TopologicalSorter(table).prepare()
    except graphlib.CycleError as error:
        return " -> ".join(reversed(error.args[1]))
    return None


def complaints(table):
    found = found_includes(table)
    for (folder, other), example in sorted(found.items()):
        if other not in table.get(folder, ()):
            yield f"{folder} may not include headers of {other}: {example}"
    for folder, used in table.items():
        for other in sorted(used):
            if (folder, other) not in found:
                yield f"{TABLE.name}: {folder} includes no header of {other}"
    picture = PICTURE.search(PAGE.read_text())
    if not picture or picture[0] != picture[1] + drawn(table) + picture[2]:
        yield f"the picture in {PAGE.relative_to(ROOT)} is not that of {TABLE.name}: " \
              "run tools/checks/folders.py --picture"


def main():
    table = read_table()
    if circle(table):
        sys.exit(f"{TABLE.name} has a circle: {circle(table)}")
    if sys.argv[1:] == ["--picture"]:
        page = PAGE.read_text()
        PAGE.write_text(PICTURE.sub(lambda found: found[1] + drawn(table) + found[2], page))
        return 0
    found = list(complaints(table))
    print("\n".join(found) if found else f"folders: {len(table)}, no circle")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
