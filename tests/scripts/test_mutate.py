#!/usr/bin/env python3
"""scripts/lib/mutate.py with stand-ins for the build and the tests: what becomes of a change."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LINE = "  if (a == b) return first;"
# Compiles what has no comment; the same program comes of every "a <= b".
NINJA = """#!/bin/sh
mkdir -p "$2/tests"
changed=$(sed 's/ *a <= b/a == b/' "$2/../sources/kernel/a.cpp")
case $changed in *'/*'*) exit 1 ;; esac
echo "$changed" | sed '1,2d; s/^/#/' >"$2/tests/$3.new"
{ cat "$(dirname "$0")/test"; sed 's/ //g' "$2/tests/$3.new"; } >"$2/tests/$3"
chmod +x "$2/tests/$3"
"""
# Fails for want of "a == b" alone.
TEST = """#!/bin/sh
[ "$1" != --gtest_list_tests ] || { echo Suite.; echo '  Case # comment'; exit; }
grep -q '^#.*a==b' "$0"
"""


class Mutate(unittest.TestCase):
    def test_each_change_has_its_verdict_and_the_source_is_as_it_was(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            text = "int a();\n// comment\n" + LINE + "\n"
            for path, content in {"sources/kernel/a.cpp": text, "bin/ninja": NINJA, "bin/test": TEST}.items():
                (folder / path).parent.mkdir(parents=True, exist_ok=True)
                (folder / path).write_text(content, encoding="utf-8")
                (folder / path).chmod(0o755)

            def mutate(*arguments):
                paths = f"{folder}/bin:{os.environ['PATH']}"
                environment = {**os.environ, "PATH": paths, "PYTHONPATH": str(ROOT / "build/python")}
                command = [sys.executable, ROOT / "scripts/lib/mutate.py", folder, *arguments]
                done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
                return done.stdout, done.stderr, (folder / "verdicts.txt").read_text() if not done.stderr else ""

            out, err, verdicts = mutate("kernel/a.cpp")
            self.assertEqual((err, (folder / "sources/kernel/a.cpp").read_text()), ("", text))
            for verdict in ("survived", "noticed by Suite.Case", "not compiled", "changes nothing"):
                self.assertIn(f" {verdict}\n", verdicts)
            self.assertEqual(verdicts.count(" survived\n"), out.count("survived: "))
            self.assertNotIn("kernel/a.cpp:2:", verdicts)
            self.assertEqual(mutate("--count", "2")[2], mutate("--count", "2", "--seed", "1")[2])
            self.assertNotEqual(mutate("--count", "9")[2], mutate("--count", "9", "--seed", "2")[2])
            change, verdict = verdicts.splitlines()[-1].split(" ", 1)
            self.assertEqual(mutate("--only", change)[2], f"{change} {verdict}\n")
            self.assertEqual(mutate("--only", "kernel/a.cpp:3:999")[1], "mutate: no such source or change\n")
            (folder / "sources/kernel/a.cpp").write_text(text.replace("==", ">="), encoding="utf-8")
            self.assertIn("Suite.Case fails before anything is changed", mutate()[1])


if __name__ == "__main__":
    unittest.main()
