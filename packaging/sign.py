#!/usr/bin/env python3
"""Signs a program for the device ad hoc, with entitlements; Rust's apple-codesign makes the signature.

The same program and entitlements give the same bytes. The program is replaced whole or not at all.
"""

import argparse
import os
import pathlib
import plistlib
import re
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "build/python"))
import apple_platform  # noqa: E402

THIN_64_BIT_EXECUTABLE = re.compile(rb"\xcf\xfa\xed\xfe.{8}\x02\0\0\0", re.DOTALL)


class Failure(Exception):
    """What the user did wrong, as one line."""


def check_entitlements(path: pathlib.Path) -> None:
    try:
        entitlements = plistlib.loads(path.read_bytes())
        # Other values are not needed, and check_signature.py knows no form for them.
        if all(value is True for value in entitlements.values()):
            return
    except Exception:  # plistlib lets out whatever its parsers meet
        pass
    raise Failure(f"{path}: not a property list that is a dictionary of keys that are true")


def sign(path: pathlib.Path, identifier: str, entitlements: pathlib.Path) -> None:
    if not re.fullmatch(r"[A-Za-z0-9._-]+", identifier):
        raise Failure(f"identifier {identifier!r}: only letters, digits and . - _ may be in it")
    check_entitlements(entitlements)
    path = path.resolve()
    if not path.is_file():
        raise Failure(f"{path}: not a regular file")
    if not THIN_64_BIT_EXECUTABLE.match(path.read_bytes()):
        raise Failure(f"{path}: not a thin 64-bit little-endian Mach-O executable")
    with tempfile.TemporaryDirectory(dir=path.parent, prefix=".signing.") as folder:
        signed = pathlib.Path(folder, path.name)
        try:
            options = {"entitlements_xml_file": entitlements, "digests": ["sha256"]}
            apple_platform.sign(path, signed, binary_identifier=identifier, **options)
            os.replace(signed, path)
        except (apple_platform.errors.ApplePlatformError, OSError) as error:
            raise Failure(f"{path}: cannot be signed: {error}") from None


def main() -> int:
    parser = argparse.ArgumentParser(description="Sign a thin 64-bit Mach-O executable ad hoc, in place.")
    parser.add_argument("--identifier", required=True, help="such as com.example.tool")
    parser.add_argument("--entitlements", required=True, metavar="FILE", type=pathlib.Path)
    parser.add_argument("binary", metavar="BINARY", type=pathlib.Path)
    asked = parser.parse_args()
    try:
        sign(asked.binary, asked.identifier, asked.entitlements)
    except Failure as failure:
        print(f"sign.py: {failure}", file=sys.stderr)
        return 1
    print(f"{asked.binary}: signed as {asked.identifier}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
