#!/usr/bin/env python3
"""Signs programs with sign.py, and checks the signatures with code that is not the signer's."""

import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import (  # noqa: E402
    PACKAGING, blob_offsets, commands_end, flipped, program, replaced, signature_place, with_hashes,
)  # fmt: skip
import check_package  # noqa: E402
import check_signature  # noqa: E402
from sign import IDENTIFIER, signed  # noqa: E402

ENTITLEMENTS = ["com.example.größe", "platform-application", "a" * 200]
UNSIGNED = program()


def examine(data, identifier=IDENTIFIER, entitlements=ENTITLEMENTS):
    return check_signature.examine(data, identifier, entitlements)


class Signing(unittest.TestCase):
    def test_gives_the_same_bytes_for_keys_in_any_order(self):
        first = signed(UNSIGNED, ENTITLEMENTS)
        self.assertEqual(examine(first), [])
        self.assertEqual(signed(UNSIGNED, ENTITLEMENTS[::-1]), first)

    def test_signs_in_place_with_the_entitlements_of_the_package(self):
        with tempfile.TemporaryDirectory() as folder:
            binary = pathlib.Path(folder, "program")
            binary.write_bytes(UNSIGNED)
            binary.chmod(0o751)
            subprocess.run([sys.executable, PACKAGING / "sign.py", binary], check=True)
            self.assertEqual(binary.stat().st_mode & 0o7777, 0o751)
            self.assertEqual(examine(binary.read_bytes(), entitlements=check_package.ENTITLEMENTS), [])

    def test_refuses_what_it_cannot_sign(self):
        for data, message in (
            (signed(UNSIGNED, []), "the program is signed already"),
            (replaced(UNSIGNED, commands_end(UNSIGNED), b"x"), "no room for LC_CODE_SIGNATURE"),
        ):
            with self.assertRaisesRegex(SystemExit, message):
                signed(data, ENTITLEMENTS)


class Checking(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.data = signed(UNSIGNED, ENTITLEMENTS)
        cls.blobs = blob_offsets(cls.data)

    def field(self, offset, layout, *values):
        """Findings for a program in which something else stands, all hashes being right."""
        return examine(with_hashes(replaced(self.data, offset, struct.pack(layout, *values))))

    def test_each_byte_of_the_signature_and_the_load_commands_counts(self):
        self.assertEqual(examine(with_hashes(self.data)), [])
        place, size = signature_place(self.data)
        counted = [*range(commands_end(self.data)), *range(place, place + size)]
        self.assertEqual([at for at in counted if not examine(flipped(self.data, at))], [])

    def test_no_length_but_the_whole_passes(self):
        lengths = [*range(0, len(self.data), 61), len(self.data) - 1]
        self.assertEqual([length for length in lengths if not examine(self.data[:length])], [])

    def test_names_what_is_wrong(self):
        directory = self.blobs[0]
        first = directory + struct.unpack_from(">I", self.data, directory + 16)[0]
        named = {page * 0x1000 + 0x10: f"page {page}, at 0x{page * 0x1000:x}, does" for page in (1, 3, 16)}
        named |= {first - slot * 32: f"special slot {slot} does" for slot in (1, 3, 4, 6)}
        fields = {8: "version", 12: "flags", 32: "codeLimit", 37: "hashType", 39: "pageSize"}
        fields |= {64: "execSegBase", 72: "execSegLimit", 80: "execSegFlags"}
        named |= {directory + offset: name for offset, name in fields.items()}
        for offset, name in named.items():
            findings = examine(flipped(self.data, offset))
            self.assertEqual((len(findings), findings[0].startswith(name)), (1, True), findings)
        for slot in (2, 5, 7):
            findings = examine(flipped(self.data, self.blobs[slot] + 8))
            self.assertIn(f"special slot {slot} does not have the hash that is signed", findings)

    def test_another_identifier(self):
        expected = [f"the identifier is {IDENTIFIER!r}, not 'com.zel.other'"]
        self.assertEqual(examine(self.data, "com.zel.other")[-1:], expected)
        findings = examine(flipped(self.data, self.data.index(IDENTIFIER.encode() + b"\0")))
        self.assertEqual(findings, [f"the identifier is 'bom.zel.vorlatch', not {IDENTIFIER!r}"])

    def test_other_entitlements(self):
        der, xml = (f"the {form} entitlements are not those of the package" for form in ("DER", "XML"))
        for others in (ENTITLEMENTS[1:], [*ENTITLEMENTS, "more"]):
            self.assertEqual(examine(self.data, entitlements=others), [xml, der])
        # Each alone, with the right hash.
        for slot, old, new, finding in (
            *((7, b"\x01\x01\xff", b"\x01\x01\x00", der), (7, b"\x01\x01\xff", b"\x01\x01\x01", der)),
            *((7, b"\x02\x01\x01", b"\x02\x01\x02", der), (7, b"\x70\x82", b"\x60\x82", der)),
            (5, b"\xfa\xde\x71\x71", b"\xfa\xde\x71\x72", xml),
            *((5, b"platform-", b"flatform-", xml), (5, b"<true", b"<trux", xml), (5, b"<true", b"<data", xml)),
        ):
            with self.subTest(new):
                at = self.data.index(old, self.blobs[slot])
                self.assertEqual(examine(with_hashes(replaced(self.data, at, new))), [finding])

    def test_exec_segment_flags_follow_from_the_entitlements(self):
        for name, flags in (
            *(("get-task-allow", 0x11), ("run-unsigned-code", 0x11), ("com.apple.private.cs.debugger", 0x21)),
            *(("dynamic-codesigning", 0x41), ("com.apple.private.skip-library-validation", 0x81)),
            *(("com.apple.private.amfi.can-load-cdhash", 0x101), ("platform-application", 0x1)),
            ("com.apple.private.amfi.can-execute-cdhash", 0x201),
        ):
            data = signed(UNSIGNED, [name])
            self.assertEqual(struct.unpack_from(">Q", data, blob_offsets(data)[0] + 80)[0], flags, name)
            self.assertEqual(examine(data, entitlements=[name]), [], name)

    def test_the_place_in_the_file(self):
        end, linkedit = len(self.data), self.data.index(b"__LINKEDIT")
        place, size = signature_place(self.data)
        self.assertIn(f"the signature ends at {end}, the file at {end + 1}", examine(self.data + b"\0"))
        moved = replaced(self.data, commands_end(self.data) - 8, struct.pack("<2I", place - 8, size + 8))
        self.assertIn(f"the signature's offset {place - 8} is not a multiple of 16", examine(moved))
        file_size = struct.unpack_from("<Q", self.data, linkedit + 40)[0]
        at_end = ["the signature is not at the end of __LINKEDIT"]
        self.assertEqual(self.field(linkedit + 40, "<Q", file_size - 16), at_end)
        self.assertEqual(self.field(linkedit + 32, "<2Q", end - 32, 32), at_end)
        for memory in (0x1000, 0x5000, 0):
            expected = [f"__LINKEDIT's size in memory 0x{memory:x} does not fit its size in the file"]
            self.assertEqual(self.field(linkedit + 24, "<Q", memory), expected)

    def test_the_blobs(self):
        place, size = signature_place(self.data)
        blobs = check_signature.read_blobs(self.data[place:])
        ends = len(check_signature.superblob(blobs))
        follow = "the blobs do not follow one right after the other up to zeros"
        self.assertEqual(examine(replaced(self.data, place + ends, b"x")), [follow])
        # An index that names a slot twice.
        self.assertIn(follow, examine(replaced(self.data, place + 12 + 8 * 4, struct.pack(">I", 7))))
        # A superblob that is sound in itself, in the place of the whole.
        for change, finding in (
            ({7: None, 9: blobs[7]}, "the blobs are of the slots [0, 2, 5, 9, 65536], not [0, 2, 5, 7, 65536]"),
            ({0x10000: None}, "the blobs are of the slots [0, 2, 5, 7], not [0, 2, 5, 7, 65536]"),
            ({0x10000: struct.pack(">2I", 0xFADE0B02, 8)}, "the CMS data are not those of the package"),
            ({2: struct.pack(">3I", 0xFADE0C01, 12, 1)}, "the requirements are not those of the package"),
        ):
            changed = {slot: blob for slot, blob in {**blobs, **change}.items() if blob}
            whole = check_signature.superblob(changed).ljust(size, b"\0")
            self.assertIn(finding, examine(replaced(self.data, place, whole)))

    def test_one_signature_in_a_program(self):
        end, count = commands_end(self.data), struct.unpack_from("<I", self.data, 16)[0]
        twice = replaced(self.data, end, self.data[end - 16 : end])
        twice = replaced(twice, 16, struct.pack("<2I", count + 1, end - 32 + 16))
        self.assertEqual(examine(twice), ["2 LC_CODE_SIGNATURE, not 1"])
        self.assertEqual(examine(b""), ["not a thin 64-bit little-endian Mach-O file"])


if __name__ == "__main__":
    unittest.main()
