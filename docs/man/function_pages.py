#!/usr/bin/env python3
"""function_pages.py EXPORTS HEADERS PAGES: a manual page for each exported name.

The headers say what the functions do, in the comments before the declarations; the pages repeat that.
A class has one page, and each of its members a link to it. A name that no header declares is an error.
"""

import pathlib
import re
import sys

COMMENT = re.compile(r"/\*(.*?)\*/", re.S)
# A comment, a declaration with the comment behind it in its line, or a blank line, which ends what the
# comment before it describes.
PIECE = re.compile(
    r"/\*(?P<comment>.*?)\*/|(?P<declaration>(?:extern )?KX_EXPORT\b[^;]*;)"
    r"(?:[ \t]*/\*(?P<own>.*?)\*/)?|(?P<blank>\n[ \t]*\n)",
    re.S,
)
CLASS = re.compile(r"^class KX_EXPORT (\w+) \{(.*?)^\};", re.S | re.M)


def plain(comment):
    """The text of a comment, without its indentation."""
    return "\n".join(line.strip() for line in comment.strip().splitlines())


def name_of(declaration):
    """The name that a declaration declares."""
    before = re.split(r"\(|\[|;", COMMENT.sub("", declaration), maxsplit=1)[0]
    return re.findall(r"\w+", before)[-1]


def declarations_of(text):
    """Each declaration of a header with the comment that describes it and its neighbours, and with
    the comment in its own line."""
    comment, closed = "", False
    for piece in PIECE.finditer(CLASS.sub("\n\n", text)):
        if piece["comment"] is not None:
            comment, closed = plain(piece["comment"]), False
        elif piece["blank"] is not None:
            closed = True
        else:
            text = re.sub(r"^(extern )?KX_EXPORT ", r"\1", piece["declaration"])
            own = plain(piece["own"]) if piece["own"] is not None else ""
            yield name_of(text), text, "" if closed else comment, own


def members_of(exports):
    """Class and member of each C++ name: _ZN7VMUtils8VMLaunchEP10_virDomain is VMUtils, VMLaunch."""
    for symbol in exports:
        rest = symbol.removeprefix("_ZN")
        names = []
        while rest != symbol and (length := re.match(r"\d+", rest)):
            end = length.end() + int(length[0])
            names.append(rest[length.end() : end])
            rest = rest[end:]
        if len(names) == 2:
            yield names[0], names[1]


def roff(text):
    """Text for roff, where a backslash and a leading dot or quote mean something."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def first_sentence(text):
    sentence = re.split(r"(?<=[a-z0-9)])[.;:](?:\s|$)|\?(?:\s|$)", " ".join(text.split()), maxsplit=1)[0]
    return sentence.rsplit(" (", 1)[0] if sentence.count("(") > sentence.count(")") else sentence


def summary(description, own, about):
    """The line behind the name: of several declarations with one comment, also what is its own."""
    parts = [first_sentence(part) for part in (description, own) if part]
    return ": ".join(parts) or first_sentence(about) or "declared by the library for network adapters"


def page(name, header, declaration, description, own, about):
    paragraphs = [f".PP\n{roff(part)}" for part in (own, description, about) if part]
    return "\n".join(
        [
            f'.TH "{name}" "3" "" "libkxlinhw" "Library Functions"',
            ".SH NAME",
            f"{name} \\- {roff(summary(description, own, about))}",
            ".SH SYNOPSIS",
            ".nf",
            f"#include <kxlinhw/{header}>",
            "",
            roff(declaration).replace("\n\n", "\n\\&\n"),
            ".fi",
            ".SH DESCRIPTION",
            "\n".join(re.sub(r"\n\n+", "\n.PP\n", part) for part in paragraphs).replace(".PP\n", "", 1),
            ".SH SEE ALSO",
            ".BR libkxlinhw (3)",
            "",
        ]
    )


def main():
    exports_file, headers, pages = (pathlib.Path(word) for word in sys.argv[1:])
    exports = re.findall(r"^[A-Za-z_]\w*", exports_file.read_text(), re.M)
    made = {}
    for path in sorted(headers.glob("*.h")):
        text = path.read_text()
        first = COMMENT.match(text)
        about = plain(first[1]) if first else ""
        for name, declaration, description, own in declarations_of(text):
            made[name] = page(name, path.name, declaration, description, own, about)
        for found in CLASS.finditer(text):
            made[found[1]] = page(found[1], path.name, found[0].replace("KX_EXPORT ", ""), "", "", about)
    wanted = {name for name in exports if not name.startswith("_Z")}
    for owner, member in members_of(exports):
        wanted |= {owner, f"{owner}::{member}"}
        made[f"{owner}::{member}"] = f".so man3/{owner}.3\n"
    missing = sorted(wanted - made.keys())
    if missing:
        sys.exit(f"no header declares {', '.join(missing)}")
    pages.mkdir(parents=True, exist_ok=True)
    for old in pages.glob("*.3"):
        old.unlink()
    for name in wanted:
        (pages / f"{name}.3").write_text(made[name])


if __name__ == "__main__":
    main()
