#!/usr/bin/env python3
"""Signs programs with sign.py, and checks the signatures with code that is not the signer's."""

import contextlib
import io
import os
import pathlib
import plistlib
import struct
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from programs import (  # noqa: E402
    IDENTIFIER, PACKAGING, blob_offsets, commands_end, flipped, program, replaced, signature_place, signed,
    with_hashes,
)  # fmt: skip
import check_signature  # noqa: E402
import sign  # noqa: E402

ENTITLEMENTS = ["com.example.größe", "platform-application", "a" * 200]
UNSIGNED = program()


def examine(data, identifier=IDENTIFIER, entitlements=ENTITLEMENTS):
    return check_signature.examine(data, identifier, entitlements)


class Signing(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.binary, self.entitlements = self.folder / "program", self.folder / "entitlements.plist"
        self.entitlements.write_bytes(plistlib.dumps(dict.fromkeys(ENTITLEMENTS, True)))

    def said_by_tool(self, identifier=IDENTIFIER):
        """The exit status, the output and the errors."""
        options = ["--identifier", identifier, "--entitlements", str(self.entitlements)]
        out, err = io.StringIO(), io.StringIO()
        with mock.patch("sys.argv", ["sign.py", *options, str(self.binary)]):
            with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
                status = sign.main()
        return status, out.getvalue(), err.getvalue()

    def assert_refuses(self, data, message, identifier=IDENTIFIER):
        self.binary.write_bytes(data)
        before = os.stat(self.binary)
        status, out, err = self.said_by_tool(identifier)
        self.assertEqual((status, out), (1, ""))
        self.assertRegex(err, rf"\Asign\.py: [^\n]*{message}[^\n]*\n\Z")
        self.assertEqual((self.binary.read_bytes(), os.stat(self.binary).st_ino), (data, before.st_ino))
        self.assertEqual(sorted(os.listdir(self.folder)), ["entitlements.plist", "program"])

    def test_gives_the_same_bytes_twice_and_over_an_old_signature(self):
        first = signed(UNSIGNED, ENTITLEMENTS)
        self.assertEqual(examine(first), [])
        for data, entitlements in ((UNSIGNED, ENTITLEMENTS[::-1]), (signed(UNSIGNED, []), ENTITLEMENTS)):
            self.assertEqual(signed(data, entitlements), first)

    def test_keeps_the_mode_and_follows_a_link(self):
        real = self.folder / "real"
        real.write_bytes(UNSIGNED)
        real.chmod(0o751)
        self.binary.symlink_to(real)
        options = ["--identifier", IDENTIFIER, "--entitlements", self.entitlements, self.binary]
        subprocess.run([sys.executable, PACKAGING / "sign.py", *options], check=True, capture_output=True)
        self.assertTrue(self.binary.is_symlink())
        self.assertEqual(os.stat(real).st_mode & 0o7777, 0o751)
        self.assertEqual(examine(real.read_bytes()), [])

    def test_a_failed_write_leaves_the_old_file_alone(self):
        with mock.patch.object(sign.os, "replace", side_effect=OSError(28, "No space left on device")):
            self.assert_refuses(UNSIGNED, "cannot be signed: .*No space left on device")

    def test_refuses_what_is_not_such_a_file(self):
        fat = struct.pack(">7I", 0xCAFEBABE, 1, 0x0100000C, 0, 4096, len(UNSIGNED), 12).ljust(4096, b"\0")
        big_endian = struct.pack(">8I", 0xFEEDFACF, 0x0100000C, 0, 2, 0, 0, 0, 0)
        for data in (
            *(b"", b"\x7fELF\x02\x01\x01" + bytes(200), fat + UNSIGNED, big_endian, UNSIGNED[:15]),
            *(struct.pack("<I", 0xFEEDFACE) + UNSIGNED[4:], replaced(UNSIGNED, 12, b"\6")),
        ):
            self.assert_refuses(data, "not a thin 64-bit little-endian Mach-O executable")
        end = commands_end(UNSIGNED)
        for length in (31, 32, 100, end - 1, end, 0x4000, len(UNSIGNED) - 1):
            with self.subTest(length):
                self.assert_refuses(UNSIGNED[:length], "cannot be signed")
        for identifier in ("", "a b", "é", "a/b", "a\n"):
            self.assert_refuses(UNSIGNED, "identifier ", identifier)
        lists = (plistlib.dumps(value) for value in (["a"], {"a": 1}, {"a": False}, {"a": "b"}))
        for content in (b"", b"<plist><dict><key>a</key>", *lists):
            self.entitlements.write_bytes(content)
            self.assert_refuses(UNSIGNED, "not a property list that is a dictionary of keys that are true")

    def test_refuses_files_that_cannot_be_read(self):
        for make in (lambda: None, lambda: os.mkfifo(self.binary)):
            make()
            expected = f"sign.py: {self.binary}: not a regular file\n"
            self.assertEqual(self.said_by_tool(), (1, "", expected))


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
        named |= {first - slot * 32: f"special slot {slot} does not have zeros" for slot in (1, 3, 4, 6)}
        fields = {8: "version", 12: "flags", 32: "codeLimit", 37: "hashType", 39: "pageSize"}
        fields |= {64: "execSegBase", 72: "execSegLimit", 80: "execSegFlags"}
        named |= {directory + offset: name for offset, name in fields.items()}
        for offset, name in named.items():
            findings = examine(flipped(self.data, offset))
            self.assertEqual((len(findings), findings[0].startswith(name)), (1, True), findings)
        for slot, name in {2: "requirements", 5: "XML entitlements", 7: "DER entitlements"}.items():
            findings = examine(flipped(self.data, self.blobs[slot] + 8))
            self.assertIn(f"special slot {slot} does not have the hash of the {name}", findings)

    def test_another_identifier(self):
        expected = [f"the identifier is {IDENTIFIER!r}, not 'com.zel.other'"]
        self.assertEqual(examine(self.data, "com.zel.other")[-1:], expected)
        findings = examine(flipped(self.data, self.data.index(IDENTIFIER.encode() + b"\0")))
        self.assertEqual(findings, [f"the identifier is 'bom.zel.vorlatch', not {IDENTIFIER!r}"])

    def test_other_entitlements(self):
        der, xml = (f"the {form} entitlements are not those of the package" for form in ("DER", "XML"))
        for others in (ENTITLEMENTS[1:], [*ENTITLEMENTS, "more"]):
            self.assertEqual(examine(self.data, entitlements=others), [der, xml])
        # Each alone, with the right hash.
        for slot, old, new, finding in (
            *((7, b"\x01\x01\xff", b"\x01\x01\x00", der), (7, b"\x01\x01\xff", b"\x01\x01\x01", der)),
            *((7, b"\x02\x01\x01", b"\x02\x01\x02", der), (7, b"\x70\x82", b"\x60\x82", der)),
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
            ({0x10000: struct.pack(">2I", 0xFADE0B02, 8)}, "the CMS wrapper is not empty"),
            ({2: struct.pack(">3I", 0xFADE0C01, 12, 1)}, "the requirements are not an empty set"),
        ):
            changed = {slot: blob for slot, blob in {**blobs, **change}.items() if blob}
            whole = check_signature.superblob(changed).ljust(size, b"\0")
            self.assertIn(finding, examine(replaced(self.data, place, whole)))

    def test_one_signature_in_a_program(self):
        end, count = commands_end(self.data), struct.unpack_from("<I", self.data, 16)[0]
        twice = replaced(self.data, end, self.data[end - 16 : end])
        twice = replaced(twice, 16, struct.pack("<2I", count + 1, end - 32 + 16))
        self.assertEqual(examine(twice), ["2 LC_CODE_SIGNATURE, not 1"])
        self.assertEqual(examine(UNSIGNED), ["0 LC_CODE_SIGNATURE, not 1"])
        for data in (b"", b"\x7fELF" + bytes(60)):
            self.assertEqual(examine(data), ["not a thin 64-bit little-endian Mach-O file"])


if __name__ == "__main__":
    unittest.main()
