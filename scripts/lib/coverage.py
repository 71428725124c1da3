"""How much of the sources was reached, from llvm-cov's summaries.

Usage: coverage.py ROOT SUMMARY...: prints a line for each SUMMARY.json, of the core's and of
vorlatchctl's sources.
"""

import json
import pathlib
import sys

CORE = {"platform", "rootprefix", "config", "proc", "kernel", "reconcile", "daemon"}


def part_of(path):
    """core, cli or nothing; what belongs to one platform is neither."""
    folders = path.parent.parts
    if folders[:1] == ("cli",):
        return "cli"
    return "core" if len(folders) == 1 and folders[0] in CORE else None


def count(summary, root):
    """[covered, all] by part and measure."""
    counts = {(part, what): [0, 0] for part in ("core", "cli") for what in ("lines", "regions")}
    for file in summary["data"][0]["files"]:
        path = pathlib.Path(file["filename"]).resolve()
        part = part_of(path.relative_to(root)) if path.is_relative_to(root) else None
        if part is None:
            continue
        for what in ("lines", "regions"):
            counts[part, what][0] += file["summary"][what]["covered"]
            counts[part, what][1] += file["summary"][what]["count"]
    return counts


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    print(f"{'':16}{'core: lines':>20}{'regions':>20}{'cli: lines':>20}{'regions':>20}")
    for name in sys.argv[2:]:
        summary = json.loads(pathlib.Path(name + ".json").read_text(encoding="utf-8"))
        columns = [
            f"{100 * covered / everything:.1f} % of {everything}"
            for covered, everything in count(summary, root).values()
        ]
        print(f"{pathlib.Path(name).name:16}" + "".join(f"{column:>20}" for column in columns))
    return 0


if __name__ == "__main__":
    sys.exit(main())
