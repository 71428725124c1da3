"""Changes the core's sources in one small place at a time, and tells which changes no test notices.

The changes are drawn by a seed, from the folders in turn until each has no more, and only those that
compile are counted. Each survivor is printed as a diff, the sum at the end. Works on a copy under
build/mutate.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import difflib
import pathlib
import queue
import random
import sys
import time

from mutants import FOLDERS, BuildError, Mutant, TestBuild
from mutations import mutations_in


def core_sources(root):
    """By its path below the root: every source in the core's folders."""
    return {
        path.relative_to(root).as_posix(): path
        for folder in FOLDERS
        for path in sorted((root / folder).iterdir())
        if path.suffix in (".cpp", ".h")
    }


def find_mutations(sources, names):
    """By folder: all mutations of the named files, or of every source in the core's folders."""
    known = core_sources(sources)
    if unknown := [name for name in names if name not in known]:
        raise BuildError(f"no such source: {unknown[0]}")
    by_folder = {}
    for name, path in known.items():
        if names and name not in names:
            continue
        text = path.read_text(encoding="utf-8")
        by_folder.setdefault(name.split("/")[0], []).extend(mutations_in(name, text))
    if not any(by_folder.values()):
        raise BuildError("there is nothing to change in " + ", ".join(names))
    return by_folder


def draw(by_folder, seed):
    """Every mutation once, in a random order in which the folders take turns."""
    piles = []
    for folder in sorted(by_folder):
        pile = list(by_folder[folder])
        random.Random(f"{seed} {folder}").shuffle(pile)
        piles.append(pile)
    while any(piles):
        for pile in piles:
            if pile:
                yield pile.pop()


def shown(sources, mutation):
    """The change as a diff."""
    text = (sources / mutation.file).read_text(encoding="utf-8")
    changed = mutation.applied_to(text)
    lines = difflib.unified_diff(
        text.splitlines(), changed.splitlines(), mutation.file, mutation.id, n=1, lineterm=""
    )
    return "\n".join(lines)


def judge(tests, mutation, slots):
    slot = slots.get()
    try:
        text = (tests.sources / mutation.file).read_text(encoding="utf-8")
        folder = tests.folder / f"job{slot}"
        with Mutant(tests, mutation.file, mutation.applied_to(text), folder) as mutant:
            return mutant.judge()
    finally:
        slots.put(slot)


def check_the_check(tests, by_folder, slots):
    """An unchanged source must pass by the road that mutants take, and one without a call die."""
    mutations = [mutation for folder in by_folder.values() for mutation in folder]
    first = mutations[0]
    unchanged = dataclasses.replace(first, end=first.start, replacement="")
    if judge(tests, unchanged, slots).outcome != "survived":
        raise BuildError(f"{first.file} does not pass unchanged")
    text = (tests.sources / "daemon/startup.cpp").read_text(encoding="utf-8")
    silent = [
        mutation
        for mutation in mutations_in("daemon/startup.cpp", text)
        if text[mutation.start : mutation.end] == "applyMemoryLimits();"
    ]
    if len(silent) != 1 or judge(tests, silent[0], slots).outcome != "killed":
        raise BuildError("a daemon that never asks for a pass is not noticed")


def judge_all(tests, mutations, count, jobs, slots):
    """Judges mutations in their order, until so many counted."""
    verdicts, counted, left = {}, 0, iter(mutations)
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        running = {}
        while True:
            while len(running) < min(jobs, count - counted) and (mutation := next(left, None)):
                running[pool.submit(judge, tests, mutation, slots)] = mutation
            if not running:
                return verdicts
            done, _ = concurrent.futures.wait(running, return_when="FIRST_COMPLETED")
            for future in done:
                mutation, verdict = running.pop(future), future.result()
                verdicts[mutation] = verdict
                counted += verdict.counts
                report(tests, mutation, verdict, counted)


def report(tests, mutation, verdict, counted):
    if verdict.outcome == "survived":
        print(f"\nsurvived: {mutation.id}\n{shown(tests.sources, mutation)}\n", flush=True)
    by = f" by {verdict.by}" if verdict.by else ""
    with (tests.folder / "verdicts.txt").open("a", encoding="utf-8") as log:
        print(f"{counted:4} {mutation.id} {verdict.outcome}{by}", file=log)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__)
    parser.add_argument("--root", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--seed", type=int, default=1, help="draws the changes (1)")
    parser.add_argument("--count", type=int, default=400, help="how many, if there are (400)")
    parser.add_argument("--jobs", type=int, default=1, help="how many at once (1)")
    parser.add_argument(
        "--only",
        nargs="+",
        default=[],
        metavar="FILE:LINE:COLUMN:KIND",
        help="these changes, as they are printed, and no others",
    )
    parser.add_argument("files", nargs="*", metavar="FILE", help="of these sources only")
    return parser.parse_args()


def choose(by_folder, arguments):
    """The mutations to judge, in their order, and how many of them are to count."""
    if not arguments.only:
        return draw(by_folder, arguments.seed), arguments.count
    known = {mutation.id: mutation for folder in by_folder.values() for mutation in folder}
    if unknown := [name for name in arguments.only if name not in known]:
        raise BuildError(f"no such change: {unknown[0]}")
    return [known[name] for name in arguments.only], len(arguments.only)


def summary(verdicts):
    outcomes = collections.Counter(verdict.outcome for verdict in verdicts.values())
    died = outcomes["killed"] + outcomes["timed out"]
    counted = died + outcomes["survived"]
    return (
        f"{counted} changes: {died} noticed ({outcomes['timed out']} by taking too long), "
        f"{outcomes['survived']} survived; {100 * died / max(1, counted):.1f} % died. "
        f"{outcomes['not compiled']} more did not compile and do not count."
    )


def main():
    arguments = parse_arguments()
    began = time.monotonic()
    slots = queue.Queue()
    for slot in range(arguments.jobs):
        slots.put(slot)
    try:
        root = arguments.root.resolve()
        find_mutations(root, arguments.files)  # before anything is built for what is not there
        print("building the tests from a copy", file=sys.stderr)
        tests = TestBuild(root)
        tests.find_cases()
        (tests.folder / "verdicts.txt").write_text("", encoding="utf-8")
        by_folder = find_mutations(tests.sources, arguments.files)
        mutations, count = choose(by_folder, arguments)
        check_the_check(tests, by_folder, slots)
        print(f"ready after {time.monotonic() - began:.0f} s", file=sys.stderr)
        verdicts = judge_all(tests, mutations, count, arguments.jobs, slots)
    except BuildError as why:
        print(f"mutate: {why}", file=sys.stderr)
        return 1
    print(f"{summary(verdicts)} {time.monotonic() - began:.0f} s.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
