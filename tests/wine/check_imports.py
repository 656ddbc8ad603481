#!/usr/bin/env python3
"""Checks the Windows executables as files, without running them.

  check_imports.py WIN-BUILD-DIR GENERATED-DIR

vmdctl.exe and vmdctl-sim.exe must be 64-bit console programs that import
only Windows' own DLLs, and must carry the message table, the string table,
the version information and the manifest (language 1033). The message and
string tables read back from each executable must equal the catalogue
source, src/resources/catalogue.txt. Exits non-zero with a report of every
difference.
"""
import difflib
import os
import struct
import sys
import xml.etree.ElementTree as ET

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tools"))

try:
    import pefile
except ImportError:  # an interpreter of its own (pyenv, venv) may not see Debian's python3-pefile
    sys.path.append("/usr/lib/python3/dist-packages")
    import pefile

import gen_catalogue  # noqa: E402

EXECUTABLES = ("vmdctl.exe", "vmdctl-sim.exe")

# DLLs that every supported Windows has; anything else (the GCC runtime, the
# C++ library, winpthread) would have to ship beside the program.
SYSTEM_DLLS = {
    "kernel32.dll", "msvcrt.dll", "advapi32.dll", "ole32.dll", "oleaut32.dll", "setupapi.dll", "user32.dll",
    "shlwapi.dll", "gdi32.dll", "shell32.dll", "ntdll.dll", "version.dll", "cfgmgr32.dll", "ws2_32.dll",
    "bcrypt.dll", "ucrtbase.dll", "comctl32.dll", "wbemuuid.dll",
}

RT_STRING, RT_MESSAGETABLE, RT_VERSION, RT_MANIFEST = 6, 11, 16, 24
RESOURCE_NAMES = {RT_STRING: "RT_STRING", RT_MESSAGETABLE: "RT_MESSAGETABLE", RT_VERSION: "RT_VERSION",
                  RT_MANIFEST: "RT_MANIFEST"}
LANG_EN_US = 0x409

SUPPORTED_OS = {
    "{35138b9a-5d96-4fbd-8e2d-a2440225f93a}": "Windows 7",
    "{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}": "Windows 8",
    "{1f676c76-80e1-4239-95bb-83d0f6d0da78}": "Windows 8.1",
    "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}": "Windows 10 and 11",
}

VERSION = (5, 7, 0, 0)
PRODUCT_NAME = "Tarnby Ramdisk"


def resources(pe):
    """{type id: [(name id, language id, bytes)]}"""
    out = {}
    if not hasattr(pe, "DIRECTORY_ENTRY_RESOURCE"):
        return out
    for rtype in pe.DIRECTORY_ENTRY_RESOURCE.entries:
        items = out.setdefault(rtype.id, [])
        for name in rtype.directory.entries if hasattr(rtype, "directory") else []:
            for lang in name.directory.entries:
                d = lang.data.struct
                items.append((name.id, lang.id, pe.get_data(d.OffsetToData, d.Size)))
    return out


def decode_message_table(data):
    """{id: text} from a MESSAGE_RESOURCE_DATA block."""
    messages = {}
    (count,) = struct.unpack_from("<I", data, 0)
    for b in range(count):
        low, high, offset = struct.unpack_from("<III", data, 4 + 12 * b)
        for ident in range(low, high + 1):
            length, flags = struct.unpack_from("<HH", data, offset)
            raw = data[offset + 4: offset + length]
            text = raw.decode("utf-16-le") if flags & 1 else raw.decode("cp1252")
            messages[ident] = text.rstrip("\0")
            offset += length
    return messages


def decode_string_block(block_id, data):
    """{id: text} from one RT_STRING block of sixteen counted strings."""
    strings, pos = {}, 0
    for i in range(16):
        (n,) = struct.unpack_from("<H", data, pos)
        pos += 2
        if n:
            strings[(block_id - 1) * 16 + i] = data[pos: pos + 2 * n].decode("utf-16-le")
        pos += 2 * n
    return strings


def compare_texts(kind, expected, actual):
    """Report lines for every id whose text differs, is missing or is extra."""
    problems = []
    for ident in sorted(set(expected) | set(actual)):
        label = f"{kind} {ident:#x}" if kind == "message" else f"{kind} {ident}"
        if ident not in actual:
            problems.append(f"{label}: missing from the executable")
        elif ident not in expected:
            problems.append(f"{label}: not in catalogue.txt but in the executable: {actual[ident]!r}")
        elif expected[ident] != actual[ident]:
            d = difflib.unified_diff(expected[ident].splitlines(keepends=True), actual[ident].splitlines(keepends=True),
                                     "catalogue", "executable", lineterm="")
            problems.append(f"{label} differs:\n" + "\n".join(repr(line) if not line.startswith(("---", "+++", "@@"))
                                                                else line for line in d))
    return problems


def check_version(pe, problems):
    fixed = pe.VS_FIXEDFILEINFO[0] if getattr(pe, "VS_FIXEDFILEINFO", None) else None
    if fixed is None:
        problems.append("RT_VERSION: no fixed file information")
        return
    def split(ms, ls):
        return (ms >> 16, ms & 0xFFFF, ls >> 16, ls & 0xFFFF)
    for what, value in (("file version", split(fixed.FileVersionMS, fixed.FileVersionLS)),
                        ("product version", split(fixed.ProductVersionMS, fixed.ProductVersionLS))):
        if value != VERSION:
            problems.append(f"RT_VERSION: {what} is {'.'.join(map(str, value))}, expected 5.7.0.0")
    strings = {}
    for info in getattr(pe, "FileInfo", []) or []:
        for entry in info if isinstance(info, list) else [info]:
            for table in getattr(entry, "StringTable", []):
                for k, v in table.entries.items():
                    strings[k.decode() if isinstance(k, bytes) else k] = v.decode() if isinstance(v, bytes) else v
    if strings.get("ProductName") != PRODUCT_NAME:
        problems.append(f"RT_VERSION: ProductName is {strings.get('ProductName')!r}, expected {PRODUCT_NAME!r}")
    for key in ("FileVersion", "ProductVersion"):
        if not str(strings.get(key, "")).startswith("5.7.0"):
            problems.append(f"RT_VERSION: {key} string is {strings.get(key)!r}, expected 5.7.0.0")


def check_manifest(data, problems):
    try:
        root = ET.fromstring(data.decode("utf-8"))
    except (UnicodeDecodeError, ET.ParseError) as e:
        problems.append(f"RT_MANIFEST: not well-formed XML: {e}")
        return
    levels = [el.get("level") for el in root.iter() if el.tag.endswith("}requestedExecutionLevel")]
    if levels != ["asInvoker"]:
        problems.append(f"RT_MANIFEST: requestedExecutionLevel is {levels}, expected ['asInvoker']")
    ids = {(el.get("Id") or "").lower() for el in root.iter() if el.tag.endswith("}supportedOS")}
    for guid, name in SUPPORTED_OS.items():
        if guid not in ids:
            problems.append(f"RT_MANIFEST: supportedOS of {name} {guid} missing")


def check_executable(path, expected_messages, expected_strings):
    problems = []
    if not os.path.isfile(path):
        return [f"{path}: not built"]
    pe = pefile.PE(path, fast_load=True)
    pe.parse_data_directories(directories=[pefile.DIRECTORY_ENTRY[d] for d in (
        "IMAGE_DIRECTORY_ENTRY_IMPORT", "IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT", "IMAGE_DIRECTORY_ENTRY_RESOURCE")])
    if pe.OPTIONAL_HEADER.Magic != 0x20B or pe.FILE_HEADER.Machine != 0x8664:
        problems.append(f"not a PE32+ x64 image (magic {pe.OPTIONAL_HEADER.Magic:#x}, "
                        f"machine {pe.FILE_HEADER.Machine:#x})")
    if pe.OPTIONAL_HEADER.Subsystem != 3:
        problems.append(f"subsystem {pe.OPTIONAL_HEADER.Subsystem}, expected 3 (console)")

    imports = sorted({e.dll.decode().lower() for e in getattr(pe, "DIRECTORY_ENTRY_IMPORT", [])})
    delayed = sorted({e.dll.decode().lower() for e in getattr(pe, "DIRECTORY_ENTRY_DELAY_IMPORT", [])})
    print(f"{os.path.basename(path)} imports: {', '.join(imports + delayed)}")
    for dll in imports + delayed:
        if dll not in SYSTEM_DLLS and not dll.startswith("api-ms-win-"):
            problems.append(f"imports {dll}, which is not a Windows system DLL")

    res = resources(pe)
    for rtype, name in RESOURCE_NAMES.items():
        entries = res.get(rtype, [])
        if not entries:
            problems.append(f"{name}: missing")
        elif any(lang != LANG_EN_US for _, lang, _ in entries):
            problems.append(f"{name}: languages {sorted({l for _, l, _ in entries})}, expected only {LANG_EN_US}")

    messages = {}
    for _, _, data in res.get(RT_MESSAGETABLE, []):
        messages.update(decode_message_table(data))
    strings = {}
    for block, _, data in res.get(RT_STRING, []):
        strings.update(decode_string_block(block, data))
    if res.get(RT_MESSAGETABLE):
        problems += compare_texts("message", expected_messages, messages)
    if res.get(RT_STRING):
        problems += compare_texts("string", expected_strings, strings)
    if res.get(RT_VERSION):
        check_version(pe, problems)
    for _, _, data in res.get(RT_MANIFEST, []):
        check_manifest(data, problems)
    return [f"{os.path.basename(path)}: {p}" for p in problems]


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_imports.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir = sys.argv[1]
    messages, strings = gen_catalogue.parse(os.path.join(SOURCE_DIR, "src", "resources", "catalogue.txt"))
    expected_messages = {ident: gen_catalogue.message_text(body) for ident, body in messages}
    expected_strings = dict(strings)
    problems = []
    for exe in EXECUTABLES:
        problems += check_executable(os.path.join(build_dir, exe), expected_messages, expected_strings)
    if problems:
        print("\n".join(problems))
        print(f"FAIL: {len(problems)} problem(s)")
        return 1
    print(f"ok: {len(EXECUTABLES)} executables, {len(expected_messages)} messages, {len(expected_strings)} strings")
    return 0


if __name__ == "__main__":
    sys.exit(main())
