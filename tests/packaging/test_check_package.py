#!/usr/bin/env python3
"""Packages of small programs, one as it must be and many that are not, before check_package.py."""

import os
import pathlib
import plistlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "packaging"))
import check_package  # noqa: E402
import sign  # noqa: E402
from macho_samples import make_program  # noqa: E402

CORE_FOUNDATION = "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation"
LIB_SYSTEM, LIB_CXX = "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib"
LIBRARIES = [CORE_FOUNDATION, LIB_SYSTEM, LIB_CXX]
RUN_PATHS = ["/var/jb/usr/lib", "@loader_path/.jbroot/usr/lib", "@loader_path/../lib"]
PROGRAM = {
    "run_paths": RUN_PATHS,
    "libraries": LIBRARIES,
    "imports": [(1, "_CFRelease"), (3, "__Znwm")],
    "lazy_imports": [(2, "_memorystatus_control")],
}
KEPT_IMPORTS = {("CoreFoundation", "_CFRelease"), ("libc++", "__Znwm"), ("libSystem", "_memorystatus_control")}
ENTITLEMENTS = dict.fromkeys(
    (
        *("com.apple.private.memorystatus", "com.apple.private.security.no-container"),
        *("com.apple.private.security.storage.AppBundles", "com.apple.private.skip-library-validation"),
        "platform-application",
    ),
    True,
)
LAUNCH = {
    **{"Label": "com.zel.vorlatch", "ProgramArguments": ["/var/jb/usr/libexec/vorlatchd"]},
    **{"UserName": "root", "RunAtLoad": True, "KeepAlive": True},
}
CONTROL = """Package: com.zel.vorlatch
Name: Vorlatch
Version: 1.2.3
Architecture: iphoneos-arm64
Section: System
Priority: optional
Maintainer: Vorlatch maintainers
Installed-Size: 50
Depends: firmware (>= 15.0)
Description: keeps chosen processes at chosen memory and priority settings
 More of it.
"""
DAEMON = "var/jb/usr/libexec/vorlatchd"
OTHERS = [
    "usr/share/bash-completion/completions/vorlatchctl",
    "usr/share/man/man1/vorlatchctl.1",
    "usr/share/man/man8/vorlatchd.8",
    "usr/share/zsh/site-functions/_vorlatchctl",
    "usr/share/doc/com.zel.vorlatch/device.md",
    "usr/share/doc/com.zel.vorlatch/device.zh-CN.md",
    "usr/share/doc/com.zel.vorlatch/log.md",
    "usr/share/doc/com.zel.vorlatch/preferences.md",
    "usr/share/doc/com.zel.vorlatch/vorlatchctl.md",
]


def signed_program(entitlements=None, **changes):
    data = make_program(**{**PROGRAM, **changes})
    return sign.signed(data, "com.zel.vorlatch", entitlements or ENTITLEMENTS)


class Packages(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        kept = unittest.mock.patch.object(check_package, "kept_imports", lambda: KEPT_IMPORTS)
        self.addCleanup(kept.stop)
        kept.start()
        self.folder = pathlib.Path(holder.name)
        self.tree = self.folder / "tree"
        self.put(DAEMON, signed_program(), 0o755)
        self.put("var/jb/usr/bin/vorlatchctl", signed_program(), 0o755)
        self.put("var/jb/Library/LaunchDaemons/com.zel.vorlatch.plist", plistlib.dumps(LAUNCH))
        for path in OTHERS:
            self.put(f"var/jb/{path}", b"text\n")
        self.put("DEBIAN/control", CONTROL.encode())
        self.put("DEBIAN/md5sums", b"")
        for script in ("postinst", "prerm", "postrm"):
            self.put(f"DEBIAN/{script}", b"#!/var/jb/bin/sh\n", 0o755)

    def put(self, path, content, mode=0o644):
        file = self.tree / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
        file.chmod(mode)

    def findings(self, owner="--root-owner-group", name="com.zel.vorlatch_1.2.3_iphoneos-arm64.deb"):
        for folder in (self.tree, *self.tree.rglob("*")):
            if folder.is_dir():
                folder.chmod(0o755)
        package = self.folder / name
        subprocess.run(["dpkg-deb", owner, "--build", self.tree, package], check=True, capture_output=True)
        return check_package.examine(package, "1.2.3")

    def findings_with(self, **changes):
        self.put(DAEMON, signed_program(**changes), 0o755)
        return self.findings()

    def test_as_it_must_be(self):
        self.assertEqual(self.findings(), [])

    def test_paths_and_modes(self):
        (self.tree / "var/jb/usr/share/man/man8/vorlatchd.8").unlink()
        self.put("var/jb/usr/bin/vorlatchctl", signed_program(), 0o4755)
        self.put("var/jb/usr/bin/more", b"")
        (self.tree / "etc").symlink_to("/")
        file = "Entry(kind='file', mode={}, owner=(0, 0, 'root', 'root')), not {}"
        good = "Entry(kind='file', mode={}, owner=(0, 0, 'root', 'root'))"
        link = "Entry(kind='neither', mode=511, owner=(0, 0, 'root', 'root')), not None"
        self.assertEqual(
            self.findings(),
            [
                f"path etc: {link}",
                f"path var/jb/usr/bin/more: {file.format(0o644, None)}",
                f"path var/jb/usr/bin/vorlatchctl: {file.format(0o4755, good.format(0o755))}",
                f"path var/jb/usr/share/man/man8/vorlatchd.8: None, not {good.format(0o644)}",
            ],
        )

    def test_owners(self):
        if os.geteuid() == 0:  # anybody else's files have another owner as it is
            os.chown(self.tree / DAEMON, 501, 501)
        status = (self.tree / DAEMON).stat()
        findings = [line for line in self.findings(owner="--nocheck") if line.startswith(f"path {DAEMON}:")]
        self.assertEqual(len(findings), 1)
        self.assertIn(f"owner=({status.st_uid}, {status.st_gid}, ", findings[0].split(", not ")[0])

    def test_control_files(self):
        (self.tree / "DEBIAN/prerm").unlink()
        self.put("DEBIAN/preinst", b"#!/var/jb/bin/sh\n", 0o755)
        entry = "Entry(kind='file', mode=493, owner=(0, 0, 'root', 'root'))"
        self.assertEqual(
            self.findings(),
            [f"control file preinst: {entry}, not None", f"control file prerm: None, not {entry}"],
        )

    def test_control_fields(self):
        control = CONTROL.replace("1.2.3", "1.2.4").replace("root", "x").replace("Section: System\n", "")
        control = control.replace("Installed-Size: 50\n", "Essential: yes\n").replace(">= 15.0", ">= 14.0")
        self.put("DEBIAN/control", control.encode())
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

    def test_launch_daemon(self):
        changed = {**LAUNCH, "KeepAlive": False, "EnvironmentVariables": {"A": "B"}}
        del changed["UserName"]
        self.put("var/jb/Library/LaunchDaemons/com.zel.vorlatch.plist", plistlib.dumps(changed))
        where = "Library/LaunchDaemons/com.zel.vorlatch.plist"
        self.assertEqual(
            self.findings(),
            [
                f"{where} EnvironmentVariables: {{'A': 'B'}}, not None",
                f"{where} KeepAlive: False, not True",
                f"{where} UserName: None, not root",
            ],
        )

    def test_platform(self):
        for changes, built in (
            ({"platform": 1}, [("macos", "15.0")]),
            ({"platform": 7}, [("iossimulator", "15.0")]),
            ({"minimum": 0x0E0500}, [("ios", "14.5")]),
        ):
            found = self.findings_with(**changes)
            self.assertEqual(found, [f"vorlatchd: platform and minimum: {built}, not ios 15.0"])

    def test_header(self):
        self.assertEqual(self.findings_with(flags=0x85), ["vorlatchd: not position independent"])
        data = bytearray(make_program(**PROGRAM))
        data[8] = 2  # the processor's subtype: arm64e
        self.put(DAEMON, sign.signed(bytes(data), "com.zel.vorlatch", ENTITLEMENTS), 0o755)
        expected = "vorlatchd: not an arm64 executable: MH_MAGIC_64 ARM64 E 0x00 EXECUTE"
        self.assertEqual(self.findings(), [expected])

    def test_run_paths(self):
        for paths in (RUN_PATHS[:2], RUN_PATHS[::-1], [*RUN_PATHS, "/tmp"]):
            found = self.findings_with(run_paths=paths)
            self.assertEqual(found, [f"vorlatchd: run paths: {paths}, not {RUN_PATHS}"])

    def test_libraries(self):
        libraries = [*LIBRARIES, "/usr/lib/libobjc.A.dylib"]
        expected = f"vorlatchd: libraries: {sorted(libraries)}, not {sorted(LIBRARIES)}"
        self.assertEqual(self.findings_with(libraries=libraries), [expected])

    def test_imports(self):
        unknown = "is not in imports.txt; first see that iOS 15.0 exports it"
        imports, lazy = PROGRAM["imports"], PROGRAM["lazy_imports"]
        found = self.findings_with(
            imports=[*imports, (1, "_write")], lazy_imports=[*lazy, (2, "_unlikely")]
        )
        self.assertEqual(
            found,
            [f"vorlatchd: _write of CoreFoundation {unknown}", f"vorlatchd: _unlikely of libSystem {unknown}"],
        )
        found = self.findings_with(imports=[], lazy_imports=[])
        self.assertEqual(found, ["vorlatchd: no imports, so this is no program"])

    def test_an_import_that_no_program_has(self):
        changes = {"imports": [(1, "_CFRelease")]}
        self.put("var/jb/usr/bin/vorlatchctl", signed_program(**changes), 0o755)
        expected = "imports.txt: no program asks for __Znwm of libc++"
        self.assertEqual(self.findings_with(**changes), [expected])

    def test_nothing_is_shared_with_other_libraries(self):
        names = ["__ZNSt3__14cerrE", "__ZTVSt9exception"]
        self.assertEqual(
            self.findings_with(weak_imports=names, exports=["__mh_execute_header", "_main"], flags=0x218085),
            [
                "vorlatchd: the flag BINDS_TO_WEAK is set",
                "vorlatchd: the flag WEAK_DEFINES is set",
                *(f"vorlatchd: bound weakly: {name}" for name in names),
                "vorlatchd: exports: ['__mh_execute_header', '_main'], not ['__mh_execute_header']",
            ],
        )

    def test_size(self):
        size = len(signed_program(padding=190_000))
        self.assertEqual(self.findings_with(padding=190_000), [f"vorlatchd: {size} bytes, not under 200000"])

    def test_signature(self):
        found = self.findings_with(entitlements={**ENTITLEMENTS, "get-task-allow": True})
        self.assertEqual(
            found,
            [
                "vorlatchd: the XML entitlements differ from those of the file",
                "vorlatchd: the DER entitlements differ from those of the file",
                "vorlatchd: execSegFlags is 0x91, not 0x81",
            ],
        )
        self.put(DAEMON, make_program(**PROGRAM), 0o755)
        self.assertEqual(self.findings(), ["vorlatchd: not signed: no LC_CODE_SIGNATURE"])


if __name__ == "__main__":
    unittest.main()
