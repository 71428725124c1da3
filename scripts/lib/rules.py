"""The repository's own rules, which no compiler and no linter knows.

Usage: rules.py ROOT. Prints each breach as PATH:LINE: MESSAGE; ends with 1 when there is one.
"""

import os
import pathlib
import re
import sys

LINES_MAX = 400

# What is installed. Which of these folders may include which is the build's to say.
PRODUCT = {
    "base",
    "platform",
    "rootprefix",
    "log",
    "config",
    "kernel",
    "proc",
    "reconcile",
    "daemon",
    "control",
    "cli",
}
PLATFORMS = {"darwin", "linux", "model"}
# Headers that may ask which compiler it is; of the platform none may.
OF_THE_COMPILER = {"base/thread_safety.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|else)\b")
HEAVY_INCLUDE = re.compile(r"^\s*#\s*include\s+<(iostream|regex|sstream)>")
NOT_IN_TESTS = re.compile(
    r"\b(GTEST_SKIP|DISABLED_\w*|sleep_for|sleep_until|usleep|nanosleep)\b|DISABLED_"
)
CPP_NAME = re.compile(r"[a-z][a-z0-9_]*\.(cpp|h)")
OTHER_NAME = re.compile(r"[a-z][a-z0-9_]*\.(py|sh|map)")
TEXT_ENDINGS = {".cpp", ".h", ".md", ".py", ".sh", ".txt", ".json", ".cmake", ".map", ".yml"}
MESSAGE = re.compile(r'\bwriteLogLine\(\s*((?:"(?:[^"\\]|\\.)*"\s*)*)')
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
STAMP = "[%s] "


class Source:
    def __init__(self, root, path):
        self.path = path
        self.name = path.relative_to(root).as_posix()
        self.parts = self.name.split("/")
        self.folder = self.parts[0] if len(self.parts) > 1 else ""
        self.text = path.read_bytes().decode("utf-8", "surrogateescape")
        self.lines = self.text.splitlines()

    @property
    def is_cpp(self):
        return self.path.suffix in (".cpp", ".h")

    @property
    def is_header(self):
        return self.path.suffix == ".h"

    @property
    def is_script(self):
        return self.text.startswith("#!")

    @property
    def platform(self):
        """The platform that the file belongs to; none for the seam and everything above it."""
        if self.folder == "platform" and len(self.parts) > 2 and self.parts[1] in PLATFORMS:
            return self.parts[1]
        return None

    @property
    def is_portable(self):
        return self.folder in PRODUCT and self.platform is None

    def line_of(self, position):
        return self.text.count("\n", 0, position) + 1

    def includes(self):
        for number, line in enumerate(self.lines, 1):
            if found := INCLUDE.match(line):
                yield number, found[1]


def read_sources(root):
    for folder, folders, files in os.walk(root):
        if pathlib.Path(folder) == root:
            folders[:] = [f for f in folders if f not in ("build", "dist", ".git")]
        folders[:] = sorted(f for f in folders if f not in ("corpus", "__pycache__"))
        for file in sorted(files):
            # Headers with the names and contents of others: their makers' rules hold for them.
            if "stubs" not in pathlib.Path(folder).parts:
                yield Source(root, pathlib.Path(folder, file))


def check_text(source):
    """What holds for every text file."""
    if source.path.suffix not in TEXT_ENDINGS and not source.is_script:
        return
    if source.text and not source.text.endswith("\n"):
        yield len(source.lines), "the file does not end with a line feed"
    for number, line in enumerate(source.lines, 1):
        # A here-document may hold a file in which tabs are usual.
        if "\t" in line and not (source.path.suffix == ".sh" and line.startswith("\t")):
            yield number, "a tab character"


def check_name(source):
    name = source.path.name
    if source.is_cpp and not CPP_NAME.fullmatch(name):
        yield 1, "a source's name is snake_case"
    if source.path.suffix in (".py", ".sh", ".map") and not OTHER_NAME.fullmatch(name):
        yield 1, "a file's name is snake_case"


def check_script(source):
    if not source.is_script or source.path.suffix in (".sh", ".py"):
        return
    if not os.access(source.path, os.X_OK):
        yield 1, "a script without its executable bit"
    if "bash" in source.lines[0] and "set -euo pipefail" not in source.lines:
        yield 1, "a script without set -euo pipefail goes on after a failure"


def check_cpp(source):
    if not source.is_cpp:
        return
    if len(source.lines) > LINES_MAX:
        yield LINES_MAX + 1, f"{len(source.lines)} lines; a file has at most {LINES_MAX}"
    for number, line in enumerate(source.lines, 1):
        if "NOLINT" in line:
            yield number, "NOLINT: change the code, or the check for all in .clang-tidy"
        is_bound = source.is_portable and source.name not in OF_THE_COMPILER
        if is_bound and CONDITION.match(line):
            yield number, "the build picks the platform: no #if at or above the seam"
        if source.folder in PRODUCT and (found := HEAVY_INCLUDE.match(line)):
            yield number, f"<{found[1]}> costs memory and start-up time"
        if source.folder == "tests" and (found := NOT_IN_TESTS.search(line)):
            yield number, f"{found[0]}: a test waits for events, and none is left out"


def check_header(source):
    if not source.is_header:
        return
    if source.lines.count("#pragma once") != 1:
        yield 1, "a header has #pragma once, once"
    if not source.text.startswith("//"):
        yield 1, "a header begins with a comment that says what it is for"


def check_includes(source, known):
    for number, target in source.includes():
        if target not in known:
            yield number, f'"{target}" is no file of this checkout, named from its root'


def find_cycle(known):
    """The first ring of files that include each other, as a list of names."""
    done, path = set(), []

    def visit(name):
        if name in path:
            return path[path.index(name) :] + [name]
        if name in done:
            return None
        path.append(name)
        for _, target in known[name].includes():
            if target in known and (ring := visit(target)):
                return ring
        path.pop()
        done.add(name)
        return None

    for name in sorted(known):
        if ring := visit(name):
            return ring
    return None


def check_use_of_headers(known):
    included = {target for source in known.values() for _, target in source.includes()}
    for name, source in known.items():
        if source.is_header and name not in included:
            yield name, 1, "no file includes this header"


def messages_of(source):
    """The log messages in the source without their stamp, each with its line."""
    for found in MESSAGE.finditer(source.text):
        text = "".join(LITERAL.findall(found[1]))
        if text:
            yield source.line_of(found.start()), text


def check_messages(sources, documentation):
    # In a table of the document a bar is written with a backslash.
    documented = documentation.replace("\\|", "|")
    for source in sources:
        if source.folder not in PRODUCT or not source.is_cpp:
            continue
        for number, text in messages_of(source):
            message = text.removeprefix(STAMP).removesuffix("\\n")
            if not text.startswith(STAMP):
                yield source.name, number, "a message begins with the stamp's field"
            elif f"`{message}`" not in documented:
                yield source.name, number, f'docs/log.md does not have the message "{message}"'


def breaches(root):
    sources = list(read_sources(root))
    known = {source.name: source for source in sources if source.is_cpp}
    for source in sources:
        for check in (check_text, check_name, check_script, check_cpp, check_header):
            for number, message in check(source):
                yield source.name, number, message
    for source in known.values():
        for number, message in check_includes(source, known):
            yield source.name, number, message
    if ring := find_cycle(known):
        yield ring[0], 1, "files include each other: " + " -> ".join(ring)
    yield from check_use_of_headers(known)
    document = root / "docs" / "log.md"
    if document.is_file():
        yield from check_messages(sources, document.read_text(encoding="utf-8"))
    else:
        yield "docs/log.md", 1, "the document of the log's messages is missing"


def main():
    found = list(breaches(pathlib.Path(sys.argv[1]).resolve()))
    for name, number, message in found:
        print(f"{name}:{number}: {message}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
