#!/usr/bin/env python3
"""Checks the release package, vmdctl-<version>-win64.zip (cmake/package.cmake).

  check_package.py WIN-BUILD-DIR GENERATED-DIR

The zip holds exactly vmdctl.exe, vddinfo.exe, vmdsnap.exe, vmdctl-sim.exe,
README.txt and COMMANDS.txt in one folder. The four executables are stripped
64-bit console programs that import only Windows' own DLLs and carry their
own version information (OriginalFilename their name) and manifest
(vmdctl.exe and vmdctl-sim.exe also the whole catalogue). The texts have
Windows line ends; README.txt names the version, the exit codes and how to
try a command on a copy of the machine; COMMANDS.txt is what
tools/gen_commands.py writes from the sources, and each of its sections is
byte for byte what the packed vmdctl.exe prints for `vmdctl ? <command>`
under Wine, run as `vmdctl` from the unpacked folder the way a prompt runs
it. The packed vmdsnap.exe explains itself (`vmdsnap -?`), and the packed
vmdctl-sim.exe runs `ver` on a copy.
"""
import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tools"))

import check_imports  # noqa: E402
import gen_catalogue  # noqa: E402
import gen_commands  # noqa: E402
import run_scenario as scenario  # noqa: E402

pefile = check_imports.pefile
FILES = ("COMMANDS.txt", "README.txt", "vddinfo.exe", "vmdctl-sim.exe", "vmdctl.exe", "vmdsnap.exe")
EXECUTABLES = ("vmdctl.exe", "vddinfo.exe", "vmdsnap.exe", "vmdctl-sim.exe")
RULE = "=" * 79


def project_version():
    with open(os.path.join(SOURCE_DIR, "CMakeLists.txt"), encoding="utf-8") as f:
        m = re.search(r"project\(vmdctl VERSION ([0-9.]+)", f.read())
    return m.group(1)


def check_binary(path, problems):
    """Stripped, 64-bit console, system DLLs only, version and manifest."""
    name = os.path.basename(path)
    pe = pefile.PE(path, fast_load=True)
    pe.parse_data_directories(directories=[pefile.DIRECTORY_ENTRY[d] for d in (
        "IMAGE_DIRECTORY_ENTRY_IMPORT", "IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT", "IMAGE_DIRECTORY_ENTRY_RESOURCE")])
    if pe.FILE_HEADER.PointerToSymbolTable or pe.FILE_HEADER.NumberOfSymbols:
        problems.append(f"{name}: not stripped ({pe.FILE_HEADER.NumberOfSymbols} symbols)")
    debug = [s.Name.rstrip(b"\0").decode() for s in pe.sections if s.Name.startswith(b".debug")]
    if debug:
        problems.append(f"{name}: debug sections {debug}")
    if pe.OPTIONAL_HEADER.Magic != 0x20B or pe.FILE_HEADER.Machine != 0x8664:
        problems.append(f"{name}: not a PE32+ x64 image")
    if pe.OPTIONAL_HEADER.Subsystem != 3:
        problems.append(f"{name}: subsystem {pe.OPTIONAL_HEADER.Subsystem}, expected 3 (console)")
    dlls = sorted({e.dll.decode().lower() for e in getattr(pe, "DIRECTORY_ENTRY_IMPORT", [])}
                  | {e.dll.decode().lower() for e in getattr(pe, "DIRECTORY_ENTRY_DELAY_IMPORT", [])})
    print(f"{name} imports: {', '.join(dlls)}")
    for dll in dlls:
        if dll not in check_imports.SYSTEM_DLLS and not dll.startswith("api-ms-win-"):
            problems.append(f"{name}: imports {dll}, which is not a Windows system DLL")
    res = check_imports.resources(pe)
    for rtype in (check_imports.RT_VERSION, check_imports.RT_MANIFEST):
        if not res.get(rtype):
            problems.append(f"{name}: {check_imports.RESOURCE_NAMES[rtype]} missing")
    if res.get(check_imports.RT_VERSION):
        before = len(problems)
        check_imports.check_version(pe, problems)
        problems[before:] = [f"{name}: {p}" for p in problems[before:]]
        original = version_strings(pe).get("OriginalFilename")
        if original != name:
            problems.append(f"{name}: OriginalFilename is {original!r}")
    for _, _, data in res.get(check_imports.RT_MANIFEST, []):
        before = len(problems)
        check_imports.check_manifest(data, problems)
        problems[before:] = [f"{name}: {p}" for p in problems[before:]]


def version_strings(pe):
    found = {}
    for info in getattr(pe, "FileInfo", []) or []:
        for entry in info if isinstance(info, list) else [info]:
            for table in getattr(entry, "StringTable", []):
                for k, v in table.entries.items():
                    found[k.decode() if isinstance(k, bytes) else k] = v.decode() if isinstance(v, bytes) else v
    return found


def sections(text):
    """{title: body} of COMMANDS.txt (line ends made \\n)."""
    lines = text.split("\n")
    found, i = {}, 0
    while i < len(lines):
        if lines[i] == RULE and i + 2 < len(lines) and lines[i + 2] == RULE:
            title, i, body = lines[i + 1], i + 4, []
            while i < len(lines) and lines[i] != RULE:
                body.append(lines[i])
                i += 1
            found[title] = "\n".join(body)
        else:
            i += 1
    return found


def run_help(folder, word, env):
    """What `vmdctl ? <word>` prints, run by cmd from the package's folder."""
    line = f"vmdctl ? {word}" if word != "?" else "vmdctl ?"
    return scenario.run_to_end(["wine", "cmd", "/c", line], env, 60, cwd=folder)


def check_companions(folder, env):
    """The packed vmdsnap.exe explains itself; the packed vmdctl-sim.exe runs
    a command on a copy in a file of its own."""
    problems = []
    code, out, err = scenario.run_to_end(["wine", "cmd", "/c", "vmdsnap -?"], env, 60, cwd=folder)
    if code != 0 or err or b"vmdsnap [-o <file>]" not in out:
        problems.append(f"'vmdsnap -?': exit code {code}, stdout {out[:200]!r}, stderr {err!r}")
    state = os.path.join(folder, "copy.json")
    code, out, err = scenario.run_to_end(["wine", "cmd", "/c", "vmdctl-sim --sim-state copy.json ver"], env, 60,
                                         cwd=folder)
    if code != 0 or b"Controller version: 5.7.0" not in out or not os.path.isfile(state):
        problems.append(f"'vmdctl-sim --sim-state copy.json ver': exit code {code}, stdout {out!r}, stderr {err!r}")
    return problems


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_package.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir, generated = sys.argv[1], sys.argv[2]
    version = project_version()
    base = f"vmdctl-{version}-win64"
    zip_path = os.path.join(build_dir, base + ".zip")
    if not os.path.isfile(zip_path):
        print(f"FAIL: {zip_path} is not built (cmake --build {build_dir} --target release)")
        return 1
    problems = []
    work = tempfile.mkdtemp(prefix="vmd-package-")
    try:
        with zipfile.ZipFile(zip_path) as z:
            names = sorted(n for n in z.namelist() if not n.endswith("/"))
            expected = sorted(f"{base}/{f}" for f in FILES)
            if names != expected:
                problems.append(f"zip holds {names}, expected {expected}")
            z.extractall(work)
        folder = os.path.join(work, base)
        for exe in EXECUTABLES:
            path = os.path.join(folder, exe)
            if os.path.isfile(path):
                check_binary(path, problems)
        for exe in ("vmdctl.exe", "vmdctl-sim.exe"):
            path = os.path.join(folder, exe)
            if os.path.isfile(path):
                messages, strings = gen_catalogue.parse(os.path.join(SOURCE_DIR, "src", "resources", "catalogue.txt"))
                problems += check_imports.check_executable(
                    path, {i: gen_catalogue.message_text(b) for i, b in messages}, dict(strings))

        texts = {}
        for name in ("README.txt", "COMMANDS.txt"):
            path = os.path.join(folder, name)
            if not os.path.isfile(path):
                continue
            with open(path, "rb") as f:
                data = f.read()
            if re.search(rb"(?<!\r)\n", data) or re.search(rb"\r(?!\n)", data):
                problems.append(f"{name}: a line end that is not \\r\\n")
            texts[name] = data.decode("utf-8").replace("\r\n", "\n")
        readme = texts.get("README.txt", "")
        if version not in readme:
            problems.append(f"README.txt: no version {version}")
        for code, meaning in gen_commands.EXIT_CODES:
            if f"{code}   {meaning}" not in readme:
                problems.append(f"README.txt: exit code {code} missing")
        if "@" in readme:
            problems.append("README.txt: a placeholder was left unfilled")
        for words in ("Trying a command on a copy of this machine", "vmdsnap -o copy.json",
                      "vmdctl-sim --sim-state copy.json --sim-trace trace.txt"):
            if words not in readme:
                problems.append(f"README.txt: no '{words}'")

        commands = texts.get("COMMANDS.txt", "")
        catalogue_messages, _ = gen_catalogue.parse(os.path.join(SOURCE_DIR, "src", "resources", "catalogue.txt"))
        table = gen_commands.command_table(os.path.join(SOURCE_DIR, "src", "shell", "dispatch.cpp"))
        want = gen_commands.commands_text(dict(catalogue_messages), table, version)
        if commands != want:
            problems.append("COMMANDS.txt differs from what tools/gen_commands.py writes from the sources")
        found = sections(commands)
        prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(
            os.path.dirname(os.path.abspath(generated)), "wineprefix")
        subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
        env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all")
        compared = 0
        for word, ident in table:
            title = "vmdctl ?" if ident == gen_commands.USAGE_ID else f"vmdctl ? {word}"
            if title not in found:
                problems.append(f"COMMANDS.txt: no section '{title}'")
                continue
            code, out, err = run_help(folder, word, env)
            # The text-mode stream writes "\n" as "\r\n" and a text's own
            # "\r\n" as "\r\r\n"; COMMANDS.txt has "\r\n" throughout.
            printed = out.replace(b"\r\r\n", b"\n").replace(b"\r\n", b"\n").decode("utf-8", "replace")
            if code != 0 or err:
                problems.append(f"'{title}': exit code {code}, stderr {err!r}")
            elif printed != found[title].rstrip("\n") + "\n":
                problems.append(f"COMMANDS.txt section '{title}' is not what the program prints:\n"
                                + "".join(difflib.unified_diff(
                                    found[title].rstrip("\n").splitlines(True), printed.rstrip("\n").splitlines(True),
                                    "COMMANDS.txt", "vmdctl.exe")))
            else:
                compared += 1
        problems += check_companions(folder, env)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    if problems:
        print("\n".join(problems))
        print(f"FAIL: {len(problems)} problem(s)")
        return 1
    print(f"ok: {zip_path}: {len(FILES)} files, {len(EXECUTABLES)} executables, {compared} help texts as the "
          f"program prints them")
    return 0


if __name__ == "__main__":
    sys.exit(main())
