"""Entitlements in the forms in which a signature holds them."""

import plistlib

DER_BOOLEAN = 0x01
DER_INTEGER = 0x02
DER_UTF8_STRING = 0x0C
DER_SEQUENCE = 0x30
DER_ENTITLEMENTS = 0x70  # APPLICATION 16, constructed
DER_DICTIONARY = 0xB0  # context-specific 16, constructed
DER_VERSION = 1
MAX_NESTING = 32

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


def der_element(tag, body):
    length = len(body)
    if length < 0x80:
        return bytes([tag, length]) + body
    digits = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(digits)]) + digits + body


def der_integer(number, where):
    if not -(1 << 63) <= number < 1 << 63:
        raise Failure(f"entitlement {where}: {number} does not fit into 64 bits")
    magnitude = number if number >= 0 else ~number
    return der_element(DER_INTEGER, number.to_bytes(magnitude.bit_length() // 8 + 1, "big", signed=True))


def der_string(text):
    return der_element(DER_UTF8_STRING, text.encode("utf-8"))


def der_dictionary(dictionary, where, depth):
    pairs = []
    for key in sorted(dictionary, key=lambda name: name.encode("utf-8")):
        value = der_value(dictionary[key], where or repr(key), depth + 1)
        pairs.append(der_element(DER_SEQUENCE, der_string(key) + value))
    return der_element(DER_DICTIONARY, b"".join(pairs))


def der_value(value, where, depth):
    if depth > MAX_NESTING:
        raise Failure(f"entitlement {where}: nested more than {MAX_NESTING} deep")
    if isinstance(value, bool):  # before int, which it is too
        return der_element(DER_BOOLEAN, b"\xff" if value else b"\x00")
    if isinstance(value, int):
        return der_integer(value, where)
    if isinstance(value, str):
        return der_string(value)
    if isinstance(value, list):
        return der_element(DER_SEQUENCE, b"".join(der_value(item, where, depth + 1) for item in value))
    if isinstance(value, dict):
        return der_dictionary(value, where, depth)
    raise Failure(f"entitlement {where}: a value of type {type(value).__name__} cannot be an entitlement")


def der_entitlements(entitlements):
    """The form that the kernel reads from iOS 15 on."""
    version = der_integer(DER_VERSION, "")
    return der_element(DER_ENTITLEMENTS, version + der_dictionary(entitlements, "", 0))


def xml_entitlements(entitlements):
    """The older form, written anew: no comment or formatting of the source gets into the signature."""
    try:
        xml = plistlib.dumps(entitlements, fmt=plistlib.FMT_XML, sort_keys=True)
        kept = plistlib.loads(xml, fmt=plistlib.FMT_XML) == entitlements
    except Exception:  # as below
        kept = False
    if not kept:
        raise Failure("the entitlements hold a character that XML cannot hold")
    return xml


def read_entitlements(path):
    try:
        with open(path, "rb") as file:
            entitlements = plistlib.load(file)
    except OSError as error:
        raise Failure(f"{path}: {error.strerror}") from None
    except Exception:  # plistlib lets out whatever its parsers meet, from ExpatError to AttributeError
        raise Failure(f"{path}: not a property list") from None
    if not isinstance(entitlements, dict):
        raise Failure(f"{path}: the property list is not a dictionary")
    return entitlements


def exec_segment_flags(entitlements):
    flags = EXEC_SEGMENT_MAIN_BINARY
    for name, flag in EXEC_SEGMENT_FLAGS.items():
        if entitlements.get(name) is True:
            flags |= flag
    return flags
