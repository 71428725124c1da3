#!/usr/bin/env python3
"""Makes what stands in for Apple's iPhoneOS SDK: C headers, and stubs of the libraries to link against.

The headers of the C library come from a wheel of zig, those of CoreFoundation and notify from stubs/.
A stub library exports the names in imports.txt and no others, so a program that asks the device for
more does not link.
"""

import argparse
import json
import pathlib
import shutil
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
WHEEL_HEADERS = "ziglang/lib/libc/include/any-darwin-any/"
FRAMEWORK = "System/Library/Frameworks/CoreFoundation.framework"

# The stub's path in the SDK, the library's path on the device, its versions in the SDK of iOS 15.6.
LIBRARIES = {
    "CoreFoundation": (f"{FRAMEWORK}/CoreFoundation.tbd", f"/{FRAMEWORK}/CoreFoundation", "1860", 150),
    "libSystem": ("usr/lib/libSystem.tbd", "/usr/lib/libSystem.B.dylib", "1311.120.1", 1),
    "libc++": ("usr/lib/libc++.tbd", "/usr/lib/libc++.1.dylib", "1300.25", 1),
}

STUB = """--- !tapi-tbd
tbd-version: 4
targets: [ arm64-ios ]
install-name: '{path}'
current-version: {version}
compatibility-version: {compatibility}
exports:
  - targets: [ arm64-ios ]
    symbols: [ {symbols} ]
...
"""


def imports():
    """The names by library, as imports.txt has them."""
    names = {library: [] for library in LIBRARIES}
    for line in (HERE / "imports.txt").read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            library, name = line.split()
            names[library].append(name)
    return names


def write_libraries(sdk):
    for library, names in imports().items():
        stub, path, version, compatibility = LIBRARIES[library]
        (sdk / stub).parent.mkdir(parents=True, exist_ok=True)
        symbols = ",\n               ".join(names)
        text = STUB.format(path=path, version=version, compatibility=compatibility, symbols=symbols)
        (sdk / stub).write_text(text, encoding="utf-8")


def write_headers(sdk):
    (sdk / "usr/include").mkdir(parents=True, exist_ok=True)
    shutil.copy2(HERE / "stubs/notify.h", sdk / "usr/include")
    shutil.copytree(HERE / "stubs/CoreFoundation", sdk / FRAMEWORK / "Headers", dirs_exist_ok=True)


def unpack_headers(sdk, wheel):
    with zipfile.ZipFile(wheel) as archive:
        for name in archive.namelist():
            if name.startswith(WHEEL_HEADERS) and not name.endswith("/"):
                target = sdk / "usr/include" / name.removeprefix(WHEEL_HEADERS)
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(archive.read(name))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--wheel", help="zig's; without it, the C library's headers are there already")
    parser.add_argument("sdk", type=pathlib.Path, help="the folder to make")
    arguments = parser.parse_args()
    if arguments.wheel:
        unpack_headers(arguments.sdk, arguments.wheel)
    write_headers(arguments.sdk)
    write_libraries(arguments.sdk)
    # The system's libraries behave as a program's SDK lets them expect: as those of iOS 15 do.
    settings = json.dumps({"Version": "15.0", "MaximumDeploymentTarget": "15.0.99"})
    (arguments.sdk / "SDKSettings.json").write_text(settings, encoding="utf-8")


if __name__ == "__main__":
    main()
