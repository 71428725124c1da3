#!/usr/bin/env python3
"""scripts/soak, in a copy of it with a stand-in for the stories: what it refuses, and how it ends."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import unittest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
# The build is there and nothing is to be done.
NINJA = "#!/bin/sh\necho no work to do\n"
NPROC = "#!/bin/sh\necho 2\n"
# A file in its folder makes it run until it is told to end.
STORIES = """#!/bin/sh
echo "$@"
if [ -e "$(dirname "$0")/endless" ]; then exec tail -f /dev/null; fi
"""


class Soak(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.copy = pathlib.Path(temporary.name)
        (self.copy / "scripts" / "lib").mkdir(parents=True)
        for name in ("soak", "lib/common.sh"):
            shutil.copy(SCRIPTS / name, self.copy / "scripts" / name)
        self.build = self.copy / "build" / "release"
        self.put(self.copy / "CMakePresets.json", "")
        os.utime(self.copy / "CMakePresets.json", (0, 0))
        self.put(self.build / "build.ninja", "")
        self.put(self.build / "tests" / "random_stories", STORIES)
        self.put(self.copy / "bin" / "ninja", NINJA)
        self.put(self.copy / "bin" / "nproc", NPROC)

    @staticmethod
    def put(path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)

    def start(self, *arguments):
        """In a group of its own, as a terminal does it."""
        return subprocess.Popen(
            [self.copy / "scripts" / "soak", *arguments],
            env={**os.environ, "PATH": f"{self.copy / 'bin'}:{os.environ['PATH']}"},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
            text=True,
        )

    def said_by(self, *arguments):
        """The exit status, the lines in their order by text, and what was said of errors."""
        with self.start(*arguments) as soak:
            out, err = soak.communicate(timeout=60)
            return soak.returncode, sorted(out.splitlines()), err

    def test_every_core_has_its_share(self):
        self.assertEqual(
            self.said_by("--stories", "5", "--seed", "7"),
            (0, ["--stories 2 --from 10", "--stories 3 --from 7"], ""),
        )
        self.assertEqual(
            self.said_by("--stories", "1", "--seed", "0"), (0, ["--stories 1 --from 0"], "")
        )

    def test_what_is_no_number_is_refused(self):
        for option in ("--stories", "--seconds", "--seed"):
            for value in ([], [""], ["x"], ["-1"], ["07"], ["1" * 19], ["--real"]):
                self.assertEqual(
                    self.said_by(option, *value), (1, [], f"soak: {option} takes a number\n"), value
                )

    def test_no_stories_and_no_time_are_refused(self):
        for option in ("--stories", "--seconds"):
            self.assertEqual(
                self.said_by(option, "0"), (1, [], f"soak: {option} takes a number from 1 on\n")
            )

    def test_an_interrupt_ends_the_stories_too(self):
        self.put(self.build / "tests" / "endless", "")
        with self.start("--stories", "2", "--seed", "1") as soak:
            try:
                lines = sorted(soak.stdout.readline() for _ in range(2))
                self.assertEqual(lines, ["--stories 1 --from 1\n", "--stories 1 --from 2\n"])
                os.killpg(soak.pid, signal.SIGINT)
                # Whoever still ran would keep the other end open.
                self.assertEqual(soak.communicate(timeout=60), ("", ""))
                self.assertNotEqual(soak.returncode, 0)
            finally:
                if soak.returncode is None:
                    os.killpg(soak.pid, signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
