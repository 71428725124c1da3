#!/usr/bin/env python3
"""scripts/soak with a stand-in for the stories: what it refuses, and how it ends."""

import os
import pathlib
import signal
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from script_copy import ScriptCopy  # noqa: E402

# A file in its folder makes it run until it is told to end.
STORIES = """#!/bin/sh
shift
echo "$@"
if [ -e "$(dirname "$0")/endless" ]; then exec tail -f /dev/null; fi
"""


class Soak(ScriptCopy):
    script, preset = "soak", "release"

    def setUp(self):
        super().setUp()
        self.put("build/release/tests/random_stories", STORIES)
        self.put("bin/nproc", "#!/bin/sh\necho 2\n")

    def test_every_core_has_its_share(self):
        self.assertEqual(
            self.said_by("--stories", "5", "--seed", "7"),
            (0, ["--stories 2 --seed 10", "--stories 3 --seed 7"], ""),
        )
        self.assertEqual(
            self.said_by("--stories", "1", "--seed", "0"), (0, ["--stories 1 --seed 0"], "")
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
        self.put("build/release/tests/endless", "")
        with self.start("--stories", "2", "--seed", "1") as soak:
            try:
                lines = sorted(soak.stdout.readline() for _ in range(2))
                self.assertEqual(lines, ["--stories 1 --seed 1\n", "--stories 1 --seed 2\n"])
                os.killpg(soak.pid, signal.SIGINT)
                # Whoever still ran would keep the other end open.
                self.assertEqual(soak.communicate(timeout=60), ("", ""))
                self.assertNotEqual(soak.returncode, 0)
            finally:
                if soak.returncode is None:
                    os.killpg(soak.pid, signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
