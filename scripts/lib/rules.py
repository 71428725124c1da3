"""The repository's own rules, which no compiler and no linter knows.

Usage: rules.py ROOT. Prints each breach as PATH:LINE: MESSAGE; ends with 1 when there is one.
"""

import graphlib
import os
import pathlib
import re
import subprocess
import sys
from collections.abc import Iterator

LINES_MAX = 400
# What is installed. Which of these folders may include which is the build's to say.
PRODUCT = "base|platform|rootprefix|log|config|kernel|proc|reconcile|daemon|control|cli"
# Without a platform's own folder, and without the header that may ask which compiler it is.
PORTABLE = rf"(?!platform/(darwin|linux|model)/|base/thread_safety\.h$)({PRODUCT})/.*\.(cpp|h)"
# Headers with the names and contents of others are left out: their makers' rules hold for them.
LEFT_OUT = re.compile(r"(.*/)?(corpus|stubs)/")
SCRIPT = r"(scripts|\.ci)/[a-z-]+"
# Of files whose path below the root matches: what no line may have.
FORBIDDEN = [
    (r".*\.(cpp|h)", r"NOLINT", "NOLINT: change the code, or the check for all in .clang-tidy"),
    (PORTABLE, r"^\s*#\s*(if|ifdef|ifndef|elif|else)\b", "the build picks the platform: no #if at or above the seam"),
    (
        rf"({PRODUCT})/.*\.(cpp|h)",
        r"^\s*#\s*include\s+<(iostream|regex|sstream)>",
        "this header costs memory and start-up time",
    ),
    (
        r"tests/.*\.(cpp|h)",
        r"\b(GTEST_SKIP|sleep_for|sleep_until|usleep|nanosleep)\b|DISABLED_",
        "a test waits for events, and none is left out",
    ),
    # A here-document may hold a file in which tabs are usual.
    (r".*\.(md|py|txt|json|cmake|map)", r"\t", "a tab character"),
    (r".*\.sh", r"^[^\t].*\t", "a tab character"),
]
# Of files whose path matches: what the whole text must match.
REQUIRED = [
    (r"(?!.*[.](clang|git)).*", r"(?s)(.*\n)?\Z", "the file does not end with a line feed"),
    (r".*\.(cpp|h)", rf"(.*\n){{0,{LINES_MAX}}}\Z", f"a file has at most {LINES_MAX} lines"),
    (r".*\.h", r"(?s)//", "a header begins with a comment that says what it is for"),
    (r".*\.h", r"(?s)(?=(.*\n)?#pragma once\n)(?!.*#pragma once.*#pragma once)", "a header has #pragma once, once"),
    (SCRIPT, r"(?s)#!/usr/bin/env bash\n.*\nset -euo pipefail\n", "a script begins with #! and set -euo pipefail"),
]
NAME = re.compile(r"(?!.*\.(cpp|h|py|sh|map)$)|[a-z][a-z0-9_]*\.\w+")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
MESSAGE = re.compile(r'\bwriteLogLine\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)')
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
STAMP = "[%s] "


def read_texts(root: pathlib.Path) -> dict[str, str]:
    """By path below the root: every file that is committed or may be."""
    command = ["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    names = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split("\0")
    return {
        name: (root / name).read_text(encoding="utf-8", errors="surrogateescape")
        for name in names
        if (root / name).is_file() and not LEFT_OUT.match(name)
    }


def check_file(name: str, text: str) -> Iterator[tuple[int, str]]:
    if not NAME.match(name.rsplit("/", 1)[-1]):
        yield 1, "a file's name is snake_case"
    for files, pattern, message in FORBIDDEN:
        if re.fullmatch(files, name):
            for number, line in enumerate(text.splitlines(), 1):
                if re.search(pattern, line):
                    yield number, message
    for files, pattern, message in REQUIRED:
        if re.fullmatch(files, name) and not re.match(pattern, text):
            yield 1, message


def check_includes(sources: dict[str, str]) -> Iterator[tuple[str, str]]:
    included = {name: INCLUDE.findall(text) for name, text in sources.items()}
    for name, targets in included.items():
        for target in set(targets) - set(sources):
            yield name, f'"{target}" is no file of this checkout, named from its root'
    used = {target for targets in included.values() for target in targets}
    for name in sources:
        if name.endswith(".h") and name not in used:
            yield name, "no file includes this header"
    try:
        graphlib.TopologicalSorter(included).prepare()
    except graphlib.CycleError as error:
        yield error.args[1][0], "files include each other: " + " -> ".join(error.args[1])


def check_messages(sources: dict[str, str], documentation: str) -> Iterator[tuple[str, str]]:
    """Of the log's messages: whether they have the stamp's field, and the document has them."""
    # In a table of the document a bar is written with a backslash.
    documented = documentation.replace("\\|", "|")
    for name, text in sources.items():
        for found in MESSAGE.finditer(text) if re.match(rf"({PRODUCT})/", name) else ():
            message = "".join(LITERAL.findall(found[1]))
            if not message.startswith(STAMP):
                yield name, f'the message "{message}" does not begin with the stamp\'s field'
            elif f"`{message.removeprefix(STAMP).removesuffix(chr(92) + 'n')}`" not in documented:
                yield name, f'docs/log.md does not have the message "{message}"'


def main() -> int:
    root = pathlib.Path(sys.argv[1]).resolve()
    texts = read_texts(root)
    sources = {name: text for name, text in texts.items() if name.endswith((".cpp", ".h"))}
    found = [(f"{name}:{line}", message) for name, text in texts.items() for line, message in check_file(name, text)]
    found += check_includes(sources)
    found += check_messages(sources, texts.get("docs/log.md", ""))
    scripts = [name for name in texts if re.fullmatch(SCRIPT, name)]
    found += [(name, "a script without its executable bit") for name in scripts if not os.access(root / name, os.X_OK)]
    for where, message in found:
        print(f"{where}: {message}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
