#!/usr/bin/env python3
"""Reads the ad-hoc signature of a Mach-O executable back and says what is wrong with it.

It shares no code with sign.py, so that a mistake there cannot excuse itself here.
"""

import argparse
import hashlib
import plistlib
import struct
import sys

PAGE = 4096
DIGEST_LENGTH = 32
SLOTS = {
    0: ("the code directory", 0xFADE0C02),
    2: ("the requirements", 0xFADE0C01),
    5: ("the XML entitlements", 0xFADE7171),
    7: ("the DER entitlements", 0xFADE7172),
    0x10000: ("the CMS wrapper", 0xFADE0B01),
}
DIRECTORY_FIELDS = (
    *("magic", "length", "version", "flags", "hashOffset", "identOffset", "nSpecialSlots", "nCodeSlots"),
    *("codeLimit", "hashSize", "hashType", "platform", "pageSize", "spare2", "scatterOffset", "teamOffset"),
    *("spare3", "codeLimit64", "execSegBase", "execSegLimit", "execSegFlags"),
)
DIRECTORY_LAYOUT = struct.Struct(">9L4B4L4Q")
# What an entitlement that is true adds to execSegFlags, which are 1 for an executable itself.
EXEC_SEGMENT_BITS = (
    *((4, "get-task-allow"), (4, "run-unsigned-code"), (5, "com.apple.private.cs.debugger")),
    *((6, "dynamic-codesigning"), (7, "com.apple.private.skip-library-validation")),
    *((8, "com.apple.private.amfi.can-load-cdhash"), (9, "com.apple.private.amfi.can-execute-cdhash")),
)
MOST_PAGES_NAMED = 5


class Broken(Exception):
    """What keeps the rest from being read."""


def part(data, offset, length, what):
    if offset + length > len(data):
        raise Broken(f"{what}: cut off by the end of what holds it")
    return data[offset : offset + length]


def number(data, offset, length, order, what):
    return int.from_bytes(part(data, offset, length, what), order)


# DER entitlements


class DerReader:
    """Reads strictly: what has two encodings in BER has one here."""

    def __init__(self, data):
        self.data = data
        self.position = 0

    def at_end(self):
        return self.position == len(self.data)

    def take(self, length):
        taken = part(self.data, self.position, length, "a DER element")
        self.position += length
        return taken

    def take_length(self):
        first = self.take(1)[0]
        if first < 0x80:
            return first
        digits = self.take(first & 0x7F)
        length = int.from_bytes(digits, "big")
        if not digits or digits[0] == 0 or length < 0x80:
            raise Broken("a DER length is not in its shortest form")
        return length

    def element(self):
        tag = self.take(1)[0]
        return tag, self.take(self.take_length())

    def inside(self, expected, what):
        tag, body = self.element()
        if tag != expected:
            raise Broken(f"DER tag 0x{tag:02x} where {what} (0x{expected:02x}) belongs")
        return DerReader(body)

    def expect_end(self, what):
        if not self.at_end():
            raise Broken(f"there are DER bytes left over after {what}")


def der_boolean(body):
    if body not in (b"\x00", b"\xff"):
        raise Broken("a DER boolean is neither 00 nor ff")
    return body == b"\xff"


def der_integer(body):
    # The first byte only repeats the sign when all of its bits are that of the second's highest.
    if body[:1] in (b"\x00", b"\xff") and len(body) > 1 and (body[0] ^ body[1]) < 0x80:
        raise Broken("a DER integer is not in its shortest form")
    if not 1 <= len(body) <= 8:
        raise Broken(f"a DER integer of {len(body)} bytes")
    return int.from_bytes(body, "big", signed=True)


def der_text(body):
    try:
        return body.decode("utf-8")
    except UnicodeDecodeError:
        raise Broken("a DER string is not UTF-8") from None


def der_list(body):
    reader, values = DerReader(body), []
    while not reader.at_end():
        values.append(der_item(*reader.element()))
    return values


def der_pairs(body):
    reader, values, last = DerReader(body), {}, None
    while not reader.at_end():
        pair = reader.inside(0x30, "a key with its value")
        key = pair.inside(0x0C, "a key").data
        if last is not None and key <= last:
            raise Broken("the keys of a DER dictionary are not sorted, or one is there twice")
        last = key
        values[der_text(key)] = der_item(*pair.element())
        pair.expect_end("a value")
    return values


def der_item(tag, body):
    readers = {0x01: der_boolean, 0x02: der_integer, 0x0C: der_text, 0x30: der_list, 0xB0: der_pairs}
    if tag not in readers:
        raise Broken(f"DER tag 0x{tag:02x} is not that of an entitlement's value")
    return readers[tag](body)


def read_der(data):
    outside = DerReader(data)
    reader = outside.inside(0x70, "the entitlements")
    outside.expect_end("the entitlements")
    version = der_integer(reader.inside(0x02, "the version").data)
    if version != 1:
        raise Broken(f"version {version} of the DER form, not 1")
    values = der_pairs(reader.inside(0xB0, "the dictionary").data)
    reader.expect_end("the dictionary")
    return values


def read_plist(data, what, form=None):
    try:
        values = plistlib.loads(data, fmt=form)
    except Exception:  # plistlib lets out whatever its parsers meet
        raise Broken(f"{what}: not a property list") from None
    if not isinstance(values, dict):
        raise Broken(f"{what}: not a dictionary")
    return values


def spelled(value):
    """A form in which true differs from 1, and the order of keys does not matter."""
    if isinstance(value, dict):
        return ("dict", sorted((key, spelled(item)) for key, item in value.items()))
    if isinstance(value, list):
        return ("list", [spelled(item) for item in value])
    return (type(value).__name__, value)


# The executable


class Executable:
    """Where the load commands say that the segments and the signature are."""

    def __init__(self, data):
        if data[:4] != b"\xcf\xfa\xed\xfe" or len(data) < 32:
            raise Broken("not a thin 64-bit little-endian Mach-O file")
        self.segments = {}
        self.signatures = []
        commands = part(data, 32, number(data, 20, 4, "little", "the header"), "the list of load commands")
        position = 0
        for _ in range(number(data, 16, 4, "little", "the header")):
            kind = number(commands, position, 4, "little", "a load command")
            size = number(commands, position + 4, 4, "little", "a load command")
            self.note(kind, part(commands, position, max(size, 8), "a load command"))
            position += max(size, 8)
        if position != len(commands):
            raise Broken("the load commands do not fill their place")

    def note(self, kind, command):
        if kind == 0x1D:
            offset = number(command, 8, 4, "little", "LC_CODE_SIGNATURE")
            self.signatures.append((offset, number(command, 12, 4, "little", "LC_CODE_SIGNATURE")))
        elif kind == 0x19:
            name = part(command, 8, 16, "a segment command").rstrip(b"\0").decode("latin-1")
            names = ("vmaddr", "vmsize", "fileoff", "filesize")
            values = [number(command, 24 + 8 * index, 8, "little", "a segment command") for index in range(4)]
            self.segments[name] = dict(zip(names, values))

    def segment(self, name):
        if name not in self.segments:
            raise Broken(f"no segment {name}")
        return self.segments[name]

    def signature_place(self):
        if not self.signatures:
            raise Broken("not signed: no LC_CODE_SIGNATURE")
        if len(self.signatures) > 1:
            raise Broken("more than one LC_CODE_SIGNATURE")
        return self.signatures[0]


def check_place(data, executable):
    offset, size = executable.signature_place()
    linkedit = executable.segment("__LINKEDIT")
    linkedit_end = linkedit["fileoff"] + linkedit["filesize"]
    if offset % 16:
        yield f"the signature's offset {offset} is not a multiple of 16"
    if offset + size != len(data):
        yield f"the signature ends at {offset + size}, the file at {len(data)}"
    if linkedit_end != offset + size:
        yield f"__LINKEDIT ends at {linkedit_end}, the signature at {offset + size}"
    if offset < linkedit["fileoff"]:
        yield f"the signature begins at {offset}, __LINKEDIT at {linkedit['fileoff']}"
    if linkedit["vmsize"] < linkedit["filesize"] or linkedit["vmsize"] % 0x4000:
        yield f"__LINKEDIT's size in memory 0x{linkedit['vmsize']:x} does not fit its size in the file"


# The signature


def read_index(signature):
    """Gives the blobs by slot, and what is wrong with how they lie."""
    findings, blobs = [], {}
    magic, length, count = struct.unpack(">LLL", part(signature, 0, 12, "the superblob's header"))
    if magic != 0xFADE0CC0:
        raise Broken(f"the superblob's magic is 0x{magic:08x}")
    content = part(signature, 0, length, "the superblob")
    if any(signature[length:]):
        findings.append("what follows the superblob is not zero")
    end = 12 + 8 * count
    entries = struct.iter_unpack(">LL", part(content, 12, 8 * count, "the superblob's index"))
    for slot, offset in sorted(entries, key=lambda entry: entry[1]):
        what, expected = SLOTS.get(slot, (f"slot 0x{slot:x}", None))
        if slot in blobs or expected is None:
            findings.append(f"{what} does not belong there" if expected is None else f"{what} is there twice")
        size = number(content, offset + 4, 4, "big", what)
        if offset != end:
            findings.append(f"{what} begins at {offset}, not {end}")
        end = offset + size
        blobs[slot] = part(content, offset, size, what)
        if len(blobs[slot]) < 8 or expected not in (None, number(blobs[slot], 0, 4, "big", what)):
            raise Broken(f"{what}: the magic or the size is wrong")
    if end != length:
        findings.append(f"the blobs end at {end}, the superblob at {length}")
    for slot in SLOTS.keys() - blobs.keys():
        raise Broken(f"{SLOTS[slot][0]} is missing")
    return blobs, findings


def check_fields(fields, code_length, text, entitlements):
    bits = {bit for bit, name in EXEC_SEGMENT_BITS if entitlements.get(name) is True}
    expected = {
        **{"version": 0x20400, "flags": 0x2, "hashSize": DIGEST_LENGTH, "hashType": 2, "pageSize": 12},
        **{"platform": 0, "spare2": 0, "scatterOffset": 0, "teamOffset": 0, "spare3": 0, "codeLimit64": 0},
        **{"nSpecialSlots": 7, "nCodeSlots": -(-code_length // PAGE), "codeLimit": code_length},
        **{"execSegBase": text["fileoff"], "execSegLimit": text["filesize"], "execSegFlags": sum(1 << bit for bit in {0} | bits)},
    }
    for name, value in expected.items():
        if fields[name] != value:
            yield f"{name} is 0x{fields[name]:x}, not 0x{value:x}"


def check_identifier(directory, offset, identifier):
    name, zero, _ = directory[offset:].partition(b"\0")
    if not zero or name != identifier.encode("utf-8"):
        yield f"the identifier is {name[:80].decode('utf-8', 'replace')!r}, not {identifier!r}"


def check_pages(code, directory, hash_offset):
    wrong = []
    for page, begin in enumerate(range(0, len(code), PAGE)):
        digest = hashlib.sha256(code[begin : begin + PAGE]).digest()
        at = hash_offset + page * DIGEST_LENGTH
        if directory[at : at + DIGEST_LENGTH] != digest:
            wrong.append(page)
    for page in wrong[:MOST_PAGES_NAMED]:
        yield f"page {page}, at 0x{page * PAGE:x}, does not have the hash that is signed"
    if len(wrong) > MOST_PAGES_NAMED:
        yield f"and {len(wrong) - MOST_PAGES_NAMED} more pages do not"


def check_special_slots(blobs, directory, hash_offset):
    for slot in range(1, 8):
        at = hash_offset - slot * DIGEST_LENGTH
        signed = directory[at : at + DIGEST_LENGTH] if at >= 0 else b""
        expected = hashlib.sha256(blobs[slot]).digest() if slot in blobs else bytes(DIGEST_LENGTH)
        if signed != expected:
            what = f"the hash of {SLOTS[slot][0]}" if slot in SLOTS else "zeros"
            yield f"special slot {slot} does not have {what}"


def check_directory(blobs, code, text, identifier, entitlements):
    directory = blobs[0]
    part(directory, 0, DIRECTORY_LAYOUT.size, "the code directory's header")
    fields = dict(zip(DIRECTORY_FIELDS, DIRECTORY_LAYOUT.unpack_from(directory)))
    yield from check_fields(fields, len(code), text, entitlements)
    yield from check_identifier(directory, fields["identOffset"], identifier)
    yield from check_special_slots(blobs, directory, fields["hashOffset"])
    yield from check_pages(code, directory, fields["hashOffset"])


def check_entitlements(blobs, expected):
    found = {}
    readers = {5: lambda data: read_plist(data, "as signed", plistlib.FMT_XML), 7: read_der}
    for slot, read in readers.items():
        try:
            found[slot] = spelled(read(blobs[slot][8:]))
        except Broken as reason:
            yield f"{SLOTS[slot][0]}: {reason}"
            continue
        if found[slot] != spelled(expected):
            yield f"{SLOTS[slot][0]} differ from those of the file"
    if len(found) == 2 and found[5] != found[7]:
        yield "the XML and the DER entitlements differ from each other"


def examine(data, identifier, entitlements):
    """Gives what is wrong with the signature, one line each; nothing when all is well."""
    findings = []
    try:
        executable = Executable(data)
        findings += check_place(data, executable)
        offset, size = executable.signature_place()
        blobs, misplaced = read_index(part(data, offset, size, "the signature"))
        findings += misplaced
        if blobs[2][8:] != bytes(4):
            findings.append("the requirements are not an empty set")
        if blobs[0x10000][8:]:
            findings.append("the CMS wrapper is not empty")
        findings += check_entitlements(blobs, entitlements)
        text = executable.segment("__TEXT")
        findings += check_directory(blobs, data[:offset], text, identifier, entitlements)
    except Broken as reason:
        findings.append(str(reason))
    except RecursionError:
        findings.append("the entitlements are nested too deeply")
    return findings


def read_file(path):
    with open(path, "rb") as file:
        return file.read()


def main():
    parser = argparse.ArgumentParser(description="Check the ad-hoc signature of a Mach-O executable.")
    parser.add_argument("--identifier", required=True, help="the one that it should have")
    parser.add_argument("--entitlements", required=True, metavar="FILE", help="those that it should have")
    parser.add_argument("binary", metavar="BINARY")
    arguments = parser.parse_args()
    try:
        entitlements = read_plist(read_file(arguments.entitlements), arguments.entitlements)
        findings = examine(read_file(arguments.binary), arguments.identifier, entitlements)
    except (Broken, OSError) as error:
        print(f"check_signature.py: {error}")
        return 1
    for finding in findings:
        print(f"{arguments.binary}: {finding}")
    if not findings:
        print(f"{arguments.binary}: the signature as {arguments.identifier} is in order")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
