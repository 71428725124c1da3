#!/usr/bin/env python3
"""Prints the package's page for package managers: a native depiction in JSON, in English and in Chinese.

Its texts are the first paragraph of README.md, the description in debian/control.in, and CHANGELOG.md.
"""

import json
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[1]
CHINESE = re.compile("[\u4e00-\u9fff]")
# The suffix of the documents, the names of the two tabs, and the label of the version.
LANGUAGES = (("", "English", "Changes", "Version"), (".zh-CN", "中文", "更新", "版本"))


def read(name: str) -> str:
    return (ROOT / name).read_text(encoding="utf-8")


def view(name: str, **fields: object) -> dict[str, object]:
    return {"class": f"Depiction{name}View", **fields}


def text_view(text: str) -> dict[str, object]:
    """Shows Markdown with each paragraph in one line, because some readers keep the line breaks."""
    for glue, before in (("", "[\u3000-\uffef]"), (" ", r"\S")):  # no space behind Chinese
        text = re.sub(rf"(?<={before})\n *(?=[^\s#-])", glue, text.strip())
    return view("Markdown", markdown=text)


def make_tabs(suffix: str, details: str, changes: str, version: str) -> list[dict[str, object]]:
    control = read("packaging/debian/control.in")
    description = control.partition("\nDescription: ")[2].partition("\n")[2]
    paragraphs = re.sub(r"^ \.?", "", description, flags=re.MULTILINE).split("\n\n")
    introduction = read(f"README{suffix}.md").split("\n\n")[2]
    texts = [introduction, *(text for text in paragraphs if bool(CHINESE.search(text)) == bool(suffix))]
    oldest = re.search(r"firmware \(>= (.*?)\)", control)[1]
    rows = [(version, read("VERSION").strip()), ("iOS", f"{oldest}+")]
    views = [
        *(view("Header", title="Vorlatch"), text_view("\n\n".join(texts)), view("Separator")),
        *(view("TableText", title=title, text=text) for title, text in rows),
    ]
    changelog = read(f"CHANGELOG{suffix}.md")
    return [
        view("Stack", tabname=details, views=views),
        view("Stack", tabname=changes, views=[text_view(changelog[changelog.index("## ") :])]),
    ]


tabs = [tab for language in LANGUAGES for tab in make_tabs(*language)]
print(json.dumps(view("Tab", minVersion="0.1", tabs=tabs), ensure_ascii=False, indent=1))
