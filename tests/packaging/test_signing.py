#!/usr/bin/env python3
"""Signs small Mach-O files, and checks the signatures with code that is not the signer's."""

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
PACKAGING = pathlib.Path(__file__).resolve().parents[2] / "packaging"
sys.path.insert(0, str(PACKAGING))
import check_signature  # noqa: E402
import sign  # noqa: E402
from macho_samples import (  # noqa: E402
    LINKEDIT_CONTENT,
    TEXT_SIZE,
    blob_of,
    blob_offset,
    commands_end,
    flipped,
    make_macho,
    signature_place,
    superblob_of,
    with_hashed_pages,
    with_hashed_slot,
)

IDENTIFIER = "com.zel.vorlatch"
ENTITLEMENTS = {
    "platform-application": True,
    "com.example.off": False,
    "com.example.name": "group.example",
    "com.example.größe": "naïve 漢字 🔑",
    "com.example.markup": "<&>\"'",
    "com.example.numbers": [0, 1, 127, 128, 255, 256, -1, -128, -129, 2**63 - 1, -(2**63)],
    "com.example.list": ["a", True, 1, [], {"inner": []}],
    "com.example.nested": {"z": {"y": {"x": 7}}, "empty": {}, "long": "l" * 300},
}


class WithFiles(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.binary = self.folder / "program"
        self.entitlements = self.folder / "entitlements.plist"
        self.entitlements.write_bytes(plistlib.dumps(ENTITLEMENTS))

    def run_tool(self, tool, identifier=IDENTIFIER):
        options = ["--identifier", identifier, "--entitlements", self.entitlements]
        command = [sys.executable, PACKAGING / tool, *options, self.binary]
        return subprocess.run(command, capture_output=True, text=True, encoding="utf-8", timeout=60)

    def assert_signs(self, data):
        self.binary.write_bytes(data)
        result = self.run_tool("sign.py")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        checked = self.run_tool("check_signature.py")
        in_order = f"{self.binary}: the signature as {IDENTIFIER} is in order\n"
        self.assertEqual((checked.returncode, checked.stdout), (0, in_order))
        return self.binary.read_bytes()

    def assert_refuses(self, data, message, identifier=IDENTIFIER):
        self.binary.write_bytes(data)
        before = os.stat(self.binary)
        result = self.run_tool("sign.py", identifier)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertRegex(result.stderr, rf"\Asign\.py: [^\n]*{message}[^\n]*\n\Z")
        self.assertEqual(self.binary.read_bytes(), data)
        self.assertEqual(os.stat(self.binary).st_ino, before.st_ino)
        self.assertEqual(sorted(os.listdir(self.folder)), ["entitlements.plist", "program"])


class Signing(WithFiles):
    def test_adds_the_load_command(self):
        original = make_macho()
        data = self.assert_signs(original)
        self.assertEqual(struct.unpack_from("<II", data, 16), (4, commands_end(original) - 32 + 16))
        place, size = signature_place(data)
        self.assertEqual((place, place + size), (TEXT_SIZE + 48, len(data)))
        self.assertEqual(data[TEXT_SIZE:place], LINKEDIT_CONTENT + bytes(11))
        self.assertEqual(data[commands_end(data) : TEXT_SIZE], original[commands_end(data) : TEXT_SIZE])

    def test_replaces_a_signature(self):
        fresh = self.assert_signs(make_macho(content=LINKEDIT_CONTENT.ljust(48, b"\0")))
        replaced = self.assert_signs(make_macho(old_signature=b"old" * 3000, content=LINKEDIT_CONTENT))
        self.assertEqual(replaced, fresh)

    def test_gives_the_same_bytes_twice(self):
        first = self.assert_signs(make_macho())
        self.assertEqual(self.assert_signs(first), first)
        self.assertEqual(self.assert_signs(make_macho()), first)

    def test_does_not_depend_on_how_the_entitlements_are_written(self):
        first = self.assert_signs(make_macho())
        other_order = dict(reversed(ENTITLEMENTS.items()))
        self.entitlements.write_bytes(plistlib.dumps(other_order, fmt=plistlib.FMT_BINARY, sort_keys=False))
        self.assertEqual(self.assert_signs(make_macho()), first)

    def test_room_for_the_command_to_the_byte(self):
        tight = commands_end(make_macho()) + 16
        self.assert_signs(make_macho(first_section=tight))
        self.assert_refuses(make_macho(first_section=tight - 1), "no room for LC_CODE_SIGNATURE")

    def test_needs_no_room_when_the_command_is_there(self):
        end = commands_end(make_macho(old_signature=b"old"))
        self.assert_signs(make_macho(first_section=end, old_signature=b"old"))

    def test_does_not_take_room_that_is_in_use(self):
        data = make_macho()
        self.assert_refuses(flipped(data, commands_end(data) + 15), "no room for LC_CODE_SIGNATURE")

    def test_grows_linkedit_over_a_page(self):
        data = self.assert_signs(make_macho(content=bytes(0x3FF0)))
        linkedit = data.index(b"__LINKEDIT")
        self.assertEqual(struct.unpack_from("<Q", data, linkedit + 24), (0x8000,))
        self.assertEqual(struct.unpack_from("<Q", data, linkedit + 40), (len(data) - TEXT_SIZE,))

    def test_a_last_page_that_is_full(self):
        self.assert_signs(make_macho(content=bytes(0x1000)))

    def test_keeps_the_mode_and_follows_a_link(self):
        real = self.folder / "real"
        real.write_bytes(make_macho())
        real.chmod(0o751)
        self.binary.symlink_to(real)
        self.assertEqual(self.run_tool("sign.py").returncode, 0)
        self.assertTrue(self.binary.is_symlink())
        self.assertEqual(os.stat(real).st_mode & 0o7777, 0o751)
        self.assertEqual(self.run_tool("check_signature.py").returncode, 0)

    def test_a_failed_write_leaves_the_old_file_alone(self):
        self.binary.write_bytes(make_macho())
        with mock.patch.object(sign.os, "replace", side_effect=OSError(28, "No space left on device")):
            with self.assertRaisesRegex(sign.Failure, "cannot be replaced: No space left on device"):
                sign.sign(str(self.binary), IDENTIFIER, str(self.entitlements))
        self.assertEqual(self.binary.read_bytes(), make_macho())
        self.assertEqual(sorted(os.listdir(self.folder)), ["entitlements.plist", "program"])


class Refusing(WithFiles):
    def test_what_is_not_such_a_file(self):
        macho = make_macho()
        big_endian = struct.pack(">8I", 0xFEEDFACF, 0x0100000C, 0, 2, 0, 0, 0, 0)
        for data, message in (
            (b"", "not a Mach-O file"),
            (b"\x7fELF\x02\x01\x01" + bytes(200), "not a Mach-O file"),
            (struct.pack(">7I", 0xCAFEBABE, 1, 0x0100000C, 0, 4096, len(macho), 12) + macho, "universal"),
            (struct.pack("<I", 0xFEEDFACE) + macho[4:], "32-bit"),
            (big_endian, "big-endian"),
            (macho[:12] + struct.pack("<I", 6) + macho[16:], "not an executable"),
        ):
            with self.subTest(message):
                self.assert_refuses(data, message)

    def test_truncated_files(self):
        for data in (make_macho(), make_macho(old_signature=b"old signature")):
            end = commands_end(data)
            for length in (5, 31, 32, 100, end - 1, end, TEXT_SIZE, len(data) - 1):
                with self.subTest(length):
                    self.assert_refuses(data[:length], "truncated")

    def test_malformed_files(self):
        signed_before = make_macho(old_signature=bytes(32))
        text = make_macho().index(b"__TEXT")
        for data, message in (
            (make_macho() + b"x", "__LINKEDIT does not end with the file"),
            (make_macho().replace(b"__LINKEDIT", b"__LINKEDIX"), "0 segments __LINKEDIT"),
            (flipped(make_macho(), 16), "do not have the size"),
            (flipped(make_macho(), text - 4), "bad load command"),
            (flipped(make_macho(), text + 56), "bad segment command"),
            (flipped(signed_before, commands_end(signed_before) - 8), "old signature is not at the end"),
            (flipped(signed_before, commands_end(signed_before) - 12), "bad load command"),
        ):
            with self.subTest(message):
                self.assert_refuses(data, message)

    def test_two_signature_commands(self):
        data = bytearray(make_macho(old_signature=bytes(32)))
        end = commands_end(data)
        data[end : end + 16] = data[end - 16 : end]
        struct.pack_into("<II", data, 16, 5, end - 32 + 16)
        self.assert_refuses(bytes(data), "more than one LC_CODE_SIGNATURE")

    def test_no_flip_of_the_load_commands_makes_the_signer_stumble(self):
        for data in (make_macho(), make_macho(old_signature=bytes(32))):
            for bit in range(8 * commands_end(data)):
                changed = bytearray(data)
                changed[bit // 8] ^= 1 << bit % 8
                try:
                    result = sign.signed(bytes(changed), IDENTIFIER, {})
                except sign.Failure:
                    continue
                self.assertEqual(check_signature.examine(result, IDENTIFIER, {}), [], f"bit {bit}")

    def test_entitlements_that_are_none(self):
        self_holding = b"bplist00" + bytes([0xD1, 1, 0, 0x51, 0x61]) + bytes([8, 11])
        self_holding += bytes(6) + bytes([1, 1]) + struct.pack(">3Q", 2, 0, 13)
        for content, message in (
            (b"", "not a property list"),
            (b"<plist><dict><key>a</key>", "not a property list"),
            (plistlib.dumps(["a"]), "not a dictionary"),
            (plistlib.dumps({"a": b"data"}), "'a': a value of type bytes"),
            (plistlib.dumps({"a": {"b": 1.5}}), "'a': a value of type float"),
            (plistlib.dumps({"a": 2**63}), "'a': 9223372036854775808 does not fit"),
            (plistlib.dumps({"a": "\x01"}, fmt=plistlib.FMT_BINARY), "a character that XML cannot hold"),
            (plistlib.dumps({"a": "\r"}, fmt=plistlib.FMT_BINARY), "a character that XML cannot hold"),
            (self_holding, "'a': nested more than"),
        ):
            with self.subTest(message):
                self.entitlements.write_bytes(content)
                self.assert_refuses(make_macho(), message)

    def test_identifiers_that_are_none(self):
        for identifier in ("", "a b", "é", "a/b", "a\n"):
            with self.subTest(identifier):
                self.assert_refuses(make_macho(), "identifier ", identifier)

    def test_files_that_cannot_be_read(self):
        missing = self.run_tool("sign.py")
        self.assertEqual((missing.returncode, missing.stdout), (1, ""))
        self.assertEqual(missing.stderr, f"sign.py: {self.binary}: No such file or directory\n")
        os.mkfifo(self.binary)
        fifo = self.run_tool("sign.py")
        self.assertEqual((fifo.returncode, fifo.stderr), (1, f"sign.py: {self.binary}: not a regular file\n"))


class Checking(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.data = sign.signed(make_macho(), IDENTIFIER, ENTITLEMENTS)

    def findings(self, data, identifier=IDENTIFIER, entitlements=None):
        return check_signature.examine(data, identifier, entitlements or ENTITLEMENTS)

    def test_each_byte_of_the_signature_counts(self):
        place, size = signature_place(self.data)
        unseen = [at for at in range(place, place + size) if not self.findings(flipped(self.data, at))]
        self.assertEqual(unseen, [])

    def test_each_byte_of_the_load_commands_counts(self):
        unseen = [at for at in range(commands_end(self.data)) if not self.findings(flipped(self.data, at))]
        self.assertEqual(unseen, [])

    def test_names_the_page(self):
        for page in range(5):
            data = flipped(self.data, page * 0x1000 + 0xFF0 if page < 4 else TEXT_SIZE)
            expected = f"page {page}, at 0x{page * 0x1000:x}, does not have the hash that is signed"
            self.assertEqual(self.findings(data), [expected])

    def test_names_the_slot(self):
        names = {2: "requirements", 5: "XML entitlements", 7: "DER entitlements"}
        for slot, name in names.items():
            data = flipped(self.data, blob_offset(self.data, slot) + len(blob_of(self.data, slot)) - 1)
            self.assertIn(f"special slot {slot} does not have the hash of the {name}", self.findings(data))
        directory = blob_offset(self.data, 0)
        first = directory + struct.unpack_from(">I", self.data, directory + 16)[0] - 7 * 32
        for slot in (1, 3, 4, 6):
            findings = self.findings(flipped(self.data, first + (7 - slot) * 32))
            self.assertEqual(findings, [f"special slot {slot} does not have zeros"])

    def test_names_the_field(self):
        fields = {8: "version", 12: "flags", 32: "codeLimit", 37: "hashType", 39: "pageSize"}
        fields.update({64: "execSegBase", 72: "execSegLimit", 80: "execSegFlags"})
        for offset, name in fields.items():
            findings = self.findings(flipped(self.data, blob_offset(self.data, 0) + offset))
            self.assertEqual((len(findings), findings[0].split()[0]), (1, name))

    def test_another_identifier(self):
        expected = [f"the identifier is {IDENTIFIER!r}, not 'com.zel.other'"]
        self.assertEqual(self.findings(self.data, "com.zel.other"), expected)
        data = flipped(self.data, self.data.index(IDENTIFIER.encode() + b"\0"))
        expected = [f"the identifier is 'bom.zel.vorlatch', not {IDENTIFIER!r}"]
        self.assertEqual(self.findings(data), expected)

    def test_other_entitlements(self):
        differ = "entitlements differ from those of the file"
        both = [f"the XML {differ}", f"the DER {differ}"]
        for key, value in (("platform-application", 1), ("com.example.list", []), ("more", True)):
            self.assertEqual(self.findings(self.data, entitlements={**ENTITLEMENTS, key: value}), both)

    def test_entitlements_of_two_meanings(self):
        apart = "the XML and the DER entitlements differ from each other"
        der = blob_of(self.data, 7).replace(b"\x01\x01\xff", b"\x01\x01\x00")
        expected = ["the DER entitlements differ from those of the file", apart]
        self.assertEqual(self.findings(with_hashed_slot(self.data, 7, der)), expected)
        xml = blob_of(self.data, 5).replace(b"group.example", b"group.exampla")
        expected = ["the XML entitlements differ from those of the file", apart]
        self.assertEqual(self.findings(with_hashed_slot(self.data, 5, xml)), expected)

    def test_no_signature(self):
        self.assertEqual(self.findings(make_macho()), ["not signed: no LC_CODE_SIGNATURE"])
        for data in (b"", b"\x7fELF" + bytes(60)):
            self.assertEqual(self.findings(data), ["not a thin 64-bit little-endian Mach-O file"])
        unseen = [length for length in range(0, len(self.data), 7) if not self.findings(self.data[:length])]
        self.assertEqual(unseen, [])


class CheckingTheLayout(unittest.TestCase):
    """All the hashes are right here; only where things lie is not."""

    def findings_with(self, name, value, **macho):
        with mock.patch.object(sign, name, value):
            data = sign.signed(make_macho(**macho), IDENTIFIER, {})
        return check_signature.examine(data, IDENTIFIER, {})

    def findings_in_linkedit(self, values):
        data = bytearray(sign.signed(make_macho(), IDENTIFIER, {}))
        for offset, value in values.items():
            struct.pack_into("<Q", data, data.index(b"__LINKEDIT") + offset, value)
        return check_signature.examine(with_hashed_pages(bytes(data)), IDENTIFIER, {})

    def test_the_place_in_the_file(self):
        data = sign.signed(make_macho(), IDENTIFIER, {})
        end = len(data)
        findings = check_signature.examine(data + b"\0", IDENTIFIER, {})
        self.assertEqual(findings, [f"the signature ends at {end}, the file at {end + 1}"])
        findings = self.findings_with("SIGNATURE_ALIGNMENT", 1)
        self.assertEqual(findings, [f"the signature's offset {TEXT_SIZE + 37} is not a multiple of 16"])

    def test_two_commands(self):
        data = bytearray(sign.signed(make_macho(), IDENTIFIER, {}))
        end = commands_end(data)
        data[end : end + 16] = data[end - 16 : end]
        struct.pack_into("<II", data, 16, 5, end - 32 + 16)
        findings = check_signature.examine(bytes(data), IDENTIFIER, {})
        self.assertEqual(findings, ["more than one LC_CODE_SIGNATURE"])

    def test_linkedit(self):
        end = len(sign.signed(make_macho(), IDENTIFIER, {}))
        findings = self.findings_in_linkedit({40: end - TEXT_SIZE - 16})
        self.assertEqual(findings, [f"__LINKEDIT ends at {end - 16}, the signature at {end}"])
        findings = self.findings_in_linkedit({32: end - 32, 40: 32})
        self.assertEqual(findings, [f"the signature begins at {TEXT_SIZE + 48}, __LINKEDIT at {end - 32}"])
        for size in (0x1000, 0x5000, 0):
            expected = f"__LINKEDIT's size in memory 0x{size:x} does not fit its size in the file"
            self.assertEqual(self.findings_in_linkedit({24: size}), [expected])

    def test_the_blobs(self):
        filled_wrapper = struct.pack(">II", 0xFADE0B01, 9) + b"x"
        one_requirement = struct.pack(">III", 0xFADE0C01, 12, 1)
        for change, message in (
            (lambda blobs: superblob_of([*blobs.items(), (7, blobs[7])]), "DER entitlements is there twice"),
            (lambda blobs: superblob_of([*blobs.items(), (9, blobs[7])]), "slot 0x9 does not belong there"),
            (lambda blobs: superblob_of(list(blobs.items())[:-1]), "the CMS wrapper is missing"),
            (lambda blobs: superblob_of({**blobs, 0x10000: filled_wrapper}.items()), "wrapper is not empty"),
            (lambda blobs: superblob_of({**blobs, 2: one_requirement}.items()), "are not an empty set"),
            (lambda blobs: superblob_of({**blobs, 2: blobs[2] + b"x"}.items()), "begins at"),
            (lambda blobs: superblob_of(blobs.items(), gap=4), "the blobs end at"),
            (lambda blobs: superblob_of(blobs.items()) + b"x", "what follows the superblob is not zero"),
        ):
            with self.subTest(message):
                self.assertRegex("\n".join(self.findings_with("superblob", change)), message)
        self.assertEqual(self.findings_with("superblob", lambda blobs: superblob_of(blobs.items())), [])


class CheckingByCommand(WithFiles):
    def test_says_what_is_wrong_and_ends_with_1(self):
        self.binary.write_bytes(flipped(sign.signed(make_macho(), IDENTIFIER, ENTITLEMENTS), 0x2000))
        result = self.run_tool("check_signature.py")
        expected = f"{self.binary}: page 2, at 0x2000, does not have the hash that is signed\n"
        self.assertEqual((result.returncode, result.stdout, result.stderr), (1, expected, ""))


if __name__ == "__main__":
    unittest.main()
