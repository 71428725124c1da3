"""Whether the Chinese documents are in step with the English ones.

Usage: translations.py ROOT. X.zh-CN.md has the headings of X.md, level by level, and between them the
same commands. A block of code that shows a session counts by its lines that begin with "$ "; what they
print may differ. Any other block counts line by line, up to a comment. Prints the differences; ends
with 1 when there are any.
"""

import difflib
import pathlib
import re
import sys

from markdown_it import MarkdownIt

SUFFIX = ".zh-CN.md"
# Pages that must not lose their translation; any other that has one is compared likewise.
TRANSLATED = {"README.md", "docs/device.md"}
COMMAND = re.compile(r"^\$ (?:.*\\\n)*.*$", re.MULTILINE)
COMMENT = re.compile(r"(^|\s+)#(\s.*)?$")


def outline(path: pathlib.Path) -> list[str]:
    """What two pages have to share, in its order."""
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
