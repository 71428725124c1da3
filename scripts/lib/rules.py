"""Checks rules of this repository that compilers and linters do not know.

Usage: rules.py ROOT. Prints each violation as PATH:LINE: MESSAGE; exits with 1 if there is any.
"""

import graphlib
import os
import pathlib
import re
import subprocess
import sys
from collections.abc import Iterator

LINES_MAX = 400
# The folders of installed code. The build enforces which of them may include which.
PRODUCT = "base|platform|rootprefix|log|config|kernel|proc|reconcile|daemon|control|cli|web"
# Excludes the folders of single platforms, and the header that may test for the compiler.
PORTABLE = rf"(?!platform/(darwin|linux|model)/|base/thread_safety\.h$)({PRODUCT})/.*\.(cpp|h)"
# Fuzzing inputs, and stub headers that follow the conventions of the headers they replace.
LEFT_OUT = re.compile(r"(.*/)?(corpus|stubs)/")
SCRIPT = r"(scripts|\.ci)/[a-z-]+"
# (path pattern, pattern that no line may contain, message)
FORBIDDEN = [
    (r".*\.(cpp|h)", r"NOLINT", "NOLINT: change the code, or the check for all in .clang-tidy"),
    (PORTABLE, r"^\s*#\s*(if|ifdef|ifndef|elif|else)\b", "the build picks the platform: no #if at or above the seam"),
    (
        rf"({PRODUCT})/.*\.(cpp|h)",
        r"^\s*#\s*include\s+<(iostream|regex|sstream)>",
        "including this header costs memory and start-up time",
    ),
    (
        r"tests/.*\.(cpp|h)",
        r"\b(GTEST_SKIP|sleep_for|sleep_until|usleep|nanosleep)\b|DISABLED_",
        "tests must wait for events instead of sleeping, and must not be skipped",
    ),
    # Lines that begin with a tab are allowed, because a here-document may contain such a file.
    (r".*\.(md|py|txt|json|cmake|map)", r"\t", "a tab character"),
    (r".*\.sh", r"^[^\t].*\t", "a tab character"),
]
# (path pattern, pattern that the whole text must match, message)
REQUIRED = [
    (r"(?!.*[.](clang|git|png)).*", r"(?s)(.*\n)?\Z", "the file does not end with a line feed"),
    (r".*\.(cpp|h)", rf"(.*\n){{0,{LINES_MAX}}}\Z", f"a file has at most {LINES_MAX} lines"),
    (r".*\.h", r"(?s)//", "a header begins with a comment that says what it is for"),
    (r".*\.h", r"(?s)(?=(.*\n)?#pragma once\n)(?!.*#pragma once.*#pragma once)", "a header has #pragma once, once"),
    (SCRIPT, r"(?s)#!/usr/bin/env bash\n.*\nset -euo pipefail\n", "a script begins with #! and set -euo pipefail"),
]
NAME = re.compile(r"(?!.*\.(cpp|h|py|sh|map)$)|[a-z][a-z0-9_]*\.\w+")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def read_texts(root: pathlib.Path) -> dict[str, str]:
    """Returns the text of every file that is committed or not ignored, by its path below the root."""
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
            yield name, f'"{target}" is not a path of a file relative to the root'
    used = {target for targets in included.values() for target in targets}
    for name in sources:
        if name.endswith(".h") and name not in used:
            yield name, "no file includes this header"
    try:
        graphlib.TopologicalSorter(included).prepare()
    except graphlib.CycleError as error:
        yield error.args[1][0], "files include each other: " + " -> ".join(error.args[1])


def check_changelogs(texts: dict[str, str]) -> Iterator[tuple[str, str]]:
    version = texts["VERSION"].strip()
    for name in ("CHANGELOG.md", "CHANGELOG.zh-CN.md"):
        if re.findall(r"^## (.*)", texts.get(name, ""), re.MULTILINE)[:1] != [version]:
            yield name, f"its first version is not {version}, which VERSION says"


def main() -> int:
    root = pathlib.Path(sys.argv[1]).resolve()
    texts = read_texts(root)
    sources = {name: text for name, text in texts.items() if name.endswith((".cpp", ".h"))}
    found = [(f"{name}:{line}", message) for name, text in texts.items() for line, message in check_file(name, text)]
    found += [*check_includes(sources), *check_changelogs(texts)]
    scripts = [name for name in texts if re.fullmatch(SCRIPT, name)]
    found += [(name, "the script is not executable") for name in scripts if not os.access(root / name, os.X_OK)]
    for where, message in found:
        print(f"{where}: {message}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
