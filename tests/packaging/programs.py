"""Small programs for the device, linked by lld, and changes to them after they were signed."""

import hashlib
import pathlib
import struct
import subprocess
import sys
import tempfile

PACKAGING = pathlib.Path(__file__).resolve().parents[2] / "packaging"
sys.dont_write_bytecode = True
sys.path.insert(0, str(PACKAGING))
from make_sdk import STUB  # noqa: E402

CORE_FOUNDATION = "/System/Library/Frameworks/CoreFoundation.framework/CoreFoundation"
LIB_SYSTEM, LIB_CXX = "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib"
RUN_PATHS = ["/var/jb/usr/lib", "@loader_path/.jbroot/usr/lib", "@loader_path/../lib"]
IMPORTS = {CORE_FOUNDATION: ["_CFRelease"], LIB_SYSTEM: ["_memorystatus_control"], LIB_CXX: ["__Znwm"]}
TARGETS = {"ios": "ios15.0", "ios-simulator": "ios15.0-simulator", "macos": "macos12.0"}


def run(folder, *command, text=None):
    subprocess.run(command, cwd=folder, check=True, capture_output=True, text=True, input=text)


def program(
    *, imports=None, weak=(), exports=("__mh_execute_header",), run_paths=RUN_PATHS, platform="ios",
    minimum="15.0", padding=0,
):  # fmt: skip
    """An unsigned executable. It calls its imports, by library, and keeps the address of the first; it
    defines the weak symbols."""
    imports = IMPORTS if imports is None else imports
    names = [name for library in imports.values() for name in library]
    text = ".globl _main\n_main:\n" + "".join(f"  bl {name}\n" for name in names) + "  ret\n.data\n"
    text += "".join(f".globl {name}\n.weak_definition {name}\n{name}: .quad {name}\n" for name in weak)
    text += "".join(f"  .quad {name}\n" for name in names[:1]) + f".const\n  .fill {padding}, 1, 7\n"
    options = [word for path in run_paths for word in ("-rpath", path)]
    options += [word for name in [*exports, *weak] for word in ("-exported_symbol", name)]
    with tempfile.TemporaryDirectory() as folder:
        for number, (library, symbols) in enumerate(imports.items()):
            listed = ", ".join(["dyld_stub_binder"] * (library == LIB_SYSTEM) + symbols)
            stub = STUB.format(path=library, version=1, compatibility=1, symbols=listed)
            pathlib.Path(folder, f"{number}.tbd").write_text(stub.replace("-ios", f"-{platform}"), encoding="utf-8")
            options += ["-needed_library", f"{number}.tbd"]
        target = f"--target=arm64-apple-{TARGETS[platform]}"
        run(folder, "clang", target, "-x", "assembler", "-c", "-", "-o", "object", text=text)
        version = ["-no_adhoc_codesign", "-platform_version", platform, minimum, "15.0"]
        run(folder, "ld64.lld-14", "-arch", "arm64", *version, *options, "object", "-o", "program")
        return pathlib.Path(folder, "program").read_bytes()


def commands_end(data):
    return 32 + struct.unpack_from("<I", data, 20)[0]


def signature_place(data):
    """Of a signed program: LC_CODE_SIGNATURE is the last command."""
    return struct.unpack_from("<II", data, commands_end(data) - 8)


def blob_offsets(data):
    """By slot: where in the program the signature's blob begins."""
    place, _ = signature_place(data)
    count = struct.unpack_from(">I", data, place + 8)[0]
    index = struct.unpack_from(f">{2 * count}I", data, place + 12)
    return {slot: place + offset for slot, offset in zip(index[::2], index[1::2])}


def replaced(data, offset, content):
    return data[:offset] + content + data[offset + len(content) :]


def flipped(data, offset):
    return replaced(data, offset, bytes([data[offset] ^ 0x01]))


def with_hashes(data):
    """The program with the hashes of what it now holds, so that only the change itself is wrong."""
    offsets, (place, _) = blob_offsets(data), signature_place(data)
    directory = offsets[0]
    first = directory + struct.unpack_from(">I", data, directory + 16)[0]
    for slot in (2, 5, 7):
        blob = data[offsets[slot] : offsets[slot] + struct.unpack_from(">I", data, offsets[slot] + 4)[0]]
        data = replaced(data, first - 32 * slot, hashlib.sha256(blob).digest())
    pages = [data[begin : min(begin + 0x1000, place)] for begin in range(0, place, 0x1000)]
    return replaced(data, first, b"".join(hashlib.sha256(page).digest() for page in pages))
