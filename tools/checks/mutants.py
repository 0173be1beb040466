"""Mutants of C++ sources: one small change each, at a place where code (no comment) stands.

The sources are laid out by clang-format, which is what makes simple patterns enough: a binary
operator stands between blanks, a reference or a template bracket does not, a statement starts on a
line of its own.
"""
import dataclasses
import pathlib
import random
import re

# Only one in several texts is changed, because there are about as many texts as lines of code, and
# only one in several pairs of arguments is swapped, because most of them differ in their types.
TEXTS_TAKEN = 5
PAIRS_TAKEN = 4

SWAPPED = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "&&": "||", "||": "&&", "+": "-", "-": "+", "+=": "-=", "-=": "+=",
    "&": "|", "|": "&", "<<": ">>", ">>": "<<", "|=": "&=", "&=": "|=",
}
KINDS = {
    "==": "comparison", "!=": "comparison", "<": "comparison", "<=": "comparison",
    ">": "comparison", ">=": "comparison", "&&": "connective", "||": "connective",
}
OPERATOR = re.compile(r"(?<=\s)(" + "|".join(
    re.escape(text) for text in sorted(SWAPPED, key=len, reverse=True)) + r")(?=\s)")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d+)(?=[uUlLzZ]*\b)(?![.'])")
CONDITION = re.compile(r"\b(?:if|while) \(")
CHECK = re.compile(r"(?<!else )\bif \(")
EARLY_RETURN = re.compile(r"^(?P<indent> {8,})return\b[^;{}]*;", re.MULTILINE)
CALL = re.compile(r"\b[a-zA-Z_]\w*\(")
PARAMETER = re.compile(r"[\w>\]][ *&]+\w+$")  # "const char* name"; a declaration has them
RETURN = re.compile(r"\breturn ([^;{}]+);")
TRUTH = re.compile(r"\b(true|false)\b")
STATEMENT = re.compile(r"^(?:[\w:.\[\]>*-]+(?:<[\w:]+>)?\(.*\)|[\w.\[\]>*-]+ [+|&-]?= .+"
                       r"|\+\+[\w.>-]+|break|continue|return)?;$")
NO_STATEMENT = re.compile(r"^(?:return .|using |static_assert|throw |delete |typedef )")
TEXT = re.compile(r'"(?:[^"\\\n]|\\.)+"')


@dataclasses.dataclass(frozen=True)
class Mutant:
    """Characters start to end of a file are replaced."""
    file: str
    start: int
    end: int
    old: str
    new: str
    kind: str
    line: int
    line_text: str

    @property
    def key(self):
        return f"{self.file}:{self.line}:{self.start}:{self.kind}:{self.new}"

    def applied_to(self, source):
        return source[:self.start] + self.new + source[self.end:]


def blank(match):
    return re.sub(r"[^\n]", " ", match.group())


def code_of(source):
    """The source with comments, preprocessor lines and static assertions blanked."""
    code = re.sub(r'"(?:[^"\\\n]|\\.)*"|//[^\n]*|/\*.*?\*/',
                  lambda match: match.group() if match.group()[0] == '"' else blank(match),
                  source, flags=re.DOTALL)
    code = re.sub(r"^[ \t]*#.*$", blank, code, flags=re.MULTILINE)
    return re.sub(r"\bstatic_assert\(.*?\);", blank, code, flags=re.DOTALL)


def without_texts(code):
    return re.sub(r'"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)+\'', blank, code)


def closing(code, opening):
    depth = 0
    for place in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return None


def pieces(bare, start, end, separator):
    """The parts (start, end) of a text between separators that no bracket encloses."""
    parts, depth, begin = [], 0, start
    for place in range(start, end):
        depth += {"(": 1, "[": 1, "{": 1, ")": -1, "]": -1, "}": -1}.get(bare[place], 0)
        if depth == 0 and bare.startswith(separator, place):
            parts.append((begin, place))
            begin = place + len(separator)
    return parts + [(begin, end)]


def off_by_one(number, chooser):
    octal = len(number) > 1 and number.isdigit() and number[0] == "0"
    value = int(number, 8 if octal else 0)
    changed = value - 1 if value > 0 and chooser.random() < 0.5 else value + 1
    if octal:
        return f"0{changed:o}"
    return hex(changed) if number.startswith("0x") else str(changed)


def changed_result(result):
    if result in ("true", "false") or TRUTH.fullmatch(result):
        return None  # changed as a truth value
    if result in ("0", "KX_SUCCESS"):
        return "1"
    if re.fullmatch(r"-?\d+|KX_\w+|status|k[A-Z]\w+|static_cast<int32_t>\(KX_\w+\)", result):
        return "0"
    return None


def changes(code, chooser):
    """(start, end, new, kind) of each place of the code."""
    bare = without_texts(code)
    for match in OPERATOR.finditer(bare):
        old = match.group()
        yield match.start(), match.end(), SWAPPED[old], KINDS.get(old, "arithmetic")
    for match in NUMBER.finditer(bare):
        yield match.start(), match.end(), off_by_one(match.group(1), chooser), "constant"
    for match in TRUTH.finditer(bare):
        other = "false" if match.group() == "true" else "true"
        yield match.start(), match.end(), other, "truth"
    for match in CONDITION.finditer(bare):
        opening = match.end() - 1
        end = closing(bare, opening)
        inside = code[opening + 1:end] if end else ";"
        if ";" not in without_texts(inside) and not re.match(r"(const )?auto\b", inside):
            yield opening + 1, end, f"!({inside})", "condition"
    for match in RETURN.finditer(bare):
        result = changed_result(match.group(1))
        if result is not None and result != match.group(1):
            yield match.start(1), match.end(1), result, "result"
    yield from removed_statements(code, bare)
    yield from dropped_conjuncts(code, bare)
    yield from dropped_checks(bare)
    yield from dropped_returns(bare)
    yield from swapped_arguments(code, bare, chooser)
    for match in TEXT.finditer(code):
        if chooser.randrange(TEXTS_TAKEN) == 0:
            text = match.group()
            yield match.start(), match.end(), '"~' + text[1:], "text"


def removed_statements(code, bare):
    """Whole statements that declare nothing, also those that take several lines."""
    for match in re.finditer(r"(?<=[;{}:])\s*\n\s+([^;{}]+;)", bare):
        start, end = match.span(1)
        flat = " ".join(bare[start:end].split())
        if STATEMENT.match(flat) and not NO_STATEMENT.match(flat) and flat != ";":
            yield start, end, ";", "statement"


def conditions(bare):
    """The texts (start, end) between the parentheses of conditions, and behind "return"."""
    for match in CONDITION.finditer(bare):
        end = closing(bare, match.end() - 1)
        if end and ";" not in bare[match.end():end]:
            yield match.end(), end
    for match in RETURN.finditer(bare):
        yield match.span(1)


def dropped_conjuncts(code, bare):
    """a && b && c becomes b && c, a && c and a && b."""
    for start, end in conditions(bare):
        parts = pieces(bare, start, end, "&&")
        alone = len(pieces(bare, start, end, "||")) + len(pieces(bare, start, end, " ? ")) == 2
        for dropped in range(len(parts) if len(parts) > 1 and alone else 0):
            kept = [code[slice(*part)].strip() for part in parts[:dropped] + parts[dropped + 1:]]
            yield start, end, " && ".join(kept), "conjunct"


def dropped_checks(bare):
    """An if whose block is never entered. What it declares in its condition is left alone."""
    for match in CHECK.finditer(bare):
        end = closing(bare, match.end() - 1)
        if end and not re.search(r";| = ", bare[match.end():end]):
            yield match.end(), end, "false", "check"


def dropped_returns(bare):
    """A return in the middle of a function: at the end of a block that is not the function's own."""
    for match in EARLY_RETURN.finditer(bare):
        yield match.start() + len(match["indent"]), match.end(), ";", "early return"


def swapped_arguments(code, bare, chooser):
    """f(a, b, c) becomes f(b, a, c) and f(a, c, b)."""
    for match in CALL.finditer(bare):
        end = closing(bare, match.end() - 1)
        parts = pieces(bare, match.end(), end, ",") if end else []
        texts = [code[slice(*part)].strip() for part in parts]
        if any(PARAMETER.search(text) for text in texts):
            continue
        for (first, second), (left, right) in zip(zip(parts, parts[1:]), zip(texts, texts[1:])):
            if left != right and chooser.randrange(PAIRS_TAKEN) == 0:
                yield first[0], second[1], f"{right}, {left}", "arguments"


def mutants_of(file, source, chooser):
    code = code_of(source)
    found = []
    for start, end, new, kind in changes(code, chooser):
        line = source.count("\n", 0, start) + 1
        line_text = source.splitlines()[line - 1]
        found.append(Mutant(file, start, end, source[start:end], new, kind, line, line_text))
    chooser.shuffle(found)
    return found


def choose(root, seed):
    """All mutants of src/ in an order that reaches every file early and each in proportion.

    An edit of one file changes the choice in no other.
    """
    ranked = []
    files = sorted(path for path in pathlib.Path(root, "src").rglob("*.[ch]pp")
                   if path.name != "record_layout.cpp")  # assertions and nothing else
    for path in files:
        file = str(path.relative_to(root))
        chooser = random.Random(f"{seed} {file}")
        found = mutants_of(file, path.read_text(), chooser)
        for place, mutant in enumerate(found):
            rank = 0 if place == 0 else (place + chooser.random()) / len(found)
            ranked.append((rank, chooser.random(), mutant))
    ranked.sort(key=lambda row: row[:2])
    return [mutant for _, _, mutant in ranked]
