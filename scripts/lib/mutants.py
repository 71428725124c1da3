"""Builds one mutant of the sources after another, and holds it against the tests.

The tests are built once from a copy of the sources. For a mutant the changed source alone is compiled, or,
for a header, whatever includes it, and a test is linked with the new objects in front of the libraries
that hold the old ones. Nothing of a mutant is kept.
"""

import dataclasses
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import time

FOLDERS = ("daemon", "reconcile", "kernel", "proc", "config", "rootprefix")
# The tests of stories and of single parts, in the order in which they are tried; those of the changed
# folder come first. Left out are the random stories, the faults and the installed daemon, which take too
# long to be asked about each change.
TESTS = (
    "kernel_test", "reconcile_test", "daemon_test", "proc_test", "config_test", "libroot_test",
    "property_list_guard_test", "security_test", "scenario_test", "cli_test",
)  # fmt: skip
OWN_TESTS = {
    "daemon": ("daemon_test",),
    "reconcile": ("reconcile_test",),
    "kernel": ("kernel_test",),
    "proc": ("proc_test",),
    "config": ("config_test", "property_list_guard_test", "security_test"),
    "rootprefix": ("libroot_test", "scenario_test"),
}
NOT_COPIED = {"build", "dist", ".git", "__pycache__"}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
ARCHIVE_OF = re.compile(r"CMakeFiles/(\w+)\.dir/")
MEMORY_BYTES = 4 << 30
FILE_BYTES = 1 << 30
# What a case may take beyond many times what it took unchanged; a mutant that loops takes for ever.
PATIENCE_S = 20
PATIENCE_FACTOR = 20


class BuildError(Exception):
    pass


@dataclasses.dataclass(frozen=True)
class Verdict:
    """`outcome` is killed, timed out, survived or not compiled; `by` the case that killed."""

    outcome: str
    by: str = ""

    @property
    def counts(self):
        return self.outcome != "not compiled"


@dataclasses.dataclass(frozen=True)
class Finished:
    status: int | None  # none when time ran out
    output: str


def run(command, folder, timeout_s=None, environment=None, limited=False):
    """Runs a command in a process group of its own, which is killed when the time runs out."""

    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
        resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_BYTES, FILE_BYTES))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    with subprocess.Popen(
        command,
        cwd=folder,
        env={**os.environ, **(environment or {})},
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        start_new_session=True,
        preexec_fn=limit if limited else None,
    ) as process:
        try:
            output = process.communicate(timeout=timeout_s)[0]
            return Finished(process.returncode, output.decode("utf-8", "replace"))
        except BaseException as why:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            if not isinstance(why, subprocess.TimeoutExpired):
                raise
            return Finished(None, "")


def copy_sources(root, copy):
    """Brings the copy up to date; a file that is the same keeps its time, and need not be built."""
    wanted = set()
    for folder, folders, files in os.walk(root):
        folders[:] = [name for name in folders if name not in NOT_COPIED]
        for name in files:
            source = pathlib.Path(folder, name)
            target = copy / source.relative_to(root)
            wanted.add(target)
            if not target.is_file() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
    for path in copy.rglob("*"):
        if path.is_file() and path not in wanted:
            path.unlink()


def find_includers(sources):
    """By header, as a path below the sources: every source that includes it, whatever the depth."""
    direct = {}
    for path in [*sources.rglob("*.cpp"), *sources.rglob("*.h")]:
        name = path.relative_to(sources).as_posix()
        direct[name] = INCLUDE.findall(path.read_text(encoding="utf-8"))
    includers = {}
    for name in direct:
        seen, left = set(), [name]
        while left:
            for target in direct.get(left.pop(), ()):
                if target in direct and target not in seen:
                    seen.add(target)
                    left.append(target)
        for target in seen:
            includers.setdefault(target, set()).add(name)
    return includers


class TestBuild:
    """The copy of the sources, and the tests built from it."""

    def __init__(self, root):
        self.folder = root / "build" / "mutate"
        self.sources = self.folder / "sources"
        self.build = self.folder / "tests"
        copy_sources(root, self.sources)
        self._configure()
        self._must(["ninja", "-C", str(self.build), "-j", "1", *TESTS])
        self.objects = self._read_objects()
        self.link_commands = {test: self._read_link_command(test) for test in TESTS}
        self.includers = find_includers(self.sources)
        self.cases = {}

    def _must(self, command):
        done = run(command, self.folder)
        if done.status != 0:
            raise BuildError(done.output)
        return done.output

    def _configure(self):
        flags = {
            "CMAKE_BUILD_TYPE": "Mutate",
            "CMAKE_CXX_COMPILER": "clang++",
            # Quick to compile, with frames small enough for the test of a small stack. Without
            # warnings: a function left without a use is for the tests to notice.
            "CMAKE_CXX_FLAGS": "-O1 -w",
            "CMAKE_EXE_LINKER_FLAGS": "-fuse-ld=lld",
            "CMAKE_EXPORT_COMPILE_COMMANDS": "ON",
            "CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE": "PRE_TEST",
        }
        self._must(
            ["cmake", "-S", str(self.sources), "-B", str(self.build), "-G", "Ninja"]
            + [f"-D{name}={value}" for name, value in flags.items()]
        )

    def _read_objects(self):
        """By source: its objects in the tests and their libraries, each with its command."""
        database = json.loads((self.build / "compile_commands.json").read_text())
        objects = {}
        for entry in database:
            name = pathlib.Path(entry["file"]).relative_to(self.sources).as_posix()
            words = shlex.split(entry["command"])
            if "ccache" in pathlib.Path(words[0]).name:
                words = words[1:]
            objects.setdefault(name, {})[words[words.index("-o") + 1]] = words
        return objects

    def _read_link_command(self, test):
        lines = self._must(["ninja", "-C", str(self.build), "-t", "commands", f"tests/{test}"])
        command = lines.splitlines()[-1]
        if f"-o tests/{test} " not in command:
            raise BuildError(f"no command links {test}: {command}")
        return shlex.split(command.split("&&")[1])

    def find_cases(self):
        """Runs every test unchanged, and keeps how long each case takes."""
        for test in TESTS:
            program = self.build / "tests" / test
            for name in list_cases(program):
                began = time.monotonic()
                if not passes(program, name, self.folder, 600):
                    raise BuildError(f"{name} fails before anything is changed")
                self.cases.setdefault(test, {})[name] = time.monotonic() - began


def list_cases(program):
    """The names of its cases, without those that need root: a verdict is the same whoever asks."""
    listing = [program, "--gtest_list_tests", "--gtest_filter=-Privileged*"]
    suite, names = "", []
    for line in run(listing, program.parent).output.splitlines():
        if not line.startswith(" "):
            suite = line.split("#")[0].strip()
        else:
            names.append(suite + line.split("#")[0].strip())
    return names


def passes(program, case, temporary, timeout_s):
    """Whether the case passes; none when it takes too long. Each case is a process of its own.

    One that fails is asked again: a mutant is not killed by what a busy machine does to a test.
    """
    for _ in range(2):
        done = run(
            [program, f"--gtest_filter={case}"],
            program.parent,
            timeout_s,
            {"TMPDIR": str(temporary)},
            limited=True,
        )
        if done.status is None:
            return None
        if done.status == 0 and ("passed" in done.output or "PASSED" in done.output):
            return True
    return False


class Mutant:
    """One changed source in a folder of its own, which goes when this does."""

    def __init__(self, tests, name, text, folder):
        self.tests = tests
        self.name = name
        self.folder = folder
        affected = tests.includers.get(name, {name}) & set(tests.objects)
        self.affected = sorted(affected)
        self.new_objects = {}
        shutil.rmtree(folder, ignore_errors=True)
        (folder / name).parent.mkdir(parents=True)
        (folder / "objects").mkdir()
        (folder / "tests").mkdir()
        (folder / "tmp").mkdir()
        (folder / name).write_text(text, encoding="utf-8")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def judge(self):
        # The core first, so that what does not compile is known before any test is.
        core = [name for name in self.affected if name.split("/")[0] in FOLDERS]
        if not all(self._compiles(name) for name in core):
            return Verdict("not compiled")
        own = OWN_TESTS[self.name.split("/")[0]]
        for test in [*own, *(test for test in TESTS if test not in own)]:
            verdict = self._hold_against(test)
            if verdict:
                return verdict
        return Verdict("survived")

    def _compiles(self, name):
        """Compiles a source for every object that is made of it."""
        for number, (path, words) in enumerate(sorted(self.tests.objects[name].items())):
            if path in self.new_objects:
                continue
            target = self.folder / "objects" / f"{len(self.new_objects)}_{number}.o"
            changed = self.folder / name
            replaced = {path: str(target)}
            if changed.is_file():
                replaced[str(self.tests.sources / name)] = str(changed)
            command = [replaced.get(word, word) for word in words]
            command.insert(1, f"-I{self.folder}")
            done = run(command, self.tests.build, 600, {"CCACHE_DISABLE": "1"})
            if done.status != 0:
                return False
            self.new_objects[path] = str(target)
        return True

    def _link(self, test):
        """The test's program with the mutant in it; none when it does not link."""
        words = self.tests.link_commands[test]
        archives = {pathlib.Path(word).name for word in words if word.endswith(".a")}
        added = []
        for name in self.affected:
            for path in self.tests.objects[name]:
                in_archive = f"lib{ARCHIVE_OF.search(path)[1]}.a" in archives
                if not in_archive and path not in words:
                    continue
                if not self._compiles(name):
                    return None
                if in_archive:
                    added.append(self.new_objects[path])
        program = self.folder / "tests" / test
        at = words.index("-o")
        replaced = [self.new_objects.get(word, word) for word in words]
        command = [*replaced[:at], *added, "-o", str(program), *replaced[at + 2 :]]
        done = run(command, self.tests.build, 600)
        return program if done.status == 0 else None

    def _hold_against(self, test):
        program = self._link(test)
        if program is None:
            return Verdict("not compiled")
        for case, usual_s in self.tests.cases[test].items():
            timeout_s = PATIENCE_S + PATIENCE_FACTOR * usual_s
            passed = passes(program, case, self.folder / "tmp", timeout_s)
            if not passed:
                return Verdict("timed out" if passed is None else "killed", case)
        program.unlink()
        return None
