"""What a run printed and left behind, against what its scenario expects."""

import difflib
import json
import sys

from scenario_case import HEX_DIGITS


def normalise(data):
    # Windows writes "\n" as "\r\n" (and a "\r\n" of a catalogue text as
    # "\r\r\n"); the catalogue's own line breaks are "\r\n" on every build.
    text = data.decode("utf-8", errors="replace")
    while "\r\n" in text:
        text = text.replace("\r\n", "\n")
    return text


def is_byte_key(key):
    return key in ("head", "record") or (key or "").endswith("Record")


def same_hex(expected, actual):
    """Byte strings: case and blanks do not matter, but only hex digits count."""
    e = expected.replace(" ", "")
    return all(c in HEX_DIGITS for c in e) and e.lower() == actual.replace(" ", "").lower()


def subset_mismatch(expected, actual, where="state", key=None):
    """None when every key and element of `expected` is matched in `actual`."""
    if isinstance(expected, dict):
        if not isinstance(actual, dict):
            return f"{where}: expected an object, found {json.dumps(actual)}"
        for k, v in expected.items():
            if k not in actual:
                if v is None:
                    continue
                return f"{where}.{k}: missing"
            if v is None:
                return f"{where}.{k}: expected to be absent, found {json.dumps(actual[k])}"
            m = subset_mismatch(v, actual[k], f"{where}.{k}", k)
            if m:
                return m
        return None
    if isinstance(expected, list):
        if not isinstance(actual, list) or len(actual) != len(expected):
            return f"{where}: expected {len(expected)} elements, found {json.dumps(actual)}"
        for i, (e, a) in enumerate(zip(expected, actual)):
            m = subset_mismatch(e, a, f"{where}[{i}]", key)
            if m:
                return m
        return None
    if isinstance(expected, str) and expected.startswith("hex:"):
        if isinstance(actual, str) and same_hex(expected[4:], actual):
            return None
        return f"{where}: expected bytes {json.dumps(expected[4:])}, found {json.dumps(actual)}"
    if is_byte_key(key) and isinstance(expected, str) and isinstance(actual, str) and same_hex(expected, actual):
        return None
    if expected != actual:
        return f"{where}: expected {json.dumps(expected)}, found {json.dumps(actual)}"
    return None


def diff(name, expected, actual):
    lines = difflib.unified_diff(
        expected.splitlines(keepends=True), actual.splitlines(keepends=True), f"expected {name}", f"actual {name}"
    )
    return "".join(l if l.endswith("\n") else l + "\\ (no newline)\n" for l in lines) or (
        f"{name}: {expected!r} != {actual!r}\n"
    )


def show_partial(what, data):
    text = normalise(data or b"")
    if text:
        sys.stdout.write(f"  {what} so far:\n" + "".join("    " + l + "\n" for l in text.splitlines()))
    else:
        sys.stdout.write(f"  {what} so far: nothing\n")
