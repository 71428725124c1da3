#!/usr/bin/env python3
"""Signs programs for the device ad hoc, with entitlements.plist, in the layout of xnu's cs_blobs.h.

Usage: sign.py PROGRAM... The same program and entitlements give the same bytes.
"""

import hashlib
import pathlib
import plistlib
import struct
import sys

IDENTIFIER = "com.zel.vorlatch"
ENTITLEMENTS = pathlib.Path(__file__).with_name("entitlements.plist")
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


def aligned(value: int, alignment: int) -> int:
    return -(-value // alignment) * alignment


def commands_of(data: bytes) -> dict[int | str, int]:
    """Returns where each load command begins, by its number, or for a segment by its name."""
    commands, at = {}, 32
    for _ in range(struct.unpack_from("<I", data, 16)[0]):
        command, length = struct.unpack_from("<II", data, at)
        name = data[at + 8 : at + 24].rstrip(b"\0").decode() if command == LC_SEGMENT_64 else command
        commands[name] = at
        at += length
    return commands


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


def code_directory(code: bytes, text: tuple[int, int], flags: int, specials: dict[int, bytes]) -> bytes:
    """Hashes the code's pages and the special blobs, whose slots count down from the first page's."""
    name = IDENTIFIER.encode() + b"\0"
    name_offset = struct.calcsize(CODE_DIRECTORY_HEADER)
    hash_offset = name_offset + len(name) + SPECIAL_SLOTS * HASH_SIZE
    hashes = [bytes(HASH_SIZE)] * SPECIAL_SLOTS
    for slot, content in specials.items():
        hashes[SPECIAL_SLOTS - slot] = hashlib.sha256(content).digest()
    pages = [code[at : at + PAGE] for at in range(0, len(code), PAGE)]
    hashes += [hashlib.sha256(page).digest() for page in pages]
    header = struct.pack(
        CODE_DIRECTORY_HEADER,
        *(0xFADE0C02, hash_offset + len(pages) * HASH_SIZE),
        *(0x20400, 0x2),  # the first version with the executable segment; ad hoc
        *(hash_offset, name_offset, SPECIAL_SLOTS, len(pages)),
        *(len(code), HASH_SIZE, 2, 0, PAGE.bit_length() - 1),  # 2: SHA-256
        *(0, 0, 0, 0, 0),  # spare, scatter, team, spare, 64-bit limit
        *(*text, flags),
    )
    return header + name + b"".join(hashes)


def signature_of(code: bytes, text: tuple[int, int], keys: list[str]) -> bytes:
    """Returns the signature of the code, whose executable segment is at this offset and of this size."""
    specials = {
        2: blob(0xFADE0C01, bytes(4)),  # no requirements
        5: blob(0xFADE7171, plistlib.dumps(dict.fromkeys(keys, True))),
        7: blob(0xFADE7172, der_entitlements(keys)),
    }
    flags = EXEC_SEGMENT_MAIN_BINARY
    for key in keys:
        flags |= EXEC_SEGMENT_FLAGS.get(key, 0)
    blobs = {0: code_directory(code, text, flags, specials), **specials, 0x10000: blob(0xFADE0B01, b"")}
    offset, index = 12 + 8 * len(blobs), b""
    for slot, content in blobs.items():
        index += struct.pack(">II", slot, offset)
        offset += len(content)
    whole = blob(0xFADE0CC0, struct.pack(">I", len(blobs)) + index + b"".join(blobs.values()))
    return whole.ljust(aligned(len(whole), 16), b"\0")


def signed(original: bytes, keys: list[str]) -> bytes:
    """Returns the program with a signature at its end, and with a load command that points to it."""
    data = bytearray(original.ljust(aligned(len(original), 16), b"\0"))
    keys = sorted(keys, key=lambda key: key.encode())
    commands = commands_of(data)
    count, commands_size = struct.unpack_from("<II", data, 16)
    command = 32 + commands_size
    if LC_CODE_SIGNATURE in commands:
        sys.exit("sign.py: the program is signed already")
    # The linker leaves room between the load commands and the first section, filled with zeros.
    if any(data[command : command + 16]):
        sys.exit("sign.py: no room for LC_CODE_SIGNATURE; link with -headerpad 0x20")
    text = struct.unpack_from("<2Q", data, commands["__TEXT"] + 40)
    # The signature covers the load commands, which contain its size.
    size = len(signature_of(data, text, keys))
    struct.pack_into("<II", data, 16, count + 1, commands_size + 16)
    struct.pack_into("<4I", data, command, LC_CODE_SIGNATURE, 16, len(data), size)
    linkedit = commands["__LINKEDIT"]
    file_size = len(data) + size - struct.unpack_from("<Q", data, linkedit + 40)[0]
    struct.pack_into("<Q", data, linkedit + 32, aligned(file_size, VM_PAGE))
    struct.pack_into("<Q", data, linkedit + 48, file_size)
    return bytes(data) + signature_of(data, text, keys)


def main() -> None:
    entitlements = plistlib.loads(ENTITLEMENTS.read_bytes())
    if not all(value is True for value in entitlements.values()):
        sys.exit("sign.py: an entitlement has another value than true")
    for program in map(pathlib.Path, sys.argv[1:]):
        program.write_bytes(signed(program.read_bytes(), list(entitlements)))


if __name__ == "__main__":
    main()
