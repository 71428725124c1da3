#!/usr/bin/env python3
"""Signs a Mach-O executable ad hoc, with entitlements, where Apple's codesign is not at hand.

The layout is that of xnu's cs_blobs.h. The same input gives the same bytes, signed before or not.
"""

import argparse
import collections
import hashlib
import os
import re
import stat
import struct
import sys
import tempfile

from entitlements import Failure, der_entitlements, exec_segment_flags, read_entitlements, xml_entitlements

HEADER_SIZE = 32
LC_SEGMENT_64 = 0x19
LC_CODE_SIGNATURE = 0x1D
LC_CODE_SIGNATURE_SIZE = 16
MH_EXECUTE = 2
SECTION_SIZE = 80
SEGMENT_COMMAND_SIZE = 72
ZERO_FILL_TYPES = (0x01, 0x0C, 0x12)  # S_ZEROFILL, S_GB_ZEROFILL, S_THREAD_LOCAL_ZEROFILL

SIGNATURE_ALIGNMENT = 16
VM_PAGE_SIZE = 0x4000  # of arm64; a multiple of every other platform's
CODE_PAGE_BITS = 12
CODE_PAGE_SIZE = 1 << CODE_PAGE_BITS

MAGIC_SUPERBLOB = 0xFADE0CC0
MAGIC_CODE_DIRECTORY = 0xFADE0C02
MAGIC_REQUIREMENTS = 0xFADE0C01
MAGIC_ENTITLEMENTS = 0xFADE7171
MAGIC_DER_ENTITLEMENTS = 0xFADE7172
MAGIC_BLOB_WRAPPER = 0xFADE0B01

SLOT_CODE_DIRECTORY = 0
SLOT_REQUIREMENTS = 2
SLOT_ENTITLEMENTS = 5
SLOT_DER_ENTITLEMENTS = 7
SLOT_CMS = 0x10000
SPECIAL_SLOTS = 7

CODE_DIRECTORY_VERSION = 0x20400  # the first with the fields of the executable segment
CODE_DIRECTORY_HEADER = ">8I I4B I I I I Q QQQ"
FLAG_AD_HOC = 0x2
HASH_SHA256 = 2
HASH_SIZE = 32
Segment = collections.namedtuple("Segment", "offset name vmaddr vmsize fileoff filesize section_count")
Image = collections.namedtuple("Image", "text linkedit segments signature_command")


def aligned(value, alignment):
    return -(-value // alignment) * alignment


# The executable


def check_kind(data):
    magic = bytes(data[:4])
    if magic in (b"\xca\xfe\xba\xbe", b"\xca\xfe\xba\xbf", b"\xbe\xba\xfe\xca", b"\xbf\xba\xfe\xca"):
        raise Failure("a universal file; sign the thin file of each architecture")
    if magic == b"\xce\xfa\xed\xfe":
        raise Failure("a 32-bit Mach-O file, not a 64-bit one")
    if magic in (b"\xfe\xed\xfa\xce", b"\xfe\xed\xfa\xcf"):
        raise Failure("a big-endian Mach-O file, not a little-endian one")
    if magic != b"\xcf\xfa\xed\xfe":
        raise Failure("not a Mach-O file")
    if len(data) < HEADER_SIZE:
        raise Failure("truncated: the Mach-O header is incomplete")
    if struct.unpack_from("<I", data, 12)[0] != MH_EXECUTE:
        raise Failure("a Mach-O file, but not an executable")


def load_commands(data):
    """Yields the offset, type and size of each load command."""
    count, size = struct.unpack_from("<II", data, 16)
    end = HEADER_SIZE + size
    if end > len(data):
        raise Failure("truncated: the load commands are incomplete")
    offset = HEADER_SIZE
    for _ in range(count):
        command, command_size = struct.unpack_from("<II", data, offset) if offset + 8 <= end else (0, 0)
        if command_size < 8 or command_size % 8 != 0 or offset + command_size > end:
            raise Failure(f"malformed: bad load command at offset {offset}")
        yield offset, command, command_size
        offset += command_size
    if offset != end:
        raise Failure("malformed: the load commands do not have the size that the header says")


def read_segment(data, offset, size):
    if size < SEGMENT_COMMAND_SIZE:
        raise Failure(f"malformed: bad segment command at offset {offset}")
    name, vmaddr, vmsize, fileoff, filesize, sections = struct.unpack_from("<16s4Q8xI", data, offset + 8)
    if size < SEGMENT_COMMAND_SIZE + sections * SECTION_SIZE:
        raise Failure(f"malformed: bad segment command at offset {offset}")
    name = name.rstrip(b"\0").decode("latin-1")
    if fileoff + filesize > len(data):
        raise Failure(f"truncated: segment {name} is incomplete")
    return Segment(offset, name, vmaddr, vmsize, fileoff, filesize, sections)


def only_segment(segments, name):
    found = [segment for segment in segments if segment.name == name]
    if len(found) != 1:
        raise Failure(f"malformed: {len(found)} segments {name}, not 1")
    return found[0]


def read_image(data):
    check_kind(data)
    segments, signatures = [], []
    for offset, command, size in load_commands(data):
        if command == LC_SEGMENT_64:
            segments.append(read_segment(data, offset, size))
        elif command == LC_CODE_SIGNATURE:
            if size != LC_CODE_SIGNATURE_SIZE:
                raise Failure("malformed: LC_CODE_SIGNATURE has a wrong size")
            signatures.append(offset)
    if len(signatures) > 1:
        raise Failure("malformed: more than one LC_CODE_SIGNATURE")
    text, linkedit = only_segment(segments, "__TEXT"), only_segment(segments, "__LINKEDIT")
    if text.fileoff != 0 or text.filesize == 0:
        raise Failure("malformed: __TEXT does not begin with the file")
    if linkedit.fileoff + linkedit.filesize != len(data):
        raise Failure("malformed: __LINKEDIT does not end with the file")
    return Image(text, linkedit, segments, signatures[0] if signatures else None)


def content_offsets(data, segments):
    """Yields where in the file something other than the load commands begins."""
    for segment in segments:
        if segment.fileoff > 0 and segment.filesize > 0:
            yield segment.fileoff
        for index in range(segment.section_count):
            section = segment.offset + SEGMENT_COMMAND_SIZE + index * SECTION_SIZE
            size, offset, flags = struct.unpack_from("<QI12xI", data, section + 40)
            if size > 0 and flags & 0xFF not in ZERO_FILL_TYPES:
                yield offset


def add_signature_command(data, image):
    """Appends an LC_CODE_SIGNATURE that is still to be filled in; returns its offset."""
    count, size = struct.unpack_from("<II", data, 16)
    begin = HEADER_SIZE + size
    end = begin + LC_CODE_SIGNATURE_SIZE
    if end > min(content_offsets(data, image.segments), default=len(data)) or any(data[begin:end]):
        raise Failure("no room for LC_CODE_SIGNATURE before the first section; link with -headerpad 0x20")
    struct.pack_into("<II", data, 16, count + 1, size + LC_CODE_SIGNATURE_SIZE)
    struct.pack_into("<II", data, begin, LC_CODE_SIGNATURE, LC_CODE_SIGNATURE_SIZE)
    return begin


def remove_signature(data, image):
    """Cuts the old signature off the end of the file."""
    offset, size = struct.unpack_from("<II", data, image.signature_command + 8)
    if offset < image.linkedit.fileoff or offset + size != len(data):
        raise Failure("malformed: the old signature is not at the end of __LINKEDIT")
    del data[offset:]


def point_to_signature(data, image, command, size):
    """Makes the load commands tell of a signature of that size at the end of data."""
    linkedit = image.linkedit
    filesize = len(data) + size - linkedit.fileoff
    vmsize = aligned(filesize, VM_PAGE_SIZE)
    for other in image.segments:
        if linkedit.vmaddr < other.vmaddr < linkedit.vmaddr + vmsize:
            raise Failure(f"no room for the signature in memory: {other.name} follows __LINKEDIT")
    if len(data) + size >= 1 << 32:
        raise Failure("4 GiB or larger")
    struct.pack_into("<II", data, command + 8, len(data), size)
    struct.pack_into("<Q", data, linkedit.offset + 32, vmsize)
    struct.pack_into("<Q", data, linkedit.offset + 48, filesize)


# The signature


def blob(magic, body):
    return struct.pack(">II", magic, 8 + len(body)) + body


def code_directory(code, text, identifier, exec_flags, specials):
    """Hashes the code's pages and the special blobs, whose slots count down from the first page's."""
    name = identifier.encode("ascii") + b"\0"
    name_offset = struct.calcsize(CODE_DIRECTORY_HEADER)
    hash_offset = name_offset + len(name) + SPECIAL_SLOTS * HASH_SIZE
    pages = [code[offset : offset + CODE_PAGE_SIZE] for offset in range(0, len(code), CODE_PAGE_SIZE)]
    hashes = [bytes(HASH_SIZE)] * SPECIAL_SLOTS
    for slot, content in specials.items():
        hashes[SPECIAL_SLOTS - slot] = hashlib.sha256(content).digest()
    hashes += [hashlib.sha256(page).digest() for page in pages]
    header = struct.pack(
        CODE_DIRECTORY_HEADER,
        *(MAGIC_CODE_DIRECTORY, hash_offset + len(pages) * HASH_SIZE, CODE_DIRECTORY_VERSION, FLAG_AD_HOC),
        *(hash_offset, name_offset, SPECIAL_SLOTS, len(pages)),
        *(len(code), HASH_SIZE, HASH_SHA256, 0, CODE_PAGE_BITS),
        *(0, 0, 0, 0, 0),  # spare, scatter, team, spare, 64-bit limit
        *(text.fileoff, text.filesize, exec_flags),
    )
    return header + name + b"".join(hashes)


def superblob(blobs):
    offset = 12 + 8 * len(blobs)
    index = b""
    for slot, content in blobs.items():
        index += struct.pack(">II", slot, offset)
        offset += len(content)
    return blob(MAGIC_SUPERBLOB, struct.pack(">I", len(blobs)) + index + b"".join(blobs.values()))


def make_signature(code, text, identifier, exec_flags, specials):
    blobs = {SLOT_CODE_DIRECTORY: code_directory(code, text, identifier, exec_flags, specials), **specials}
    blobs[SLOT_CMS] = blob(MAGIC_BLOB_WRAPPER, b"")
    signature = superblob(blobs)
    return signature.ljust(aligned(len(signature), SIGNATURE_ALIGNMENT), b"\0")


def signed(original, identifier, entitlements):
    """The bytes of the executable, with the signature in place of any that it had."""
    der = der_entitlements(entitlements)  # first, as its messages tell more
    specials = {
        SLOT_REQUIREMENTS: blob(MAGIC_REQUIREMENTS, bytes(4)),
        SLOT_ENTITLEMENTS: blob(MAGIC_ENTITLEMENTS, xml_entitlements(entitlements)),
        SLOT_DER_ENTITLEMENTS: blob(MAGIC_DER_ENTITLEMENTS, der),
    }
    data = bytearray(original)
    image = read_image(data)
    command = image.signature_command
    if command is None:
        command = add_signature_command(data, image)
    else:
        remove_signature(data, image)
    data.extend(bytes(aligned(len(data), SIGNATURE_ALIGNMENT) - len(data)))
    # The signature covers the load commands, which tell its size: make it once for that, then for good.
    parts = image.text, identifier, exec_segment_flags(entitlements), specials
    point_to_signature(data, image, command, len(make_signature(data, *parts)))
    return bytes(data) + make_signature(data, *parts)


# Files


def read_regular_file(path):
    try:
        if not stat.S_ISREG(os.stat(path).st_mode):
            raise Failure("not a regular file")
        with open(path, "rb") as file:
            return file.read()
    except OSError as error:
        raise Failure(error.strerror) from None


def replace_file(path, data):
    """Readers see the old content or the new, never a part; a failure leaves the old."""
    path = os.path.realpath(path)
    handle, temporary = tempfile.mkstemp(dir=os.path.dirname(path), prefix=".signing.")
    try:
        with os.fdopen(handle, "wb") as file:
            file.write(data)
            file.flush()
            os.fchmod(file.fileno(), stat.S_IMODE(os.stat(path).st_mode))
            os.fsync(file.fileno())
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise


def sign(path, identifier, entitlements_path):
    if not re.fullmatch(r"[A-Za-z0-9._-]+", identifier):
        raise Failure(f"identifier {identifier!r}: only letters, digits and . - _ may be in it")
    entitlements = read_entitlements(entitlements_path)
    try:
        replace_file(path, signed(read_regular_file(path), identifier, entitlements))
    except OSError as error:
        raise Failure(f"{path}: cannot be replaced: {error.strerror}") from None
    except Failure as failure:
        raise Failure(f"{path}: {failure}") from None


def main():
    parser = argparse.ArgumentParser(description="Sign a thin 64-bit Mach-O executable ad hoc, in place.")
    parser.add_argument("--identifier", required=True, help="such as com.example.tool")
    parser.add_argument("--entitlements", required=True, metavar="FILE", help="a property list")
    parser.add_argument("binary", metavar="BINARY")
    arguments = parser.parse_args()
    try:
        sign(arguments.binary, arguments.identifier, arguments.entitlements)
    except Failure as failure:
        print(f"sign.py: {failure}", file=sys.stderr)
        return 1
    print(f"{arguments.binary}: signed as {arguments.identifier}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
