#!/usr/bin/env python3
"""Signs a program for the device ad hoc, with entitlements, in the layout of xnu's cs_blobs.h.

The same program and entitlements give the same bytes, signed before or not. The program is replaced whole
or not at all.
"""

import argparse
import hashlib
import os
import pathlib
import plistlib
import re
import struct
import sys
import tempfile

THIN_64_BIT_EXECUTABLE = re.compile(rb"\xcf\xfa\xed\xfe.{8}\x02\0\0\0", re.DOTALL)
LC_SEGMENT_64, LC_CODE_SIGNATURE = 0x19, 0x1D
PAGE, VM_PAGE = 0x1000, 0x4000
HASH_SIZE, SPECIAL_SLOTS = 32, 7
CODE_DIRECTORY_HEADER = ">8I I4B I I I I Q QQQ"
EXEC_SEGMENT_MAIN_BINARY = 0x1
# What the kernel looks up here rather than among the entitlements, and what gives it: as Apple's own
# signer has it (Security, OSX/libsecurity_codesigning/lib/signer.cpp, cookEntitlements).
EXEC_SEGMENT_FLAGS = {
    "get-task-allow": 0x10,
    "run-unsigned-code": 0x10,
    "com.apple.private.cs.debugger": 0x20,
    "dynamic-codesigning": 0x40,
    "com.apple.private.skip-library-validation": 0x80,
    "com.apple.private.amfi.can-load-cdhash": 0x100,
    "com.apple.private.amfi.can-execute-cdhash": 0x200,
}


class Failure(Exception):
    """What the user did wrong, as one line."""


def read_entitlements(path: pathlib.Path) -> list[str]:
    """The keys, which all have to be true: no other value is needed."""
    try:
        entitlements = plistlib.loads(path.read_bytes())
        if all(value is True for value in entitlements.values()):
            return sorted(entitlements, key=lambda key: key.encode())
    except Exception:  # plistlib lets out whatever its parsers meet
        pass
    raise Failure(f"{path}: not a property list that is a dictionary of keys that are true")


def aligned(value: int, alignment: int) -> int:
    return -(-value // alignment) * alignment


class Image:
    """A program whose old signature is gone, and whose load commands point to a new one at its end."""

    def __init__(self, original: bytes) -> None:
        self.data = bytearray(original)
        self.segments: dict[str, tuple[int, tuple[int, ...]]] = {}
        self.signature = None
        self.read_commands()
        offset, (_, _, begin, size) = self.segments["__LINKEDIT"]
        if begin + size != len(self.data):
            raise Failure("__LINKEDIT does not end with the file")
        if self.signature is None:
            self.add_signature_command()
        else:
            del self.data[struct.unpack_from("<I", self.data, self.signature + 8)[0] :]
        self.data.extend(bytes(-len(self.data) % 16))
        self.linkedit, self.linkedit_begin = offset, begin

    def read_commands(self) -> None:
        count, size = struct.unpack_from("<II", self.data, 16)
        at, self.end = 32, 32 + size
        for _ in range(count):
            command, length = struct.unpack_from("<II", self.data, at)
            if length < 8 or at + length > min(self.end, len(self.data)):
                raise Failure("a load command is cut short")
            if command == LC_SEGMENT_64:
                name = self.data[at + 8 : at + 24].rstrip(b"\0").decode("latin-1")
                self.segments[name] = at, struct.unpack_from("<4Q", self.data, at + 24)
            elif command == LC_CODE_SIGNATURE:
                self.signature = at
            at += length

    def add_signature_command(self) -> None:
        # The linker leaves room between the load commands and the first section, filled with zeros.
        if any(self.data[self.end : self.end + 16]):
            raise Failure("no room for LC_CODE_SIGNATURE; link with -headerpad 0x20")
        count, size = struct.unpack_from("<II", self.data, 16)
        struct.pack_into("<II", self.data, 16, count + 1, size + 16)
        struct.pack_into("<II", self.data, self.end, LC_CODE_SIGNATURE, 16)
        self.signature = self.end

    def point_to_signature(self, size: int) -> None:
        filesize = len(self.data) + size - self.linkedit_begin
        struct.pack_into("<II", self.data, self.signature + 8, len(self.data), size)
        struct.pack_into("<Q", self.data, self.linkedit + 32, aligned(filesize, VM_PAGE))
        struct.pack_into("<Q", self.data, self.linkedit + 48, filesize)


def der(tag: int, body: bytes) -> bytes:
    if len(body) < 0x80:
        return bytes([tag, len(body)]) + body
    digits = len(body).to_bytes((len(body).bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(digits)]) + digits + body


def der_entitlements(keys: list[str]) -> bytes:
    """The form that the kernel reads from iOS 15 on."""
    true = der(0x01, b"\xff")
    pairs = b"".join(der(0x30, der(0x0C, key.encode()) + true) for key in keys)
    return der(0x70, der(0x02, b"\x01") + der(0xB0, pairs))


def blob(magic: int, body: bytes) -> bytes:
    return struct.pack(">II", magic, 8 + len(body)) + body


def code_directory(image: Image, identifier: str, flags: int, specials: dict[int, bytes]) -> bytes:
    """Hashes the code's pages and the special blobs, whose slots count down from the first page's."""
    code, name = bytes(image.data), identifier.encode() + b"\0"
    name_offset = struct.calcsize(CODE_DIRECTORY_HEADER)
    hash_offset = name_offset + len(name) + SPECIAL_SLOTS * HASH_SIZE
    hashes = [bytes(HASH_SIZE)] * SPECIAL_SLOTS
    for slot, content in specials.items():
        hashes[SPECIAL_SLOTS - slot] = hashlib.sha256(content).digest()
    pages = [code[at : at + PAGE] for at in range(0, len(code), PAGE)]
    hashes += [hashlib.sha256(page).digest() for page in pages]
    _, (_, _, text_begin, text_size) = image.segments["__TEXT"]
    header = struct.pack(
        CODE_DIRECTORY_HEADER,
        *(0xFADE0C02, hash_offset + len(pages) * HASH_SIZE),
        *(0x20400, 0x2),  # the first version with the executable segment; ad hoc
        *(hash_offset, name_offset, SPECIAL_SLOTS, len(pages)),
        *(len(code), HASH_SIZE, 2, 0, PAGE.bit_length() - 1),  # 2: SHA-256
        *(0, 0, 0, 0, 0),  # spare, scatter, team, spare, 64-bit limit
        *(text_begin, text_size, flags),
    )
    return header + name + b"".join(hashes)


def signature_of(image: Image, identifier: str, keys: list[str]) -> bytes:
    xml = plistlib.dumps(dict.fromkeys(keys, True))
    specials = {
        2: blob(0xFADE0C01, bytes(4)),  # no requirements
        5: blob(0xFADE7171, xml),
        7: blob(0xFADE7172, der_entitlements(keys)),
    }
    flags = EXEC_SEGMENT_MAIN_BINARY
    for key in keys:
        flags |= EXEC_SEGMENT_FLAGS.get(key, 0)
    blobs = {0: code_directory(image, identifier, flags, specials), **specials, 0x10000: blob(0xFADE0B01, b"")}
    offset, index = 12 + 8 * len(blobs), b""
    for slot, content in blobs.items():
        index += struct.pack(">II", slot, offset)
        offset += len(content)
    whole = blob(0xFADE0CC0, struct.pack(">I", len(blobs)) + index + b"".join(blobs.values()))
    return whole.ljust(aligned(len(whole), 16), b"\0")


def signed(original: bytes, identifier: str, keys: list[str]) -> bytes:
    image = Image(original)
    # The signature covers the load commands, which tell its size: it is made once for that, then for good.
    image.point_to_signature(len(signature_of(image, identifier, keys)))
    return bytes(image.data) + signature_of(image, identifier, keys)


def replace_file(path: pathlib.Path, data: bytes) -> None:
    mode = path.stat().st_mode
    with tempfile.TemporaryDirectory(dir=path.parent, prefix=".signing.") as folder:
        new = pathlib.Path(folder, path.name)
        new.write_bytes(data)
        new.chmod(mode)
        os.replace(new, path)


def sign(path: pathlib.Path, identifier: str, entitlements: pathlib.Path) -> None:
    if not re.fullmatch(r"[A-Za-z0-9._-]+", identifier):
        raise Failure(f"identifier {identifier!r}: only letters, digits and . - _ may be in it")
    keys = read_entitlements(entitlements)
    path = path.resolve()
    if not path.is_file():
        raise Failure(f"{path}: not a regular file")
    original = path.read_bytes()
    if not THIN_64_BIT_EXECUTABLE.match(original):
        raise Failure(f"{path}: not a thin 64-bit little-endian Mach-O executable")
    try:
        replace_file(path, signed(original, identifier, keys))
    except (Failure, OSError) as error:
        raise Failure(f"{path}: cannot be signed: {error}") from None
    except (KeyError, struct.error):
        raise Failure(f"{path}: cannot be signed: the file is damaged or cut short") from None


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
