"""Checks that the Chinese documents match the English ones, and that the page has every text in Chinese.

Usage: translations.py ROOT. X.zh-CN.md must have headings of the same levels as X.md, and between them the same
commands, list items, table rows, defined terms and links to other pages. In a code block that shows a session
only the lines that begin with "$ " are compared; in any other block all lines, without comments. A row's names in
code (keys, options, files) and a term stay as they are in English. A text of the page is what its scripts pass to
t(), or any other string that begins like a sentence; zh.js must have each, and none that no script has. Prints the
differences; exits with 1 if there are any.
"""

import difflib
import json
import pathlib
import re
import sys
from collections.abc import Iterator

from markdown_it import MarkdownIt
from markdown_it.token import Token

SUFFIX = ".zh-CN.md"
# Pages that must have a translation. Other pages are compared if they have one.
TRANSLATED = {
    "README.md",
    "docs/device.md",
    "docs/vorlatchctl.md",
    "docs/man/vorlatchctl.1.md",
    "docs/man/vorlatchd.8.md",
}
COMMAND = re.compile(r"^\$ (?:.*\\\n)*.*$", re.MULTILINE)
COMMENT = re.compile(r"(^|\s+)#(\s.*)?$")
# A name in code, in contrast to a word that the program shows in the user's language.
NAME = re.compile(r"(?=.*[a-z])(?=.*[A-Z_.\[-])\S+")
# A term of a definition list, with the line that defines it, or an argument at the start of a line.
TERM = re.compile(r"^(\*.+)(?=\n: )|^(\*[^:：]+\*)(?=[:：])", re.MULTILINE)

# A comment, or strings that are added; before them the call that takes them.
SCRIPT_TOKEN = re.compile(r'//.*|(?P<call>\bt\(\s*)?(?P<strings>"(?:[^"\\\n]|\\.)*"(?:\s*\+\s*"(?:[^"\\\n]|\\.)*")*)')
STRING = re.compile(r'"(?:[^"\\]|\\.)*"')
SENTENCE = re.compile(r"[A-Z][a-z']* [^<>]*")
TEXT_KEY = re.compile(r'^  ("(?:[^"\\]|\\.)*"|\w+):', re.MULTILINE)


def check_page(folder: pathlib.Path) -> Iterator[str]:
    """Compares the texts of the page's scripts with those in zh.js."""
    chinese = {json.loads(key) if key[0] == '"' else key for key in TEXT_KEY.findall((folder / "zh.js").read_text("utf-8"))}
    strings: set[str] = set()
    for path in sorted(folder.glob("*.js")):
        if path.name == "zh.js":
            continue
        for token in SCRIPT_TOKEN.finditer(path.read_text(encoding="utf-8")):
            text = "".join(map(json.loads, STRING.findall(token["strings"] or "")))
            strings.add(text)
            if text not in chinese and (token["call"] or SENTENCE.fullmatch(text)):
                yield f'{path.name}: zh.js does not have "{text}"'
    for text in sorted(chinese - strings):
        yield f'zh.js: no script has "{text}"'


def outline_of_text(inline: Token, is_cell: bool) -> list[str]:
    """Returns what a paragraph, or a cell of a table, has in common with its translation."""
    links = [child.attrs["href"] for child in inline.children if child.type == "link_open"]
    result = [f"a link to {page}" for link in links if (page := str(link).split("#")[0].replace(SUFFIX, ".md"))]
    if is_cell:
        return result + sorted(c.content for c in inline.children if c.type == "code_inline" and NAME.fullmatch(c.content))
    return result + ["".join(term) for term in TERM.findall(inline.content)]


def outline(path: pathlib.Path) -> list[str]:
    """Returns the structure of a page, in order."""
    result: list[str] = []
    is_cell = False
    for token in MarkdownIt().enable("table").parse(path.read_text(encoding="utf-8")):
        if token.type == "heading_open":
            result.append(f"a heading of level {token.tag[1:]}")
        elif token.type == "list_item_open":
            result.append("an item of a list")
        elif token.type == "tr_open":
            result.append("a row of a table")
        elif token.type in ("td_open", "td_close"):
            is_cell = token.type == "td_open"
        elif token.type == "inline":
            result += outline_of_text(token, is_cell)
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
    for line in check_page(root / "web" / "page"):
        print(f"web/page/{line}")
        differ = True
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
