#!/usr/bin/env python3
"""Entitlements in a signature, bit by bit: what the signer writes, and what check_signature.py refuses."""

import pathlib
import struct
import sys
import unittest
from unittest import mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "packaging"))
import check_signature  # noqa: E402
import entitlements as writer  # noqa: E402
import sign  # noqa: E402
from macho_samples import blob_offset, make_macho  # noqa: E402

IDENTIFIER = "com.zel.vorlatch"


class Der(unittest.TestCase):
    def test_bytes(self):
        entitlements = {"b": True, "a": ["é", -129], "B": {"x": 128}}
        expected = bytes.fromhex(
            "702c 020101 b027"
            " 300e 0c0142 b009 3007 0c0178 02020080"
            " 300d 0c0161 3008 0c02c3a9 0202ff7f"
            " 3006 0c0162 0101ff"
        )
        self.assertEqual(writer.der_entitlements(entitlements), expected)
        self.assertEqual(check_signature.read_der(expected), entitlements)

    def test_reader_is_strict(self):
        whole = "70{:02x}020101b0{:02x}"
        for pairs, message in (
            ("30060c01620101ff30060c01610101ff", "not sorted"),
            ("30060c01610101ff30060c01610101ff", "there twice"),
            ("30060c0161010101", "neither 00 nor ff"),
            ("30070c016102020001", "shortest form"),
            ("30070c01610202ff80", "shortest form"),
            ("3081060c01610101ff", "shortest form"),
            ("30060c0161040100", "tag 0x04"),
            ("30060c01ff0101ff", "not UTF-8"),
            ("30080c01610101ff0500", "left over after a value"),
            ("300e0c01610209010000000000000000", "integer of 9 bytes"),
            ("30070c01610101ff", "cut off"),
        ):
            body = len(pairs) // 2
            with self.subTest(message), self.assertRaisesRegex(check_signature.Broken, message):
                check_signature.read_der(bytes.fromhex(whole.format(body + 5, body) + pairs))

    def test_reader_wants_the_whole_form(self):
        for der, message in (
            ("7005020102b000", "version 2"),
            ("7007020101b0000500", "left over after the dictionary"),
            ("7005020101b0000500", "left over after the entitlements"),
            ("70050201013000", r"tag 0x30 where the dictionary \(0xb0\) belongs"),
            ("7002b000", "tag 0xb0 where the version"),
            ("b000", "tag 0xb0 where the entitlements"),
        ):
            with self.subTest(message), self.assertRaisesRegex(check_signature.Broken, message):
                check_signature.read_der(bytes.fromhex(der))

    def test_nesting_without_end(self):
        der = b""
        for _ in range(5000):
            der = writer.der_element(0x30, der)
        with mock.patch.object(sign, "der_entitlements", lambda entitlements: self.wrapped(der)):
            data = sign.signed(make_macho(), IDENTIFIER, {})
        findings = check_signature.examine(data, IDENTIFIER, {})
        self.assertEqual(findings, ["the entitlements are nested too deeply"])

    @staticmethod
    def wrapped(value):
        pair = writer.der_element(0x30, writer.der_string("a") + value)
        return writer.der_element(0x70, bytes([2, 1, 1]) + writer.der_element(0xB0, pair))


class ExecSegmentFlags(unittest.TestCase):
    FLAGS = {
        "get-task-allow": 0x11,
        "run-unsigned-code": 0x11,
        "com.apple.private.cs.debugger": 0x21,
        "dynamic-codesigning": 0x41,
        "com.apple.private.skip-library-validation": 0x81,
        "com.apple.private.amfi.can-load-cdhash": 0x101,
        "com.apple.private.amfi.can-execute-cdhash": 0x201,
        "platform-application": 0x1,
    }

    @staticmethod
    def flags_in(data):
        return struct.unpack_from(">Q", data, blob_offset(data, 0) + 80)[0]

    def test_follow_from_the_entitlements(self):
        for name, flags in self.FLAGS.items():
            for value, expected in ((True, flags), (False, 0x1), (1, 0x1), ("true", 0x1)):
                with self.subTest(name=name, value=value):
                    data = sign.signed(make_macho(), IDENTIFIER, {name: value})
                    self.assertEqual(self.flags_in(data), expected)
                    self.assertEqual(check_signature.examine(data, IDENTIFIER, {name: value}), [])
        everything = dict.fromkeys(self.FLAGS, True)
        self.assertEqual(self.flags_in(sign.signed(make_macho(), IDENTIFIER, everything)), 0x3F1)

    def test_a_flag_that_no_entitlement_gives_is_found(self):
        with mock.patch.object(sign, "exec_segment_flags", lambda entitlements: 0x81):
            data = sign.signed(make_macho(), IDENTIFIER, {})
        findings = check_signature.examine(data, IDENTIFIER, {})
        self.assertEqual(findings, ["execSegFlags is 0x81, not 0x1"])


if __name__ == "__main__":
    unittest.main()
