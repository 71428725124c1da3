"""Changes one line of the core's sources at a time, and reports the changes that no test notices.

Usage: mutate.py FOLDER [--seed N] [--count N] [--only CHANGE...] [FILE...]. FOLDER contains a copy of the
sources in sources/, and a configured build of their tests in tests/.
"""

import argparse
import collections
import contextlib
import dataclasses
import hashlib
import io
import pathlib
import random
import re
import subprocess
import sys
import time

from universalmutator import mutator

FOLDERS = ["daemon", "reconcile", "kernel", "proc", "config", "rootprefix"]
TESTS = [
    *("daemon_test", "config_test", "libroot_test", "security_test", "scenario_test", "cli_test"),
    "random_stories",
]
RULES = ["universal.rules", "c_like.rules", "cpp.rules"]
# A mutated program may write or allocate without limit.
LIMITS = ["prlimit", f"--as={4 << 30}", f"--fsize={1 << 30}", "--core=0"]
# Leaves out tests that need root or a program that is not in TESTS.
CTEST = ["ctest", "-j", "2", "--stop-on-failure", "--no-tests=error", "-LE", "^privileged$"]
CTEST += ["-E", "NOT_BUILT|Packaging|Scripts|ThreadS|EveryCallIsMadeToFail"]
PATIENCE_S, PATIENCE_FACTOR = 60, 3


@dataclasses.dataclass(frozen=True)
class Change:
    file: str
    line: int
    number: int  # counts the changes of this line from 1
    old: str
    new: str

    @property
    def name(self) -> str:
        return f"{self.file}:{self.line}:{self.number}"


def changes_of(sources: pathlib.Path, file: str) -> list[Change]:
    lines = (sources / file).read_text(encoding="utf-8").splitlines(keepends=True)
    with contextlib.redirect_stdout(io.StringIO()):
        found = mutator.mutants_regexp(lines, RULES, ignorePatterns=[r"^#", "static_assert"])
    numbers = collections.Counter()
    changes = []
    for line, new, *_ in found:
        numbers[line] += 1
        changes.append(Change(file, line, numbers[line], lines[line - 1], new))
    return changes


def draw(sources: pathlib.Path, files: list[str], seed: int) -> list[Change]:
    """All changes in random order, taken from each folder in turn."""
    piles = collections.defaultdict(list)
    for file in files:
        piles[file.split("/")[0]] += changes_of(sources, file)
    for folder, pile in piles.items():
        random.Random(f"{seed} {folder}").shuffle(pile)
    turns = [(turn, folder) for folder, pile in piles.items() for turn in range(len(pile))]
    return [piles[folder][turn] for turn, folder in sorted(turns)]


class Tests:
    def __init__(self, folder: pathlib.Path) -> None:
        self.sources, self.build = folder / "sources", folder / "tests"
        self.unchanged, self.limit_s = None, 3600
        began = time.monotonic()
        if (verdict := self._verdict()) != "survived":
            sys.exit(f"mutate: before anything is changed: {verdict}")
        self.unchanged, self.limit_s = self._digest(), PATIENCE_S + PATIENCE_FACTOR * (time.monotonic() - began)

    def judge(self, change: Change) -> str:
        path = self.sources / change.file
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True)
        try:
            path.write_text("".join([*lines[: change.line - 1], change.new, *lines[change.line :]]))
            return self._verdict()
        finally:
            path.write_text("".join(lines), encoding="utf-8")

    def _digest(self) -> str:
        return hashlib.sha256(b"".join((self.build / "tests" / test).read_bytes() for test in TESTS)).hexdigest()

    def _verdict(self) -> str:
        if subprocess.run(["ninja", "-C", self.build, *TESTS], capture_output=True, check=False).returncode:
            return "not compiled"
        if self._digest() == self.unchanged:
            return "changes nothing"
        command = ["timeout", str(self.limit_s), *LIMITS, *CTEST]
        done = subprocess.run(command, cwd=self.build, stdin=subprocess.DEVNULL, capture_output=True, check=False)
        failed = re.search(rb"FAILED:\s+\d+ - (\S+)", done.stdout)
        if done.returncode == 0:
            return "survived"
        return f"noticed by {failed[1].decode()}" if failed else "timed out"


def main() -> int:
    parser = argparse.ArgumentParser(prog="mutate")
    parser.add_argument("folder", type=pathlib.Path)
    for option, default in (("--seed", 1), ("--count", 400)):
        parser.add_argument(option, type=int, default=default)
    parser.add_argument("--only", nargs="+", default=[], metavar="FILE:LINE:NUMBER")
    parser.add_argument("files", nargs="*", metavar="FILE")
    asked = parser.parse_args()
    sources = asked.folder / "sources"
    paths = (path for folder in FOLDERS for path in sorted((sources / folder).glob("*.[ch]*")))
    known = [path.relative_to(sources).as_posix() for path in paths]
    drawn = draw(sources, asked.files or known, asked.seed)
    if asked.only:
        drawn = [change for change in drawn if change.name in asked.only]
    if not set(asked.files) <= set(known) or len(drawn) < len(asked.only):
        sys.exit("mutate: no such source or change")
    tests, verdicts = Tests(asked.folder), collections.Counter()
    with (asked.folder / "verdicts.txt").open("w", encoding="utf-8") as log:
        for change in drawn:
            if verdicts["noticed"] + verdicts["timed out"] + verdicts["survived"] == asked.count:
                break
            verdict = tests.judge(change)
            verdicts[verdict.split(" by ")[0]] += 1
            print(f"{change.name} {verdict}", file=log, flush=True)
            if verdict == "survived":
                print(f"survived: {change.name}\n-{change.old}+{change.new}", flush=True)
    print(", ".join(f"{count} {verdict}" for verdict, count in sorted(verdicts.items())))
    return 0


if __name__ == "__main__":
    sys.exit(main())
