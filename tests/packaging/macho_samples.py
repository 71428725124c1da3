"""Small Mach-O files as a linker leaves them, and changes to signed ones, for the tests of the signature."""

import hashlib
import struct

TEXT_SIZE = 0x4000
LINKEDIT_CONTENT = b"symbols and strings, of an odd length..."[:37]
ROOMY = 0x800


def segment(name, vm, file, sections=()):
    fields = struct.pack("<16s4Q4I", name, *vm, *file, 5, 5, len(sections), 0)
    body = fields + b"".join(sections)
    return struct.pack("<II", 0x19, 8 + len(body)) + body


def section(name, offset, size, flags):
    address = 0x100000000 + offset
    return struct.pack("<16s16s2Q8I", name, b"__TEXT", address, size, offset, 2, 0, 0, flags, 0, 0, 0)


def make_macho(first_section=ROOMY, old_signature=None, content=LINKEDIT_CONTENT, more=(), flags=0x200085):
    """An executable as a linker leaves it, with more load commands; old_signature are the bytes of one
    that is there already."""
    tail = content + (old_signature or b"")
    sections = (
        section(b"__text", first_section, TEXT_SIZE - first_section, 0x80000400),
        section(b"__bss", 0, 64, 0x1),
    )
    commands = [
        segment(b"__PAGEZERO", (0, 0x100000000), (0, 0)),
        segment(b"__TEXT", (0x100000000, TEXT_SIZE), (0, TEXT_SIZE), sections),
        segment(b"__LINKEDIT", (0x100004000, 0x4000), (TEXT_SIZE, len(tail))),
    ]
    commands += more
    if old_signature is not None:
        commands.append(struct.pack("<4I", 0x1D, 16, TEXT_SIZE + len(content), len(old_signature)))
    joined = b"".join(commands)
    header = struct.pack("<8I", 0xFEEDFACF, 0x0100000C, 0, 2, len(commands), len(joined), flags, 0)
    start = (header + joined).ljust(first_section, b"\0")
    return start + bytes(index * 7 % 251 for index in range(TEXT_SIZE - len(start))) + tail


def with_text(command, fields, text):
    """A load command that ends with a string."""
    body = struct.pack(f"<{1 + len(fields)}I", 12 + 4 * len(fields), *fields) + text.encode() + b"\0"
    body = body.ljust(-(-len(body) // 8) * 8, b"\0")
    return struct.pack("<II", command, 8 + len(body)) + body


def uleb(number):
    out = b""
    while number > 0x7F:
        out, number = out + bytes([number & 0x7F | 0x80]), number >> 7
    return out + bytes([number])


def bind_stream(names):
    """What dyld binds, each name at the first section's begin; 0 stands for no library."""
    stream = b""
    for library, name in names:
        stream += bytes([0x10 | library] if library else []) + b"\x40" + name.encode() + b"\0"
        stream += bytes([0x51, 0x71]) + uleb(ROOMY) + b"\x90"
    return stream + b"\0"


def export_trie(names):
    leaf = b"\x02\0\0\0"  # two bytes: no flags, at the header; no children
    begin = 2 + sum(len(name) + 2 for name in names)
    edges = b"".join(name.encode() + b"\0" + uleb(begin + 4 * index) for index, name in enumerate(names))
    return bytes([0, len(names)]) + edges + leaf * len(names)


def make_program(
    platform=2,
    minimum=0x0F0000,
    run_paths=(),
    libraries=(),
    imports=(),
    lazy_imports=(),
    weak_imports=(),
    exports=("__mh_execute_header",),
    flags=0x200085,
    padding=0,
):
    """A program for the device; an import is a library's number, counted from 1, and a name."""
    tables = (
        bind_stream(imports),
        bind_stream((0, name) for name in weak_imports),
        bind_stream(lazy_imports),
        export_trie(exports),
    )
    places, content = [0, 0], b""  # no rebases
    for table in tables:
        places += [TEXT_SIZE + len(content), len(table)]
        content += table
    begin = TEXT_SIZE + len(content)
    more = [
        struct.pack("<12I", 0x80000022, 48, *places),
        struct.pack("<6I", 0x02, 24, begin, 0, begin, 0),
        struct.pack("<20I", 0x0B, 80, *([0] * 18)),
        struct.pack("<6I", 0x32, 24, platform, minimum, 0x0F0000, 0),
        *(with_text(0x8000001C, (), path) for path in run_paths),
        *(with_text(0x0C, (2, 0x10000, 0x10000), library) for library in libraries),
    ]
    return make_macho(content=content + bytes(padding), more=more, flags=flags)


def commands_end(data):
    return 32 + struct.unpack_from("<I", data, 20)[0]


def signature_place(data):
    """Of a file that make_macho made and that is signed: LC_CODE_SIGNATURE is the last command."""
    return struct.unpack_from("<II", data, commands_end(data) - 8)


def blob_offset(data, slot):
    place, _ = signature_place(data)
    for index in range(struct.unpack_from(">I", data, place + 8)[0]):
        found, offset = struct.unpack_from(">II", data, place + 12 + 8 * index)
        if found == slot:
            return place + offset
    raise AssertionError(f"no slot {slot}")


def blob_of(data, slot):
    offset = blob_offset(data, slot)
    return data[offset : offset + struct.unpack_from(">I", data, offset + 4)[0]]


def flipped(data, offset):
    return data[:offset] + bytes([data[offset] ^ 0x01]) + data[offset + 1 :]


def with_hashed_slot(data, slot, content):
    """Puts other bytes of the same length into a slot, and its hash where it belongs: a consistent lie."""
    offset, directory = blob_offset(data, slot), blob_offset(data, 0)
    assert len(content) == len(blob_of(data, slot))
    changed = bytearray(data)
    changed[offset : offset + len(content)] = content
    at = directory + struct.unpack_from(">I", data, directory + 16)[0] - 32 * slot
    changed[at : at + 32] = hashlib.sha256(content).digest()
    return bytes(changed)


def with_hashed_pages(data):
    """Makes the page hashes of a changed file right again, so that only the change itself is wrong."""
    directory, (place, _) = blob_offset(data, 0), signature_place(data)
    changed = bytearray(data)
    first = directory + struct.unpack_from(">I", data, directory + 16)[0]
    for page, begin in enumerate(range(0, place, 0x1000)):
        digest = hashlib.sha256(data[begin : min(begin + 0x1000, place)]).digest()
        changed[first + 32 * page : first + 32 * (page + 1)] = digest
    return bytes(changed)


def superblob_of(pairs, gap=0):
    """A superblob whose slots may be there twice, or lie apart by a gap."""
    index, body, begin = b"", b"", 12 + 8 * len(pairs)
    for slot, blob in pairs:
        index += struct.pack(">II", slot, begin + len(body))
        body += blob + bytes(gap)
    return struct.pack(">3I", 0xFADE0CC0, begin + len(body), len(pairs)) + index + body
