#!/usr/bin/env python3
"""scripts/fuzz with a stand-in for a fuzzer: what becomes of inputs when something goes wrong."""

import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from script_copy import ScriptCopy  # noqa: E402

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
# Like a disk that is full when a corpus is to be written.
CP = """#!/bin/sh
for last; do :; done
case "$1 $last" in
  -r*/fuzz/corpus/*) mkdir -p "$last"; echo "no space left" >&2; exit 1 ;;
esac
exec /bin/cp "$@"
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
        below = self.root / folder
        return {
            path.relative_to(below).as_posix(): path.read_text(encoding="utf-8")
            for path in below.rglob("*")
            if path.is_file()
        }

    def test_what_a_run_reached_is_kept(self):
        self.assertEqual(self.said_by(), (0, ["sample           inputs run: 5"], ""))
        self.assertEqual(self.files("build/fuzz/found"), {f"sample/{HASH}": "new\n"})

    def test_what_a_run_reached_before_a_finding_is_kept(self):
        self.put("build/asan/fuzz/status", "77")
        status, out, _ = self.said_by()
        self.assertEqual((status, out), (1, []))
        self.assertEqual(self.files("build/fuzz/found"), {f"sample/{HASH}": "new\n"})

    def test_a_smaller_corpus_takes_the_place_of_the_old_one(self):
        self.put("build/fuzz/found/sample/x", "found")
        status, _, err = self.said_by("--minimise")
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(
            self.files("fuzz/corpus"), {"sample/named.xml": "named", f"sample/{HASH}": "new\n"}
        )
        self.assertEqual(self.files("build/fuzz/found"), {})

    def test_a_corpus_that_cannot_be_written_leaves_the_old_one(self):
        self.put("build/fuzz/found/sample/x", "found")
        before = self.files("fuzz/corpus")
        self.put("bin/cp", CP)
        self.assertEqual(self.said_by("--minimise"), (1, [], "no space left\n"))
        self.assertEqual(self.files("fuzz/corpus"), before)
        self.assertEqual(self.files("build/fuzz/found"), {"sample/x": "found"})


if __name__ == "__main__":
    unittest.main()
