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
import subprocess
import sys
import time

from universalmutator import mutator

FOLDERS = ["daemon", "reconcile", "kernel", "proc", "config", "rootprefix"]
TESTS = [
    *("daemon_test", "config_test", "libroot_test", "security_test", "scenario_test", "cli_test"),
    "random_stories",
]
# A change is tried with fewer random scenarios than scripts/test runs.
OPTIONS = {"random_stories": ["--stories", "100"]}
RULES = ["universal.rules", "c_like.rules", "cpp.rules"]
# A mutated program may write or allocate without limit.
LIMITS = ["prlimit", f"--as={4 << 30}", f"--fsize={1 << 30}", "--core=0"]
PATIENCE_S = 20
PATIENCE_FACTOR = 5


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
        self.unchanged, self.cases = {}, {}
        for test in TESTS:
            if not self._builds(test):
                sys.exit(f"mutate: {test} cannot be built before anything is changed")
            self.unchanged[test], self.cases[test] = self._digest(test), {}
            for case in self._list_cases(test):
                began = time.monotonic()
                if self._run(test, case, 600) != 0:
                    sys.exit(f"mutate: {case} fails before anything is changed")
                self.cases[test][case] = PATIENCE_S + PATIENCE_FACTOR * (time.monotonic() - began)

    def _builds(self, test: str) -> bool:
        command = ["ninja", "-C", self.build, test]
        return subprocess.run(command, capture_output=True, check=False).returncode == 0

    def _digest(self, test: str) -> str:
        return hashlib.sha256((self.build / "tests" / test).read_bytes()).hexdigest()

    def _list_cases(self, test: str) -> list[str]:
        """Lists the cases that do not need root, so that the results do not depend on the user."""
        command = [self.build / "tests" / test, "--gtest_list_tests", "--gtest_filter=-Privileged*"]
        suite, cases = "", []
        for line in subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines():
            name = line.split("#")[0].strip()
            if line.startswith(" "):
                cases.append(suite + name)
            else:
                suite = name
        return cases

    def _run(self, test: str, case: str, patience_s: float) -> int:
        """Returns the exit status; 137 if the timeout killed the test."""
        program = self.build / "tests" / test
        command = ["timeout", "--signal=KILL", str(patience_s), *LIMITS, program, f"--gtest_filter={case}"]
        command += OPTIONS.get(test, [])
        return subprocess.run(
            command, cwd=program.parent, stdin=subprocess.DEVNULL, capture_output=True, check=False
        ).returncode

    def judge(self, change: Change) -> str:
        path = self.sources / change.file
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True)
        try:
            path.write_text("".join([*lines[: change.line - 1], change.new, *lines[change.line :]]))
            # The changed folder's own test, if there is one, runs first.
            own = change.file.split("/")[0] + "_test"
            return self._held_against(sorted(TESTS, key=lambda test: test != own))
        finally:
            path.write_text("".join(lines), encoding="utf-8")

    def _held_against(self, tests: list[str]) -> str:
        verdict = "changes nothing"
        for test in tests:
            if not self._builds(test):
                return "not compiled"
            if self._digest(test) == self.unchanged[test]:
                continue
            verdict = "survived"
            for case, patience_s in self.cases[test].items():
                # Runs a failed case again, so that a timeout on a busy machine does not count as noticing the change.
                if self._run(test, case, patience_s) and (status := self._run(test, case, patience_s)):
                    return f"{'timed out' if status in (137, -9) else 'noticed'} by {case}"
        return verdict


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
    died = verdicts["noticed"] + verdicts["timed out"]
    print(
        f"{died + verdicts['survived']} changes: {died} noticed ({verdicts['timed out']} by taking too long), "
        f"{verdicts['survived']} survived. {verdicts['not compiled']} more did not compile and "
        f"{verdicts['changes nothing']} gave the same program; these do not count."
    )
    return 0


if __name__ == "__main__":
    sys.exit(main())
