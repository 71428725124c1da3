"""Runs clang-tidy over every source that the given presets build, and remembers what was clean.

A source is looked at again when its own text, a header it includes, the way it is compiled or the
linter changed.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
# The device's; and what is there to be refused, which a test compiles.
FOLDERS_NOT_BUILT_HERE = ("platform/darwin", "tests/thread_safety")


def read_commands(root, presets):
    """By source: the preset that builds it first, and its command lines there."""
    commands = {}
    for preset in presets:
        database = root / "build" / preset / "compile_commands.json"
        for entry in json.loads(database.read_text()):
            source = pathlib.Path(entry["directory"], entry["file"]).resolve()
            found = commands.setdefault(source, (preset, []))
            if found[0] == preset:
                found[1].append(entry["command"])
    return {source: found for source, found in commands.items() if source.exists()}


def with_includes(root, source):
    """The source and the headers of this checkout that it includes, whatever the depth."""
    seen, left = set(), [source]
    while left:
        path = left.pop()
        if path in seen:
            continue
        seen.add(path)
        for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
            for header in (root / name, path.parent / name):
                if header.is_file():
                    left.append(header.resolve())
    return sorted(seen)


def digest(root, source, commands, linter):
    whole = hashlib.sha256(linter)
    for command in commands:
        whole.update(command.encode())
    for path in with_includes(root, source):
        whole.update(b"\0" + str(path).encode() + b"\0" + path.read_bytes())
    return whole.hexdigest()


def lint(root, source, preset, fix):
    """What clang-tidy says of the source; nothing when it is clean."""
    command = ["clang-tidy", "--quiet", "-p", str(root / "build" / preset)]
    if fix:
        command += ["--fix", "--checks=-readability-identifier-naming"]
    done = subprocess.run(command + [str(source)], capture_output=True, text=True, check=False)
    if done.returncode == 0:
        return ""
    return done.stdout or done.stderr


def sources_of_no_build(root, commands):
    for path in sorted(root.rglob("*.cpp")):
        name = path.relative_to(root).as_posix()
        if name.startswith(("build/", "dist/", ".git/") + FOLDERS_NOT_BUILT_HERE):
            continue
        if path.resolve() not in commands:
            yield name


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--fix", action="store_true", help="apply what the linter can repair")
    parser.add_argument("presets", nargs="+", help="configured presets, the preferred one first")
    arguments = parser.parse_args()
    root = arguments.root.resolve()

    version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    settings = (root / ".clang-tidy", root / "tests" / ".clang-tidy")
    linter = version + b"".join(path.read_bytes() for path in settings)
    commands = read_commands(root, arguments.presets)
    clean_folder = root / "build" / "tidy"
    clean_folder.mkdir(parents=True, exist_ok=True)
    stamps = {s: digest(root, s, lines, linter) for s, (_, lines) in commands.items()}
    left = [s for s in sorted(commands) if not (clean_folder / stamps[s]).exists()]

    failed = False
    for name in sources_of_no_build(root, commands):
        print(f"{name}: no build compiles it, so nothing looks at it")
        failed = True
    # Fixes of two sources may meet in one header, so they are applied one after the other.
    jobs = 1 if arguments.fix else os.cpu_count()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        results = pool.map(lambda s: lint(root, s, commands[s][0], arguments.fix), left)
        for source, said in zip(left, results):
            if said:
                print(said, flush=True)
                failed = True
            elif not arguments.fix:
                (clean_folder / stamps[source]).touch()
    for stamp in clean_folder.iterdir():
        if stamp.name not in stamps.values():
            stamp.unlink(missing_ok=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
