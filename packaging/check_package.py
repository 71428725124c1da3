#!/usr/bin/env python3
"""Looks over a finished package for the device, and says what in it is not as it must be.

What it compares with stands here and in imports.txt; of how the package was made it knows nothing.
"""

import argparse
import collections
import pathlib
import plistlib
import re
import subprocess
import sys
import tarfile
import tempfile

import check_signature

PACKAGE = "com.zel.vorlatch"
HERE = pathlib.Path(__file__).resolve().parent

PROGRAMS = {"usr/libexec/vorlatchd": 200_000, "usr/bin/vorlatchctl": 600_000}  # bytes, at most
LAUNCH_DAEMON = f"Library/LaunchDaemons/{PACKAGE}.plist"
DOCUMENTS = ("device.md", "device.zh-CN.md", "log.md", "preferences.md", "vorlatchctl.md")
OTHER_FILES = (
    LAUNCH_DAEMON,
    "usr/share/bash-completion/completions/vorlatchctl",
    "usr/share/man/man1/vorlatchctl.1",
    "usr/share/man/man8/vorlatchd.8",
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
LAUNCH = {
    "Label": PACKAGE,
    "ProgramArguments": ["/var/jb/usr/libexec/vorlatchd"],
    "UserName": "root",
    "RunAtLoad": True,
    "KeepAlive": True,
}
ENTITLEMENTS = dict.fromkeys(
    (
        "com.apple.private.memorystatus",
        "com.apple.private.security.no-container",
        "com.apple.private.security.storage.AppBundles",
        "com.apple.private.skip-library-validation",
        "platform-application",
    ),
    True,
)
RUN_PATHS = ["/var/jb/usr/lib", "@loader_path/.jbroot/usr/lib", "@loader_path/../lib"]
LIBRARIES = {
    "CoreFoundation": "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation",
    "libSystem": "/usr/lib/libSystem.B.dylib",
    "libc++": "/usr/lib/libc++.1.dylib",
}
EXPORTS = ["__mh_execute_header"]

Entry = collections.namedtuple("Entry", "kind mode owner")


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, encoding="utf-8").stdout


def differences(what, expected, found):
    """One line for each key of a dictionary that is missing, different or too many."""
    for key in sorted({*expected, *found}):
        if expected.get(key) != found.get(key):
            yield f"{what} {key}: {found.get(key)}, not {expected.get(key)}"


# The package's own parts


def entries_of(package, part):
    """What the tar archive of a package holds, by path without the leading "./"."""
    with subprocess.Popen(["dpkg-deb", part, package], stdout=subprocess.PIPE) as deb:
        with tarfile.open(fileobj=deb.stdout, mode="r|") as archive:
            entries = {
                member.name.removeprefix("./").removeprefix("."): Entry(
                    "folder" if member.isdir() else "file" if member.isreg() else "neither",
                    member.mode,
                    (member.uid, member.gid, member.uname, member.gname),
                )
                for member in archive
            }
        deb.stdout.read()
    return entries


def expected_entries(modes):
    root = (0, 0, "root", "root")
    entries = {"": Entry("folder", 0o755, root)}
    for path, mode in modes.items():
        entries[path] = Entry("file", mode, root)
        for folder in pathlib.PurePosixPath(path).parents:
            entries[str(folder).removeprefix(".")] = Entry("folder", 0o755, root)
    return entries


def check_entries(package):
    modes = {f"var/jb/{path}": 0o644 for path in OTHER_FILES}
    modes.update({f"var/jb/{path}": 0o755 for path in PROGRAMS})
    yield from differences("path", expected_entries(modes), entries_of(package, "--fsys-tarfile"))
    expected = expected_entries(CONTROL_FILES)
    yield from differences("control file", expected, entries_of(package, "--ctrl-tarfile"))


def check_control(package, version):
    fields = dict(re.findall(r"^([\w-]+): (.*)$", run("dpkg-deb", "--field", package), re.MULTILINE))
    if not re.fullmatch(r"[1-9]\d*", fields.pop("Installed-Size", "")):
        yield "control field Installed-Size: not a number of KiB"
    yield from differences("control field", {**CONTROL_FIELDS, "Version": version}, fields)
    name = f"{PACKAGE}_{version}_iphoneos-arm64.deb"
    if pathlib.Path(package).name != name:
        yield f"the package's name is not {name}"


# The programs


def load_commands(program):
    """The fields of each load command by name, as llvm-objdump spells them."""
    blocks = run("llvm-objdump", "--macho", "--private-headers", program).split("\nLoad command ")
    for block in blocks[1:]:
        yield dict(re.findall(r"^ *(\w+) (.+?)(?: \(offset \d+\))?$", block, re.MULTILINE))


def check_header(program):
    header = run("llvm-objdump", "--macho", "--private-header", program).splitlines()[-1].split()
    if header[:3] != ["MH_MAGIC_64", "ARM64", "ALL"] or header[4] != "EXECUTE":
        yield f"not an arm64 executable: {' '.join(header[:5])}"
    if "PIE" not in header:
        yield "not position independent"
    # With either of these dyld compares the program's definitions with those of every library.
    for flag in sorted({"WEAK_DEFINES", "BINDS_TO_WEAK"} & set(header)):
        yield f"the flag {flag} is set"


def check_load_commands(program):
    commands = list(load_commands(program))
    versions = [command for command in commands if command["cmd"] == "LC_BUILD_VERSION"]
    built = [(version.get("platform"), version.get("minos")) for version in versions]
    if built != [("ios", "15.0")]:
        yield f"platform and minimum: {built}, not ios 15.0"
    run_paths = [command["path"] for command in commands if command["cmd"] == "LC_RPATH"]
    if run_paths != RUN_PATHS:
        yield f"run paths: {run_paths}, not {RUN_PATHS}"
    loaded = [command["name"] for command in commands if "_DYLIB" in command["cmd"]]
    if sorted(loaded) != sorted(LIBRARIES.values()):
        yield f"libraries: {sorted(loaded)}, not {sorted(LIBRARIES.values())}"


def kept_imports():
    """What may be asked of each library."""
    lines = (HERE / "imports.txt").read_text(encoding="utf-8").splitlines()
    return {tuple(line.split()) for line in lines if line and not line.startswith("#")}


def table(program, option):
    """The rows of one of dyld's tables, split at blanks, without its head."""
    rows = [line.split() for line in run("llvm-objdump", "--macho", option, program).splitlines()[3:]]
    return [row for row in rows if row and row[0] != "segment"]


def imports_of(program):
    """What dyld looks up, by library and name, from the tables that it goes by itself."""
    eager = {(row[5], row[6]) for row in table(program, "--bind")}
    return eager | {(row[3], row[4]) for row in table(program, "--lazy-bind")}


def check_symbols(program):
    for row in table(program, "--weak-bind"):
        yield f"bound weakly: {row[-1]}"
    exports = [row[1] for row in table(program, "--exports-trie")]
    if exports != EXPORTS:
        yield f"exports: {exports}, not {EXPORTS}"
    imports = imports_of(program)
    for library, name in sorted(imports - kept_imports()):
        yield f"{name} of {library} is not in imports.txt; first see that iOS 15.0 exports it"
    if not imports:
        yield "no imports, so this is no program"


def check_program(program, limit_bytes):
    findings = [*check_header(program), *check_load_commands(program), *check_symbols(program)]
    size = program.stat().st_size
    if size >= limit_bytes:
        findings.append(f"{size} bytes, not under {limit_bytes}")
    findings += check_signature.examine(program.read_bytes(), PACKAGE, ENTITLEMENTS)
    return [f"{program.name}: {finding}" for finding in findings]


def check_files(folder):
    findings, imports = [], set()
    for path, limit_bytes in PROGRAMS.items():
        findings += check_program(folder / path, limit_bytes)
        imports |= imports_of(folder / path)
    for library, name in sorted(kept_imports() - imports):
        findings.append(f"imports.txt: no program asks for {name} of {library}")
    launch = plistlib.loads((folder / LAUNCH_DAEMON).read_bytes())
    return findings + list(differences(LAUNCH_DAEMON, LAUNCH, launch))


def examine(package, version):
    """What is wrong with the package, one line each. The files' contents only once all are there."""
    findings = [*check_entries(package), *check_control(package, version)]
    if findings:
        return findings
    with tempfile.TemporaryDirectory() as folder:
        run("dpkg-deb", "--extract", package, folder)
        return check_files(pathlib.Path(folder) / "var/jb")


def main():
    parser = argparse.ArgumentParser(description="Look over a package for the device.")
    parser.add_argument("--version", required=True, help="the one that it should have")
    parser.add_argument("package", metavar="PACKAGE")
    arguments = parser.parse_args()
    try:
        findings = examine(arguments.package, arguments.version)
    except (OSError, subprocess.CalledProcessError, tarfile.TarError, plistlib.InvalidFileException) as error:
        findings = [f"cannot be read: {getattr(error, 'stderr', None) or error}".strip()]
    for finding in findings:
        print(f"{arguments.package}: {finding}")
    if not findings:
        print(f"{arguments.package}: in order")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
