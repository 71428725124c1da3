"""Whether the Chinese documents are in step with the English ones.

Usage: translations.py ROOT. X.zh-CN.md has the headings of X.md, level by level, and between them the
same commands. A block of code that shows a session counts by its lines that begin with "$ "; what they
print may differ. Any other block counts line by line, up to a comment. Prints each difference as
PATH:LINE: MESSAGE; ends with 1 when there is one.
"""

import difflib
import pathlib
import re
import sys

SUFFIX = ".zh-CN.md"
# Pages that must not lose their translation; any other that has one is compared likewise.
TRANSLATED = ("README.md", "docs/device.md")
LEFT_OUT = {"build", "dist", ".git"}

HEADING = re.compile(r"(#{1,6})\s")
FENCE = re.compile(r"\s*(`{3,}|~{3,})")
INDENT = "    "
PROMPT = "$ "
COMMENT = re.compile(r"(^|\s+)#(\s.*)?$")


def read_lines(lines):
    """Of each line its number, its kind (heading, code, blank or text) and what it holds."""
    fence, before = None, "blank"
    for number, line in enumerate(lines, 1):
        kind, held = "text", line.strip()
        marker = FENCE.match(line)
        if fence:
            ends = marker and marker[1].startswith(fence)
            fence, kind = (None, "text") if ends else (fence, "code")
        elif marker:
            fence = marker[1]
        elif not held:
            kind = "blank"
        elif line.startswith(INDENT) and before != "text":
            kind = "code"
        elif heading := HEADING.match(line):
            kind, held = "heading", heading[1]
        yield number, kind, held
        before = kind


def read_blocks(lines):
    """The page's headings and blocks of code: each as its kind and its lines with their numbers."""
    block = []
    for number, kind, held in [*read_lines(lines), (0, "text", "")]:
        if kind in ("text", "heading") and block:
            yield "code", block
            block = []
        if kind == "code":
            block.append((number, held))
        elif kind == "heading":
            yield kind, [(number, held)]


def commands_in(block):
    """The lines that have to be the same, with their numbers."""
    is_session = any(line.startswith(PROMPT) for _, line in block)
    continues = False
    for number, line in block:
        if not is_session or continues or line.startswith(PROMPT):
            if command := COMMENT.sub("", line):
                yield number, command
            continues = line.endswith("\\")


def outline(path):
    """What two pages have to share, in its order: pairs of a line's number and what stands there."""
    result = []
    for kind, block in read_blocks(path.read_text(encoding="utf-8").splitlines()):
        if kind == "heading":
            result += [(number, f"a heading of level {len(held)}") for number, held in block]
        else:
            result += [(number, f"`{command}`") for number, command in commands_in(block)]
    return result


def line_at(outlined, index):
    """The line of an outline's entry; behind the last one, that of the last."""
    return outlined[min(index, len(outlined) - 1)][0] if outlined else 1


def compare(original, translation, original_name):
    """The differences, each as a line of the translation and a message."""
    wanted, found = outline(original), outline(translation)
    matcher = difflib.SequenceMatcher(None, [w for _, w in wanted], [f for _, f in found], False)
    for kind, wanted_from, wanted_to, found_from, found_to in matcher.get_opcodes():
        if kind == "equal":
            continue
        for number, what in wanted[wanted_from:wanted_to]:
            yield line_at(found, found_from), f"here is not {what} of {original_name}:{number}"
        for number, what in found[found_from:found_to]:
            where = f"{original_name}:{line_at(wanted, wanted_from)}"
            yield number, f"{what} is not in {where}"


def translations(root):
    """The names of all pages that have a translation, or must."""
    names = set(TRANSLATED)
    for path in root.rglob(f"*{SUFFIX}"):
        name = path.relative_to(root)
        if name.parts[0] not in LEFT_OUT:
            names.add(name.as_posix().removesuffix(SUFFIX) + ".md")
    return sorted(names)


def differences(root):
    for name in translations(root):
        translated_name = name.removesuffix(".md") + SUFFIX
        original, translation = root / name, root / translated_name
        if not original.is_file():
            yield translated_name, 1, f"there is no {name} that it could translate"
        elif not translation.is_file():
            yield name, 1, f"there is no translation {translated_name}"
        else:
            for number, message in compare(original, translation, name):
                yield translated_name, number, message


def main():
    found = list(differences(pathlib.Path(sys.argv[1]).resolve()))
    for name, number, message in found:
        print(f"{name}:{number}: {message}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
