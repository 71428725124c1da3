"""An installed tree in a temporary folder, apps that run, vorlatchd, and the server of the page."""

import datetime
import json
import os
import pathlib
import plistlib
import shutil
import tempfile
import time

from machine import Machine

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VORLATCH_BUILD", ROOT / "build" / "release"))
INSTALLED = {
    "vorlatchd": "usr/libexec/vorlatchd",
    "vorlatchweb": "usr/libexec/vorlatchweb",
    "vorlatchctl": "usr/bin/vorlatchctl",
    "platform/linux/libroot.so": "usr/lib/libroot.so",
}
PATIENCE_S = 20
PAGE_BYTES = 16384
BYTES_PER_MB = 1024 * 1024


def wait_until(happened, what):
    """Returns the first true result of `happened`."""
    deadline = time.monotonic() + PATIENCE_S
    while not (result := happened()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"this did not happen: {what}")
        time.sleep(0.02)
    return result


class Installation:
    """A jailbreak root. `end` ends its processes and removes it."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="vorlatch-")
        self.root = pathlib.Path(self.folder.name).resolve()
        self.root.chmod(0o755)
        self.machine = Machine()
        self.pids = {}
        self.port = 0
        for built, place in INSTALLED.items():
            (self.root / place).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(BUILD / built, self.root / place)
        self.files = self.root / "var/mobile/Library/Preferences"
        self.reports = self.root / "var/mobile/Library/Logs/CrashReporter"
        self.files.mkdir(parents=True)
        self.reports.mkdir(parents=True)
        self.preferences = self.files / "com.zel.vorlatch.plist"
        self.set_targets({})

    def end(self):
        self.machine.end()
        self.folder.cleanup()

    def set_targets(self, targets, is_on=True):
        self.preferences.write_bytes(plistlib.dumps({"Enabled": is_on, "AppConfigs": targets}))
        self.preferences.chmod(0o666)

    def targets(self):
        return plistlib.loads(self.preferences.read_bytes())["AppConfigs"]

    def launch(self, name, used_mb=0, identifier=None, display_name=None):
        """Starts a process that uses so much memory; with an identifier, that of an app."""
        place = self.root / (f"Applications/{name}.app/{name}" if identifier else f"usr/sbin/{name}")
        place.parent.mkdir(parents=True, exist_ok=True)
        if not place.exists():
            shutil.copy(BUILD / "tests/idler", place)
        if identifier:
            info = {"CFBundleExecutable": name, "CFBundleIdentifier": identifier}
            if display_name:
                info["CFBundleDisplayName"] = display_name
            (place.parent / "Info.plist").write_bytes(plistlib.dumps(info))
        self.pids[name], _ = self.start(place, used_mb)
        return self.pids[name]

    def start(self, *words):
        """Starts a program. Returns its process id, and the first that it prints."""
        printed = self.root / "printed"
        printed.write_text("")
        pid = self.machine.start(*words, output=printed)
        return pid, wait_until(printed.read_text, f"{words[0]} prints something")

    def quit(self, name):
        self.machine.stop(self.pids.pop(name))

    def start_daemon(self):
        self.pids["vorlatchd"] = self.machine.start(self.root / INSTALLED["vorlatchd"])
        log = self.files / "Vorlatch.log"
        wait_until(lambda: log.exists() and log.stat().st_size > 0, "the daemon writes its log")

    def start_server(self):
        """Starts the server, again on the same port if it ran before."""
        server = self.root / INSTALLED["vorlatchweb"]
        if self.port == 0:
            self.pids["vorlatchweb"], port = self.start(server, 0)
            self.port = int(port)
        else:
            self.pids["vorlatchweb"] = self.machine.start(server, self.port)

    def control(self, *words):
        """What vorlatchctl prints with --json."""
        printed = self.root / "printed"
        self.machine.run(printed, self.root / INSTALLED["vorlatchctl"], "--json", *words)
        return json.loads(printed.read_text(encoding="utf-8"))

    def address(self, *words):
        return self.control("web", "--port", str(self.port), *words)["address"]

    def put_report(self, age_h, *processes):
        """Puts a report of the system on processes that `killed` and `alive` describe into its folder."""
        when = datetime.datetime.now().astimezone() - datetime.timedelta(hours=age_h)
        body = {
            "date": when.strftime("%Y-%m-%d %H:%M:%S.00 %z"),
            "memoryStatus": {"pageSize": PAGE_BYTES},
            "processes": processes,
        }
        name = when.strftime("JetsamEvent-%Y-%m-%d-%H%M%S.ips")
        (self.reports / name).write_text('{"bug_type":"298"}\n' + json.dumps(body), encoding="utf-8")
        return when


def alive(name, used_mb, band=0):
    """A process in a report of the system."""
    pages = used_mb * BYTES_PER_MB // PAGE_BYTES
    return {
        "name": name,
        "pid": 400,
        "priority": band,
        "states": ["suspended"],
        "rpages": pages,
        "lifetimeMax": pages,
    }


def killed(name, used_mb, band=0, reason="vm-pageshortage"):
    return {**alive(name, used_mb, band), "reason": reason}
