#!/usr/bin/env python3
"""Scripts of this checkout in a copy, where stand-ins take the place of what is built."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class ScriptCopy(unittest.TestCase):
    """Each case has a copy of its own, `root`; what is put into its bin/ is found before all else."""

    script, preset = "", ""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name).resolve()
        (self.root / "scripts" / "lib").mkdir(parents=True)
        for name in (self.script, "lib/common.sh"):
            shutil.copy(ROOT / "scripts" / name, self.root / "scripts" / name)
        self.put("CMakePresets.json", "")
        os.utime(self.root / "CMakePresets.json", (0, 0))
        self.put(f"build/{self.preset}/build.ninja", "")
        self.put("bin/ninja", "#!/bin/sh\necho no work to do\n")

    def put(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)

    def said_by(self, *arguments):
        """The exit status, the lines in their order by text, and what was said of errors."""
        paths = f"{self.root / 'bin'}:{os.environ['PATH']}"
        command = [self.root / "scripts" / self.script, *arguments]
        done = subprocess.run(command, env={**os.environ, "PATH": paths}, capture_output=True, text=True, check=False)
        return done.returncode, sorted(done.stdout.splitlines()), done.stderr


HASH = "0123456789012345678901234567890123456789"
# It writes an input into the first folder that it is given, and ends as a file beside it says.
FUZZER = f"""#!/bin/sh
for word; do
  case $word in
    -*) ;;
    *) echo new >"$word/{HASH}"; break ;;
  esac
done
echo "stat::number_of_executed_units: 5"
exit "$(cat "$(dirname "$0")/status")"
"""

class Fuzz(ScriptCopy):
    script, preset = "fuzz", "asan"

    def setUp(self):
        super().setUp()
        self.put("build/asan/fuzz/sample_fuzzer", FUZZER)
        self.put("build/asan/fuzz/status", "0")
        self.put("fuzz/corpus/sample/named.xml", "named")
        self.put(f"fuzz/corpus/sample/{HASH[::-1]}", "old")

    def files(self, folder):
        """By name: what stands in the files below the folder."""
        files = (path for path in (self.root / folder).rglob("*") if path.is_file())
        return {path.relative_to(self.root / folder).as_posix(): path.read_text() for path in files}

    def test_what_a_run_reached_is_kept_despite_a_finding(self):
        for status in (0, 77):
            self.put("build/asan/fuzz/status", str(status))
            lines = ["sample           stat::number_of_executed_units: 5"]
            self.assertEqual(self.said_by()[:2], (min(status, 1), lines))
            self.assertEqual(self.files("build/fuzz/found"), {f"sample/{HASH}": "new\n"})
            shutil.rmtree(self.root / "build/fuzz/found")

    def test_a_smaller_corpus_takes_the_place_of_the_old_one(self):
        self.put("build/fuzz/found/sample/x", "found")
        status, _, err = self.said_by("--minimise")
        self.assertEqual((status, err), (0, ""))
        kept = {"sample/named.xml": "named", f"sample/{HASH}": "new\n"}
        self.assertEqual(self.files("fuzz/corpus"), kept)
        self.assertEqual(self.files("build/fuzz/found"), {})


# Fails for one seed.
STORIES = """#!/bin/sh
shift
echo "$@"
[ "$4" != 13 ]
"""


class Soak(ScriptCopy):
    script, preset = "soak", "release"

    def test_every_core_has_its_share_and_a_failure_shows(self):
        self.put("build/release/tests/random_stories", STORIES)
        self.put("bin/nproc", "#!/bin/sh\necho 2\n")
        shares = ["--stories 3 --seed 10", "--stories 3 --seed 7"]
        self.assertEqual(self.said_by("--stories", "5", "--seed", "7"), (0, shares, ""))
        self.assertEqual(self.said_by("--seed", "13", "--stories", "1"), (123, ["--stories 1 --seed 13"], ""))
        self.assertEqual(self.said_by("--seed", "0")[0], 1)


LINE = "  if (a == b) return first;"
# Compiles what has no comment; the same program comes of every "a <= b".
NINJA = """#!/bin/sh
mkdir -p "$folder/tests/tests"
changed=$(sed 's/ *a <= b/a == b/' "$folder/sources/kernel/a.cpp")
case $changed in *'/*'*) exit 1 ;; esac
shift 2
cd "$folder/tests/tests"
for test; do echo "$changed" | sed '1,2d; s/ //g' >"$test"; done
"""
# Fails for want of "a == b" alone.
CTEST = """#!/bin/sh
grep -q '^if(a==b)' tests/daemon_test && exit
printf 'The following tests FAILED:\\n\\t  7 - release.Suite.Case (Failed)\\n'
exit 8
"""


class Mutate(unittest.TestCase):
    def test_each_change_has_its_verdict_and_the_source_is_as_it_was(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            text = "int a();\n// comment\n" + LINE + "\n"
            for path, content in {"sources/kernel/a.cpp": text, "bin/ninja": NINJA, "bin/ctest": CTEST}.items():
                (folder / path).parent.mkdir(parents=True, exist_ok=True)
                (folder / path).write_text(content, encoding="utf-8")
                (folder / path).chmod(0o755)

            def mutate(*arguments):
                paths = f"{folder}/bin:{os.environ['PATH']}"
                python = str(ROOT / "build/python")
                environment = {**os.environ, "PATH": paths, "PYTHONPATH": python, "folder": name}
                command = [sys.executable, ROOT / "scripts/lib/mutate.py", folder, *arguments]
                done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
                return done.stdout, done.stderr, (folder / "verdicts.txt").read_text() if not done.stderr else ""

            out, err, verdicts = mutate("kernel/a.cpp")
            self.assertEqual((err, (folder / "sources/kernel/a.cpp").read_text()), ("", text))
            for verdict in ("survived", "noticed by release.Suite.Case", "not compiled", "changes nothing"):
                self.assertIn(f" {verdict}\n", verdicts)
            self.assertEqual(verdicts.count(" survived\n"), out.count("survived: "))
            self.assertNotIn("kernel/a.cpp:2:", verdicts)
            self.assertEqual(mutate("--count", "2")[2], mutate("--count", "2", "--seed", "1")[2])
            self.assertNotEqual(mutate("--count", "9")[2], mutate("--count", "9", "--seed", "2")[2])
            change, verdict = verdicts.splitlines()[-1].split(" ", 1)
            self.assertEqual(mutate("--only", change)[2], f"{change} {verdict}\n")
            self.assertEqual(mutate("--only", "kernel/a.cpp:3:999")[1], "mutate: no such source or change\n")
            (folder / "sources/kernel/a.cpp").write_text(text.replace("==", ">="), encoding="utf-8")
            self.assertIn("before anything is changed: noticed by release.Suite.Case", mutate()[1])


if __name__ == "__main__":
    unittest.main()
