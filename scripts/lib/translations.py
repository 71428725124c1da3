"""Checks that the Chinese documents match the English ones.

Usage: translations.py ROOT. X.zh-CN.md must have headings of the same levels as X.md, and the same commands
between them. In a code block that shows a session only the lines that begin with "$ " are compared; in any
other block all lines, without comments. Prints the differences; exits with 1 if there are any.
"""

import difflib
import pathlib
import re
import sys

from markdown_it import MarkdownIt

SUFFIX = ".zh-CN.md"
# Pages that must have a translation. Other pages are compared if they have one.
TRANSLATED = {"README.md", "docs/device.md"}
COMMAND = re.compile(r"^\$ (?:.*\\\n)*.*$", re.MULTILINE)
COMMENT = re.compile(r"(^|\s+)#(\s.*)?$")


def outline(path: pathlib.Path) -> list[str]:
    """Returns the headings and commands of a page, in order."""
    result = []
    for token in MarkdownIt().parse(path.read_text(encoding="utf-8")):
        if token.type == "heading_open":
            result.append(f"a heading of level {token.tag[1:]}")
        elif token.type in ("fence", "code_block"):
            lines = "\n".join(COMMAND.findall(token.content)) or token.content
            result += filter(None, (COMMENT.sub("", line.strip()) for line in lines.splitlines()))
    return result


def main() -> int:
    root = pathlib.Path(sys.argv[1]).resolve()
    translated = {path.relative_to(root).as_posix() for path in [*root.glob(f"*{SUFFIX}"), *root.glob(f"docs/**/*{SUFFIX}")]}
    differ = False
    for name in sorted(TRANSLATED | {path.removesuffix(SUFFIX) + ".md" for path in translated}):
        pages = [name, name.removesuffix(".md") + SUFFIX]
        missing = [page for page in pages if not (root / page).is_file()]
        found = [f"{page}: the page is missing" for page in missing]
        if not missing:
            found = difflib.unified_diff(*(outline(root / page) for page in pages), *pages, n=1, lineterm="")
        for line in found:
            print(line)
            differ = True
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
