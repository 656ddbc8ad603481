#!/usr/bin/env python3
"""Generates the program's catalogue from src/resources/catalogue.txt.

  gen_catalogue.py catalogue.txt --mc out.mc --rc out.rc --cpp out.cpp

--mc: message-compiler source (English, 1033) for the MESSAGETABLE.
--rc: STRINGTABLE resource script (language 1033).
--cpp: the same texts as C++ data for builds without Windows resources;
       messages carry "\r\n" line ends exactly as the message compiler stores them.
"""
import argparse
import sys


def parse(path):
    messages, strings = [], []
    kind, ident, body = None, None, []
    with open(path, encoding="utf-8", newline="") as f:
        lines = f.read().split("\n")
    for lineno, raw in enumerate(lines, 1):
        line = raw[:-1] if raw.endswith("\r") else raw
        if kind is None:
            if not line.strip() or line.startswith("#"):
                continue
            parts = line.split()
            if parts[0] not in ("@message", "@string") or len(parts) != 2:
                sys.exit(f"{path}:{lineno}: expected @message or @string")
            kind, ident, body = parts[0][1:], int(parts[1], 0), []
            continue
        if line == "@end":
            if kind == "message":
                for b in body:
                    if b == ".":
                        sys.exit(f"{path}: message {ident:#x} has a lone '.' line")
                messages.append((ident, body))
            else:
                if len(body) != 1:
                    sys.exit(f"{path}: string {ident} must be one line")
                strings.append((ident, unescape(body[0], path, ident)))
            kind = None
            continue
        body.append(line)
    if kind is not None:
        sys.exit(f"{path}: entry {ident} has no @end")
    ids = [m[0] for m in messages]
    if len(ids) != len(set(ids)):
        sys.exit(f"{path}: duplicate message id")
    sids = [s[0] for s in strings]
    if len(sids) != len(set(sids)):
        sys.exit(f"{path}: duplicate string id")
    return sorted(messages), sorted(strings)


def unescape(text, path, ident):
    out, i = [], 0
    while i < len(text):
        c = text[i]
        if c == "\\":
            if i + 1 >= len(text) or text[i + 1] not in 'n\\"':
                sys.exit(f"{path}: string {ident}: bad escape")
            out.append({"n": "\n", "\\": "\\", '"': '"'}[text[i + 1]])
            i += 2
        else:
            out.append(c)
            i += 1
    return "".join(out)


def message_text(body):
    return "".join(line + "\r\n" for line in body)


def write_mc(messages, path):
    out = ["LanguageNames=(English=0x409:MSG00409)", ""]
    for ident, body in messages:
        out.append(f"MessageId=0x{ident:X}")
        out.append("Language=English")
        out.extend(body)
        out.append(".")
        out.append("")
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write("\r\n".join(out) + "\r\n")


def rc_literal(text):
    r = []
    for c in text:
        if c == "\\":
            r.append("\\\\")
        elif c == '"':
            r.append('""')
        elif c == "\n":
            r.append("\\n")
        elif c == "\r":
            r.append("\\r")
        elif ord(c) < 32 or ord(c) > 126:
            r.append(f"\\x{ord(c):04x}")
        else:
            r.append(c)
    return 'L"' + "".join(r) + '"'


def write_rc(strings, path):
    out = ["LANGUAGE 0x09, 0x01", "STRINGTABLE", "BEGIN"]
    for ident, text in strings:
        out.append(f"  {ident}, {rc_literal(text)}")
    out.append("END")
    with open(path, "w", encoding="utf-8", newline="\n") as f:
        f.write("\n".join(out) + "\n")


def cpp_literal(text):
    r = []
    for c in text:
        if c == "\\":
            r.append("\\\\")
        elif c == '"':
            r.append('\\"')
        elif c == "\n":
            r.append("\\n")
        elif c == "\r":
            r.append("\\r")
        elif c == "?":
            r.append("\\?")  # no trigraphs
        elif ord(c) < 32 or ord(c) > 126:
            r.append(f'\\x{ord(c):04x}""')
        else:
            r.append(c)
    return 'L"' + "".join(r) + '"'


def write_cpp(messages, strings, path):
    out = [
        "// Generated from src/resources/catalogue.txt by tools/gen_catalogue.py; do not edit.",
        '#include "resources/catalogue_data.h"',
        "",
        "namespace vmd::catalogue {",
        "",
        "const Entry kMessages[] = {",
    ]
    for ident, body in messages:
        out.append(f"    {{0x{ident:X}, {cpp_literal(message_text(body))}}},")
    out.append("    {0, nullptr}};")
    out.append("")
    out.append("const Entry kStrings[] = {")
    for ident, text in strings:
        out.append(f"    {{{ident}, {cpp_literal(text)}}},")
    out.append("    {0, nullptr}};")
    out.append("")
    out.append("}  // namespace vmd::catalogue")
    with open(path, "w", encoding="utf-8", newline="\n") as f:
        f.write("\n".join(out) + "\n")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("source")
    ap.add_argument("--mc")
    ap.add_argument("--rc")
    ap.add_argument("--cpp")
    a = ap.parse_args()
    messages, strings = parse(a.source)
    if a.mc:
        write_mc(messages, a.mc)
    if a.rc:
        write_rc(strings, a.rc)
    if a.cpp:
        write_cpp(messages, strings, a.cpp)


if __name__ == "__main__":
    main()
