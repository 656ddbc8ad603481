#!/usr/bin/env python3
"""Writes the release package's texts from the program's own sources.

  gen_commands.py --catalogue catalogue.txt --table dispatch.cpp --version 5.7.0 \
      [--commands COMMANDS.txt] [--readme-in README.txt.in --readme README.txt]

COMMANDS.txt is the command reference: the usage text and every command's
help, each exactly as `vmdctl ? <command>` prints it (the program name
`vmdctl`, the command word as the command table spells it, inserts expanded
as FormatMessageW expands them, the trailing line breaks made one), then the
exit codes. README.txt is README.txt.in with @VERSION@ and @EXIT_CODES@
filled in. Both are written with Windows line ends.
"""
import argparse
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_catalogue  # noqa: E402

PROGRAM = "vmdctl"
USAGE_ID = 0x1001

EXIT_CODES = [
    (0, "the command did its work (help printed, too)"),
    (2, "bad or missing arguments; the program says how to get help"),
    (3, "the command failed; the reason was printed"),
    (4, "cancelled at a confirmation prompt"),
]


def command_table(path):
    """[(word, help id)]: `?` first, then the table's order; `help` (the alias of `?`) left out."""
    with open(path, encoding="utf-8") as f:
        source = f.read()
    rows = re.findall(r'\{\s*L"([^"]+)"\s*,\s*\w+\s*,\s*([\w:]+)\s*(?:,[^{}]*)?\}', source)
    table = []
    for word, ident in rows:
        if word == "help":
            continue
        table.append((word, USAGE_ID if ident.endswith("Usage") else int(ident, 0)))
    if not table:
        sys.exit(f"{path}: no command table found")
    # The usage text first: it is the list the other sections detail.
    return sorted(table, key=lambda row: row[1] != USAGE_ID)


def expand(text, inserts):
    """A message with its inserts, as FormatMessageW makes it."""
    out, i = [], 0
    while i < len(text):
        c = text[i]
        if c != "%" or i + 1 >= len(text):
            out.append(c)
            i += 1
            continue
        i += 1
        c = text[i]
        if c in "123456789":
            n = int(c)
            if i + 1 < len(text) and text[i + 1].isdigit():
                i += 1
                n = n * 10 + int(text[i])
            if i + 1 < len(text) and text[i + 1] == "!":
                close = text.find("!", i + 2)
                if close != -1:
                    i = close
            if n <= len(inserts):
                out.append(inserts[n - 1])
            i += 1
            continue
        if c == "0":
            return "".join(out)
        out.append({"n": "\r\n", "r": "\r", "t": "\t"}.get(c, c))
        i += 1
    return "".join(out)


def printed(text):
    """What the program prints of a catalogue text: its trailing line breaks become one."""
    trimmed = text.rstrip("\r\n")
    return trimmed + "\n" if trimmed != text else text


def one_line_end(text):
    """The text with every line break (\\r\\n, a lone \\r or \\n) made one \\n."""
    return text.replace("\r\n", "\n").replace("\r", "\n")


def help_text(messages, word, ident):
    inserts = [PROGRAM, word] if ident != USAGE_ID else [PROGRAM]
    return one_line_end(printed(expand(gen_catalogue.message_text(messages[ident]), inserts)))


def exit_code_lines():
    return [f"  {code}   {meaning}" for code, meaning in EXIT_CODES]


def commands_text(messages, table, version):
    rule = "=" * 79
    out = [f"Tarnby Ramdisk Commander {version}: command reference", "",
           f"Each section is what `{PROGRAM} ? <command>` prints; `{PROGRAM} ?` prints the first.", ""]
    for word, ident in table:
        title = f"{PROGRAM} ?" if ident == USAGE_ID else f"{PROGRAM} ? {word}"
        out += [rule, title, rule, ""]
        out.append(help_text(messages, word, ident).rstrip("\n"))
        out.append("")
    out += [rule, "Exit codes", rule, ""] + exit_code_lines() + [""]
    return "\n".join(out)


def write_windows_text(path, text):
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text.replace("\n", "\r\n"))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True)
    ap.add_argument("--table", required=True)
    ap.add_argument("--version", required=True)
    ap.add_argument("--commands")
    ap.add_argument("--readme-in")
    ap.add_argument("--readme")
    a = ap.parse_args()
    messages, _ = gen_catalogue.parse(a.catalogue)
    messages = dict(messages)
    table = command_table(a.table)
    for word, ident in table:
        if ident not in messages:
            sys.exit(f"{a.catalogue}: no help text {ident:#x} for '{word}'")
    if a.commands:
        write_windows_text(a.commands, commands_text(messages, table, a.version))
    if a.readme:
        if not a.readme_in:
            sys.exit("--readme needs --readme-in")
        with open(a.readme_in, encoding="utf-8") as f:
            template = f.read().replace("\r\n", "\n")
        text = template.replace("@VERSION@", a.version).replace("@EXIT_CODES@", "\n".join(exit_code_lines()))
        write_windows_text(a.readme, text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
