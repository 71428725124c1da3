"""Checks the ad-hoc signature of a program for the device.

Shares no code with sign.py, so that a mistake there is found here. The layout is from xnu's cs_blobs.h.
"""

import hashlib
import io
import pathlib
import plistlib
import struct
import sys
from collections.abc import Iterator

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "build/python"))
import lief  # noqa: E402

lief.logging.disable()  # this module reports the problems itself

PAGE = 4096
NO_HASH = bytes(32)
EMPTY_REQUIREMENTS = struct.pack(">3I", 0xFADE0C01, 12, 0)
EMPTY_CMS = struct.pack(">2I", 0xFADE0B01, 8)
BLOBS = {0: "code directory", 2: "requirements", 5: "XML entitlements", 7: "DER entitlements", 0x10000: "CMS data"}
DIRECTORY = struct.Struct(">9I4B4I4Q")
# The bits that entitlements add to execSegFlags, which are 1 for every executable.
EXEC_SEGMENT_FLAGS = {
    "get-task-allow": 0x10,
    "run-unsigned-code": 0x10,
    "com.apple.private.cs.debugger": 0x20,
    "dynamic-codesigning": 0x40,
    "com.apple.private.skip-library-validation": 0x80,
    "com.apple.private.amfi.can-load-cdhash": 0x100,
    "com.apple.private.amfi.can-execute-cdhash": 0x200,
}


def read_program(data: bytes) -> lief.MachO.Binary | None:
    """Returns the program, or None if it is not a thin 64-bit Mach-O file."""
    found = lief.MachO.parse(io.BytesIO(data)) if data[:4] == b"\xcf\xfa\xed\xfe" else None
    return found.at(0) if found else None


def superblob(blobs: dict[int, bytes]) -> bytes:
    """Returns a superblob with the blobs in the order of their slots, without gaps."""
    index, body, begin = b"", b"", 12 + 8 * len(blobs)
    for slot, blob in sorted(blobs.items()):
        index += struct.pack(">2I", slot, begin + len(body))
        body += blob
    return struct.pack(">3I", 0xFADE0CC0, begin + len(body), len(blobs)) + index + body


def read_blobs(signature: bytes) -> dict[int, bytes]:
    blobs = {}
    for at in range(12, 12 + 8 * struct.unpack_from(">I", signature, 8)[0], 8):
        slot, begin = struct.unpack_from(">2I", signature, at)
        blobs[slot] = signature[begin : begin + struct.unpack_from(">I", signature, begin + 4)[0]]
    return blobs


def der(tag: int, body: bytes) -> bytes:
    size = len(body).to_bytes(2, "big").lstrip(b"\0") or b"\0"
    return bytes([tag, *([0x80 | len(size)] if len(body) > 0x7F else []), *size]) + body


def der_entitlements(names: list[str]) -> bytes:
    """Encodes the entitlements as the kernel expects since iOS 15: version 1, each key with true."""
    pairs = [der(0x30, der(0x0C, name.encode()) + b"\x01\x01\xff") for name in sorted(names)]
    return der(0x70, b"\x02\x01\x01" + der(0xB0, b"".join(pairs)))


def check_place(program: lief.MachO.Binary, size: int) -> Iterator[str]:
    signature, linkedit = program.code_signature, program.get_segment("__LINKEDIT")
    begin, end = signature.data_offset, signature.data_offset + signature.data_size
    if begin % 16:
        yield f"the signature's offset {begin} is not a multiple of 16"
    if end != size:
        yield f"the signature ends at {end}, the file at {size}"
    if begin < linkedit.file_offset or end != linkedit.file_offset + linkedit.file_size:
        yield "the signature is not at the end of __LINKEDIT"
    if linkedit.virtual_size < linkedit.file_size or linkedit.virtual_size % 0x4000:
        yield f"__LINKEDIT's size in memory 0x{linkedit.virtual_size:x} does not fit its size in the file"


def check_blobs(signature: bytes, blobs: dict[int, bytes], entitlements: list[str]) -> Iterator[str]:
    whole = superblob(blobs)
    if signature[: len(whole)] != whole or any(signature[len(whole) :]):
        yield "the blobs do not follow one right after the other up to zeros"
    if blobs.keys() != BLOBS.keys():
        yield f"the blobs are of the slots {sorted(blobs)}, not {sorted(BLOBS)}"
    body = der_entitlements(entitlements)
    expected = {2: EMPTY_REQUIREMENTS, 7: struct.pack(">2I", 0xFADE7172, 8 + len(body)) + body, 0x10000: EMPTY_CMS}
    xml = blobs.get(5, b"")
    try:
        found = plistlib.loads(xml[8:], fmt=plistlib.FMT_XML)
        same = sorted(found) == sorted(entitlements) and all(value is True for value in found.values())
    except Exception:  # plistlib raises exceptions of several parsers
        same = False
    expected[5] = b"\xfa\xde\x71\x71" + xml[4:] if same else None
    for slot, content in sorted(expected.items()):
        if blobs.get(slot) != content:
            yield f"the {BLOBS[slot]} are not those of the package"


def check_directory(
    blobs: dict[int, bytes], code: bytes, text: lief.MachO.SegmentCommand, identifier: str, entitlements: list[str]
) -> Iterator[str]:
    directory, name = blobs[0], identifier.encode() + b"\0"
    pages = [code[begin : begin + PAGE] for begin in range(0, len(code), PAGE)]
    hashed = {f"special slot {slot}": blobs.get(slot) for slot in range(7, 0, -1)}
    hashed |= {f"page {number}, at 0x{number * PAGE:x},": page for number, page in enumerate(pages)}
    first = DIRECTORY.size + len(name) + 7 * 32
    flags = 1
    for entitlement in entitlements:
        flags |= EXEC_SEGMENT_FLAGS.get(entitlement, 0)
    expected = {
        **{"magic": 0xFADE0C02, "length": first + 32 * len(pages), "version": 0x20400, "flags": 2},
        **{"hashOffset": first, "identOffset": DIRECTORY.size, "nSpecialSlots": 7, "nCodeSlots": len(pages)},
        **{"codeLimit": len(code), "hashSize": 32, "hashType": 2, "platform": 0, "pageSize": 12},
        **{"spare2": 0, "scatterOffset": 0, "teamOffset": 0, "spare3": 0, "codeLimit64": 0},
        **{"execSegBase": text.file_offset, "execSegLimit": text.file_size, "execSegFlags": flags},
    }
    for (field, value), found in zip(expected.items(), DIRECTORY.unpack_from(directory)):
        if found != value:
            yield f"{field} is 0x{found:x}, not 0x{value:x}"
    signed_name = directory[DIRECTORY.size :].partition(b"\0")[0].decode("utf-8", "replace")
    if signed_name != identifier:
        yield f"the identifier is {signed_name[:80]!r}, not {identifier!r}"
        return
    for number, (what, content) in enumerate(hashed.items()):
        begin = DIRECTORY.size + len(name) + 32 * number
        if directory[begin : begin + 32] != (hashlib.sha256(content).digest() if content else NO_HASH):
            yield f"{what} does not have the hash that is signed"


def examine(data: bytes, identifier: str, entitlements: list[str]) -> list[str]:
    """Returns the problems of the signature, one line each. All entitlements have the value true."""
    program = read_program(data)
    if program is None:
        return ["not a thin 64-bit little-endian Mach-O file"]
    signatures = [c for c in program.commands if c.command == lief.MachO.LoadCommand.TYPE.CODE_SIGNATURE]
    if len(signatures) != 1:
        return [f"{len(signatures)} LC_CODE_SIGNATURE, not 1"]
    findings, begin = [], program.code_signature.data_offset
    try:
        findings += check_place(program, len(data))
        signature = data[begin : begin + program.code_signature.data_size]
        blobs = read_blobs(signature)
        findings += check_blobs(signature, blobs, entitlements)
        text = program.get_segment("__TEXT")
        findings += check_directory(blobs, data[:begin], text, identifier, entitlements)
    except (AttributeError, KeyError, struct.error) as error:  # truncated, or a part is missing
        findings.append(f"the signature cannot be read: {error}")
    return findings
