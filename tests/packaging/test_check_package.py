#!/usr/bin/env python3
"""Packages of small programs, one as it must be and many that are not, before check_package.py."""

import functools
import os
import pathlib
import plistlib
import re
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import CORE_FOUNDATION, IMPORTS, LIB_CXX, LIB_SYSTEM, RUN_PATHS, program, replaced  # noqa: E402
import check_package  # noqa: E402
from sign import signed  # noqa: E402

KEPT_IMPORTS = {
    *(("CoreFoundation", "_CFRelease"), ("libc++", "__Znwm")),
    *(("libSystem", "_memorystatus_control"), ("libSystem", "dyld_stub_binder")),
}
ENTITLEMENTS = check_package.ENTITLEMENTS
FIELDS = {**check_package.CONTROL_FIELDS, "Version": "1.2.3", "Installed-Size": "50"}
CHECKOUT = pathlib.Path(__file__).resolve().parents[2]
DAEMON = "var/jb/usr/libexec/vorlatchd"
LISTENER = {"SockNodeName": "127.0.0.1", "SockServiceName": "8717", "SockFamily": "IPv4", "SockType": "stream"}
SOCKETS = {"Listeners": LISTENER}


@functools.cache
def good_program():
    return signed(program(), ENTITLEMENTS)


class Packages(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        kept = unittest.mock.patch.object(check_package, "kept_imports", lambda: KEPT_IMPORTS)
        self.addCleanup(kept.stop)
        kept.start()
        self.folder = pathlib.Path(holder.name)
        self.tree = self.folder / "tree"
        self.put(DAEMON, good_program(), 0o755)
        self.put("var/jb/usr/bin/vorlatchctl", good_program(), 0o755)
        self.put("var/jb/usr/libexec/vorlatchweb", good_program(), 0o755)
        for path in check_package.OTHER_FILES:
            self.put(f"var/jb/{path}", plistlib.dumps(check_package.JOBS.get(path, {})))
        for path, mode in check_package.CONTROL_FILES.items():
            self.put(f"DEBIAN/{path}", b"#!/var/jb/bin/sh\n", mode)
        self.put_control(FIELDS)

    def put(self, path, content, mode=0o644):
        file = self.tree / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
        file.chmod(mode)

    def put_control(self, fields):
        text = "".join(f"{name}: {value}\n" for name, value in fields.items())
        self.put("DEBIAN/control", f"{text} More of it.\n".encode())

    def findings(self, owner="--root-owner-group", name="com.zel.vorlatch_1.2.3_iphoneos-arm64.deb"):
        for folder in (self.tree, *self.tree.rglob("*")):
            if folder.is_dir():
                folder.chmod(0o755)
        package = self.folder / name
        command = ["dpkg-deb", owner, "-Znone", "--build", self.tree, package]
        subprocess.run(command, check=True, capture_output=True)
        return check_package.examine(package, "1.2.3")

    def findings_for(self, daemon):
        self.put(DAEMON, daemon, 0o755)
        return self.findings()

    def test_as_it_must_be(self):
        self.assertEqual(self.findings(), [])

    def test_files(self):
        (self.tree / "var/jb/usr/share/man/man8/vorlatchd.8").unlink()
        (self.tree / "DEBIAN/prerm").unlink()
        self.put("DEBIAN/preinst", b"#!/var/jb/bin/sh\n", 0o755)
        self.put("var/jb/usr/bin/vorlatchctl", good_program(), 0o4755)
        self.put("var/jb/usr/bin/more", b"")
        (self.tree / "etc").symlink_to("/")
        root = "0:0 root:root"
        self.assertEqual(
            self.findings(),
            [
                f"path etc: neither 777 {root}, not None",
                f"path var/jb/usr/bin/more: file 644 {root}, not None",
                f"path var/jb/usr/bin/vorlatchctl: file 4755 {root}, not file 755 {root}",
                f"path var/jb/usr/share/man/man8/vorlatchd.8: None, not file 644 {root}",
                f"control file preinst: file 755 {root}, not None",
                f"control file prerm: None, not file 755 {root}",
            ],
        )

    def test_owners(self):
        if os.geteuid() == 0:  # anybody else's files have another owner as it is
            os.chown(self.tree / DAEMON, 501, 501)
        status = (self.tree / DAEMON).stat()
        findings = [line for line in self.findings(owner="--nocheck") if line.startswith(f"path {DAEMON}:")]
        self.assertEqual(len(findings), 1)
        self.assertIn(f" {status.st_uid}:{status.st_gid} ", findings[0].split(", not ")[0])

    def test_control_fields(self):
        changed = {"Version": "1.2.4", "Essential": "yes", "Depends": "firmware (>= 14.0)"}
        kept = {name: FIELDS[name] for name in FIELDS if name not in ("Section", "Installed-Size")}
        self.put_control({**changed, **kept, **changed})
        self.assertEqual(
            self.findings(name="vorlatch.deb"),
            [
                "control field Installed-Size: not a number of KiB",
                "control field Depends: firmware (>= 14.0), not firmware (>= 15.0)",
                "control field Essential: yes, not None",
                "control field Section: None, not System",
                "control field Version: 1.2.4, not 1.2.3",
                "the package's name is not com.zel.vorlatch_1.2.3_iphoneos-arm64.deb",
            ],
        )

    def test_jobs(self):
        anywhere = {"Listeners": {"SockServiceName": "8717"}}
        for name, removed, changes, *found in (
            ("com.zel.vorlatch", "UserName", {"KeepAlive": False, "EnvironmentVariables": {"A": "B"}},
             "EnvironmentVariables: {'A': 'B'}, not None", "KeepAlive: False, not True", "UserName: None, not root"),
            ("com.zel.vorlatch.web", "ProcessType", {"RunAtLoad": True, "Sockets": anywhere, "UserName": "root"},
             "ProcessType: None, not Interactive", "RunAtLoad: True, not None",
             f"Sockets: {anywhere}, not {SOCKETS}", "UserName: root, not mobile"),
        ):  # fmt: skip
            path = f"Library/LaunchDaemons/{name}.plist"
            job = {**check_package.JOBS[path], **changes}
            del job[removed]
            self.put(f"var/jb/{path}", plistlib.dumps(job))
            self.assertEqual(self.findings(), [f"{path} {line}" for line in found])
            self.put(f"var/jb/{path}", plistlib.dumps(check_package.JOBS[path]))

    def test_program(self):
        more = {**IMPORTS, "/usr/lib/libobjc.A.dylib": []}
        main = ["__mh_execute_header", "_main"]
        target = "platform and minimum: [('{}', {})], not iOS 15.0"
        for changes, *found in (
            *(({"run_paths": paths}, f"run paths: {paths}, not {RUN_PATHS}")
              for paths in (RUN_PATHS[:2], RUN_PATHS[::-1], [*RUN_PATHS, "/tmp"])),
            ({"imports": more}, f"libraries: {sorted(more)}, not {sorted(IMPORTS)}"),
            ({"imports": {library: [] for library in IMPORTS}}, "no imports, so this is no program"),
            ({"platform": "macos"}, target.format("MACOS", [15, 0, 0])),
            ({"platform": "ios-simulator"}, target.format("IOS_SIMULATOR", [15, 0, 0])),
            ({"minimum": "14.5"}, target.format("IOS", [14, 5, 0])),
            ({"exports": main}, f"exports: {main}, not ['__mh_execute_header']"),
            ({"weak": ["_a", "_b"]}, "the flag BINDS_TO_WEAK is set", "the flag WEAK_DEFINES is set",
             "bound weakly: _a", "bound weakly: _b",
             "exports: ['__mh_execute_header', '_a', '_b'], not ['__mh_execute_header']"),
        ):  # fmt: skip
            with self.subTest(changes):
                found = [f"vorlatchd: {line}" for line in found]
                self.assertEqual(self.findings_for(signed(program(**changes), ENTITLEMENTS)), found)

    def test_bytes_of_a_program(self):
        data = program()
        for_debuggers = [*ENTITLEMENTS, "get-task-allow"]
        large = signed(program(padding=190_000), ENTITLEMENTS)
        for changed, *found in (
            (signed(replaced(data, 26, b"\0"), ENTITLEMENTS), "not position independent"),
            (signed(replaced(data, 8, b"\2"), ENTITLEMENTS), "not an arm64 executable: ['ARM64', 2, 'EXECUTE']"),
            (b"\x7fELF" + bytes(60), "not a thin 64-bit little-endian Mach-O file"),
            (data, "0 LC_CODE_SIGNATURE, not 1"),
            (large, f"{len(large)} bytes, not under 200000"),
            (signed(data, for_debuggers), "the XML entitlements are not those of the package",
             "the DER entitlements are not those of the package", "execSegFlags is 0x91, not 0x81"),
        ):  # fmt: skip
            self.assertEqual(self.findings_for(changed), [f"vorlatchd: {line}" for line in found])

    def test_imports(self):
        unknown = "is not in imports.txt; first see that iOS 15.0 exports it"
        # The first is in the table of what is bound at once, the other in that of what is bound lazily.
        more = {**IMPORTS, CORE_FOUNDATION: ["_write", "_CFRelease"], LIB_SYSTEM: ["_unlikely", *IMPORTS[LIB_SYSTEM]]}
        self.assertEqual(
            self.findings_for(signed(program(imports=more), ENTITLEMENTS)),
            [f"vorlatchd: _write of CoreFoundation {unknown}", f"vorlatchd: _unlikely of libSystem {unknown}"],
        )

    def test_an_import_that_no_program_has(self):
        fewer = signed(program(imports={**IMPORTS, LIB_CXX: []}), ENTITLEMENTS)
        self.put("var/jb/usr/bin/vorlatchctl", fewer, 0o755)
        self.put("var/jb/usr/libexec/vorlatchweb", fewer, 0o755)
        self.assertEqual(self.findings_for(fewer), ["imports.txt: no program asks for __Znwm of libc++"])

    def test_the_page_is_where_its_address_says(self):
        def in_source(pattern, path):
            return re.search(pattern, (CHECKOUT / path).read_text(encoding="utf-8"))[1]

        port = in_source(r"kPagePort = (\d+);", "control/access_key.h")
        name = in_source(r'launch_activate_socket\("(\w+)"', "platform/darwin/listening_socket.cpp")
        self.assertEqual(SOCKETS, {name: {**LISTENER, "SockServiceName": port}})


if __name__ == "__main__":
    unittest.main()
