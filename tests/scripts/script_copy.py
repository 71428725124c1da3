"""Scripts of this checkout in a copy, where stand-ins take the place of what is built."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
# The build is there and nothing is to be done.
NINJA = "#!/bin/sh\necho no work to do\n"


class ScriptCopy(unittest.TestCase):
    """Each case has a copy of its own, `root`; what is put into its bin/ is found before all else."""

    script, preset = "", ""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name).resolve()
        (self.root / "scripts" / "lib").mkdir(parents=True)
        for name in (self.script, "lib/common.sh"):
            shutil.copy(SCRIPTS / name, self.root / "scripts" / name)
        self.put("CMakePresets.json", "")
        os.utime(self.root / "CMakePresets.json", (0, 0))
        self.put(f"build/{self.preset}/build.ninja", "")
        self.put("bin/ninja", NINJA)

    def put(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)

    def start(self, *arguments):
        """In a group of its own, as a terminal does it."""
        return subprocess.Popen(
            [self.root / "scripts" / self.script, *arguments],
            env={**os.environ, "PATH": f"{self.root / 'bin'}:{os.environ['PATH']}"},
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
            text=True,
        )

    def said_by(self, *arguments):
        """The exit status, the lines in their order by text, and what was said of errors."""
        with self.start(*arguments) as process:
            out, err = process.communicate(timeout=60)
            return process.returncode, sorted(out.splitlines()), err
