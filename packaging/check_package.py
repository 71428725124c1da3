#!/usr/bin/env python3
"""Checks a finished package for the device, and prints every difference from what is expected.

The expected values are in this file and in imports.txt. Shares no code with the scripts that build it.
"""

import argparse
import io
import pathlib
import plistlib
import re
import subprocess
import sys
import tarfile
import tempfile
from collections.abc import Iterator

import check_signature
from check_signature import lief

PACKAGE = "com.zel.vorlatch"
HERE = pathlib.Path(__file__).resolve().parent

# The most bytes of each program.
PROGRAMS = {
    "usr/libexec/vorlatchd": 200_000,
    "usr/bin/vorlatchctl": 1_000_000,
    "usr/libexec/vorlatchweb": 1_000_000,
}
# The property list of each launchd job.
JOBS = {
    f"Library/LaunchDaemons/{PACKAGE}.plist": {
        "Label": PACKAGE,
        "ProgramArguments": ["/var/jb/usr/libexec/vorlatchd"],
        "UserName": "root",
        "RunAtLoad": True,
        "KeepAlive": True,
    },
    f"Library/LaunchDaemons/{PACKAGE}.web.plist": {
        "Label": f"{PACKAGE}.web",
        "ProgramArguments": ["/var/jb/usr/libexec/vorlatchweb"],
        "UserName": "mobile",
        "ProcessType": "Interactive",
        "Sockets": {
            "Listeners": {
                "SockNodeName": "127.0.0.1",
                "SockServiceName": "8717",
                "SockFamily": "IPv4",
                "SockType": "stream",
            }
        },
    },
}
DOCUMENTS = (
    *("copyright", "device.md", "device.zh-CN.md", "log.md", "preferences.md"),
    *("vorlatchctl.md", "vorlatchctl.zh-CN.md"),
)
OTHER_FILES = (
    *JOBS,
    "usr/share/bash-completion/completions/vorlatchctl",
    "usr/share/man/man1/vorlatchctl.1",
    "usr/share/man/man8/vorlatchd.8",
    "usr/share/man/zh_CN/man1/vorlatchctl.1",
    "usr/share/man/zh_CN/man8/vorlatchd.8",
    "usr/share/zsh/site-functions/_vorlatchctl",
    *(f"usr/share/doc/{PACKAGE}/{name}" for name in DOCUMENTS),
)
CONTROL_FILES = {"control": 0o644, "md5sums": 0o644, "postinst": 0o755, "prerm": 0o755, "postrm": 0o755}
CONTROL_FIELDS = {
    "Package": PACKAGE,
    "Name": "Vorlatch",
    "Architecture": "iphoneos-arm64",
    "Section": "System",
    "Priority": "optional",
    "Maintainer": "Vorlatch maintainers",
    "Depends": "firmware (>= 15.0)",
    "Description": "keeps chosen processes at chosen memory and priority settings",
}
ENTITLEMENTS = [
    "com.apple.private.memorystatus",
    "com.apple.private.security.no-container",
    "com.apple.private.security.storage.AppBundles",
    "com.apple.private.skip-library-validation",
    "platform-application",
]
RUN_PATHS = ["/var/jb/usr/lib", "@loader_path/.jbroot/usr/lib", "@loader_path/../lib"]
LIBRARIES = {
    "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation": "CoreFoundation",
    "/usr/lib/libSystem.B.dylib": "libSystem",
    "/usr/lib/libc++.1.dylib": "libc++",
}
EXPORTS = ["__mh_execute_header"]


def run(*command: str | pathlib.Path) -> bytes:
    return subprocess.run(command, check=True, capture_output=True).stdout


def differences(what: str, expected: dict[str, object], found: dict[str, object]) -> Iterator[str]:
    """Yields a line for each key that is missing, unexpected, or has a different value."""
    for key in sorted({*expected, *found}):
        if expected.get(key) != found.get(key):
            yield f"{what} {key}: {found.get(key)}, not {expected.get(key)}"


# Checks of the package


def entries_of(package: pathlib.Path, part: str) -> dict[str, str]:
    """Returns type, mode and owner of each entry of an archive in the package, by path without "./"."""
    with tarfile.open(fileobj=io.BytesIO(run("dpkg-deb", part, package))) as archive:
        return {
            member.name.removeprefix("./").removeprefix("."): (
                f"{'folder' if member.isdir() else 'file' if member.isreg() else 'neither'} {member.mode:o} "
                f"{member.uid}:{member.gid} {member.uname}:{member.gname}"
            )
            for member in archive
        }


def expected_entries(modes: dict[str, int]) -> dict[str, str]:
    """Returns the entries for these files, owned by root, and for their parent folders."""
    entries = {path: f"file {mode:o} 0:0 root:root" for path, mode in modes.items()}
    for path in modes:
        for folder in pathlib.PurePosixPath(path).parents:
            entries[str(folder).removeprefix(".")] = "folder 755 0:0 root:root"
    return entries


def check_entries(package: pathlib.Path) -> Iterator[str]:
    modes = {f"var/jb/{path}": 0o644 for path in OTHER_FILES} | {f"var/jb/{path}": 0o755 for path in PROGRAMS}
    yield from differences("path", expected_entries(modes), entries_of(package, "--fsys-tarfile"))
    expected = expected_entries(CONTROL_FILES)
    yield from differences("control file", expected, entries_of(package, "--ctrl-tarfile"))


def check_control(package: pathlib.Path, version: str) -> Iterator[str]:
    text = run("dpkg-deb", "--field", package).decode()
    fields = dict(re.findall(r"^([\w-]+): (.*)$", text, re.MULTILINE))
    if not re.fullmatch(r"[1-9]\d*", fields.pop("Installed-Size", "")):
        yield "control field Installed-Size: not a number of KiB"
    yield from differences("control field", {**CONTROL_FIELDS, "Version": version}, fields)
    name = f"{PACKAGE}_{version}_iphoneos-arm64.deb"
    if package.name != name:
        yield f"the package's name is not {name}"


# Checks of the programs


def check_header(program: lief.MachO.Binary) -> Iterator[str]:
    header = program.header
    kind = [header.cpu_type.name, header.cpu_subtype, header.file_type.name]
    if kind != ["ARM64", 0, "EXECUTE"]:
        yield f"not an arm64 executable: {kind}"
    flags = {flag.name for flag in header.flags_list}
    if "PIE" not in flags:
        yield "not position independent"
    # With either flag dyld compares the program's definitions with those of every library.
    for flag in sorted({"WEAK_DEFINES", "BINDS_TO_WEAK"} & flags):
        yield f"the flag {flag} is set"


def check_load_commands(program: lief.MachO.Binary) -> Iterator[str]:
    versions = [command for command in program.commands if isinstance(command, lief.MachO.BuildVersion)]
    built = [(version.platform.name, version.minos) for version in versions]
    if built != [("IOS", [15, 0, 0])]:
        yield f"platform and minimum: {built}, not iOS 15.0"
    run_paths = [command.path for command in program.rpaths]
    if run_paths != RUN_PATHS:
        yield f"run paths: {run_paths}, not {RUN_PATHS}"
    loaded = sorted(library.name for library in program.libraries)
    if loaded != sorted(LIBRARIES):
        yield f"libraries: {loaded}, not {sorted(LIBRARIES)}"


def kept_imports() -> set[tuple[str, str]]:
    """Returns the (library, name) pairs that programs may import."""
    lines = (HERE / "imports.txt").read_text(encoding="utf-8").splitlines()
    return {tuple(line.split()) for line in lines if line and not line.startswith("#")}


def bindings_of(program: lief.MachO.Binary, weak: bool) -> list[lief.MachO.DyldBindingInfo]:
    """Returns the weak bindings if `weak` is true, otherwise all others, from the tables that dyld itself reads."""
    bindings = program.dyld_info.bindings if program.has_dyld_info else []
    return [one for one in bindings if (one.binding_class == lief.MachO.DyldBindingInfo.CLASS.WEAK) == weak]


def imports_of(program: lief.MachO.Binary) -> set[tuple[str, str]]:
    return {
        (LIBRARIES.get(one.library.name, one.library.name) if one.library else "no library", one.symbol.name)
        for one in bindings_of(program, False)
    }


def check_symbols(program: lief.MachO.Binary) -> Iterator[str]:
    for binding in bindings_of(program, True):
        yield f"bound weakly: {binding.symbol.name}"
    exports = sorted(one.symbol.name for one in program.dyld_info.exports) if program.has_dyld_info else []
    if exports != EXPORTS:
        yield f"exports: {exports}, not {EXPORTS}"
    imports = imports_of(program)
    for library, name in sorted(imports - kept_imports()):
        yield f"{name} of {library} is not in imports.txt; first see that iOS 15.0 exports it"
    if not imports:
        yield "no imports, so this is no program"


def check_files(folder: pathlib.Path) -> Iterator[str]:
    imports = set()
    for path, limit_bytes in PROGRAMS.items():
        data = (folder / path).read_bytes()
        findings = [f"{len(data)} bytes, not under {limit_bytes}"] if len(data) >= limit_bytes else []
        findings += check_signature.examine(data, PACKAGE, ENTITLEMENTS)
        if program := check_signature.read_program(data):
            findings += [*check_header(program), *check_load_commands(program), *check_symbols(program)]
            imports |= imports_of(program)
        yield from (f"{pathlib.Path(path).name}: {finding}" for finding in findings)
    for library, name in sorted(kept_imports() - imports):
        yield f"imports.txt: no program asks for {name} of {library}"
    for path, job in JOBS.items():
        yield from differences(path, job, plistlib.loads((folder / path).read_bytes()))


def examine(package: pathlib.Path, version: str) -> list[str]:
    """Returns the problems of the package, one line each. Checks contents only if entries and control are right."""
    findings = [*check_entries(package), *check_control(package, version)]
    if findings:
        return findings
    with tempfile.TemporaryDirectory() as folder:
        run("dpkg-deb", "--extract", package, folder)
        return list(check_files(pathlib.Path(folder) / "var/jb"))


def main() -> int:
    parser = argparse.ArgumentParser(description="Look over a package for the device.")
    parser.add_argument("--version", required=True, help="the version that the package should have")
    parser.add_argument("package", metavar="PACKAGE", type=pathlib.Path)
    arguments = parser.parse_args()
    try:
        findings = examine(arguments.package, arguments.version)
    except (OSError, subprocess.CalledProcessError, tarfile.TarError, plistlib.InvalidFileException) as error:
        findings = [f"cannot be read: {error}"]
    for finding in findings:
        print(f"{arguments.package}: {finding}")
    if not findings:
        print(f"{arguments.package}: in order")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
