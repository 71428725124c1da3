#!/usr/bin/env python3
"""Creates a replacement for Apple's iPhoneOS SDK: C headers, and stub libraries to link against.

The C library's headers come from a wheel of zig, those of CoreFoundation and notify from stubs/. The
stub libraries export only the names in imports.txt, so a program that uses another name does not link.
"""

import argparse
import json
import pathlib
import shutil
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
WHEEL_HEADERS = "ziglang/lib/libc/include/any-darwin-any/"
FRAMEWORK = "System/Library/Frameworks/CoreFoundation.framework"
# The stub's path in the SDK, the library's path on the device, and its versions in the iOS 15.6 SDK.
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


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--wheel", help="zig's; without it, the C library's headers are there already")
    parser.add_argument("sdk", type=pathlib.Path, help="the folder to make")
    arguments = parser.parse_args()
    sdk, include = arguments.sdk, arguments.sdk / "usr/include"
    include.mkdir(parents=True, exist_ok=True)
    if arguments.wheel:
        with zipfile.ZipFile(arguments.wheel) as archive:
            archive.extractall(sdk, [name for name in archive.namelist() if name.startswith(WHEEL_HEADERS)])
        shutil.copytree(sdk / WHEEL_HEADERS, include, dirs_exist_ok=True)
        shutil.rmtree(sdk / "ziglang")
    shutil.copy2(HERE / "stubs/notify.h", include)
    shutil.copytree(HERE / "stubs/CoreFoundation", sdk / FRAMEWORK / "Headers", dirs_exist_ok=True)
    lines = (HERE / "imports.txt").read_text(encoding="utf-8").splitlines()
    imports = [line.split() for line in lines if line and not line.startswith("#")]
    for library, (stub, path, version, compatibility) in LIBRARIES.items():
        symbols = ",\n               ".join(name for owner, name in imports if owner == library)
        text = STUB.format(path=path, version=version, compatibility=compatibility, symbols=symbols)
        (sdk / stub).parent.mkdir(parents=True, exist_ok=True)
        (sdk / stub).write_text(text, encoding="utf-8")
    # System libraries adapt to the SDK version of a program: here they behave as in iOS 15.
    settings = json.dumps({"Version": "15.0", "MaximumDeploymentTarget": "15.0.99"})
    (sdk / "SDKSettings.json").write_text(settings, encoding="utf-8")


if __name__ == "__main__":
    main()
