#!/usr/bin/env python3
"""Text in any script on the Windows console and in redirected output.

  check_console_text.py WIN-BUILD-DIR GENERATED-DIR

Labels, paths and words in Cyrillic and in CJK, printed by vmdctl.exe (a
command word it does not know, echoed back) and by vmdctl-sim.exe (`view` of
a disk whose volume label and mount folder are in those scripts; it prints
through the same Win32 console code):

- redirected to a file, the bytes are the text encoded in the OEM code page
  of the Windows locale (866 for ru_RU, 936 for zh_CN, 437 for C), with "?"
  for what the code page lacks and "\\r\\n" line ends;
- on a console (Wine gives one when the standard handles are a terminal),
  every character arrives whole, whatever the code page, and standard
  output and standard error keep the order they were written in.

The expected text of a `view` is what the Linux vmdctl-sim of the same build
prints (UTF-8). Wine takes the Windows locale from the Unix one, so the
locales are generated with localedef into the build folder.
"""
import json
import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
import run_scenario as scenario  # noqa: E402

# (Unix locale, the OEM code page Wine gives it)
LOCALES = (("ru_RU.UTF-8", "cp866"), ("zh_CN.UTF-8", "cp936"), ("C.UTF-8", "cp437"))
WORDS = ("Диск-Рабочий", "内存盘数据")

VOLUME = "\\\\?\\Volume{aa000002-0000-0000-0000-000000000000}\\"


def machine(label, folder):
    """A SCSI disk #2 whose volume has `label` and is mounted at C:\\<folder>\\."""
    return {
        "controller": {"disks": [{
            "index": 2, "size": 536870912, "systemDiskNumber": 3,
            "settings": {"sizeMb": 512, "driveLetter": "R", "substanceFlags": "0x400", "fileSystem": 2,
                         "clusterSize": 4096, "volumeLabel": label, "fsFlags": 2, "fsExtraMask": 3,
                         "everyonePermissions": "0x26", "volumeSerial": "0x1234ABCD"}}]},
        "drives": [{"letter": "C", "type": "fixed",
                    "volume": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\"}],
        "volumes": [
            {"name": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\",
             "interfacePath": "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}"
                              "#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
             "mountPoints": ["C:\\"], "fileSystem": "NTFS", "label": "System", "serial": "0x5A3C19E2",
             "totalBytes": 255999344640, "freeBytes": 118111600640,
             "extents": [{"disk": 0, "offset": 1048576, "length": 255999344640}]},
            {"name": VOLUME,
             "interfacePath": "\\\\?\\STORAGE#Volume#{aa000002-0000-0000-0000-000000000000}"
                              "#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
             "mountPoints": [f"C:\\{folder}\\"], "fileSystem": "NTFS", "label": label, "serial": "0x1234ABCD",
             "sectorsPerCluster": 8, "bytesPerSector": 512, "totalBytes": 536801280, "freeBytes": 520000000,
             "extents": [{"disk": 3, "offset": 65536, "length": 536801280}]},
        ],
    }


DISKS = (("Рабочий диск", "Данные\\Диск Р"), ("内存盘", "数据\\内存盘"))


def make_locales(folder):
    """Generated once per build folder; Wine reads its Windows locale from them."""
    os.makedirs(folder, exist_ok=True)
    for name, _ in LOCALES:
        if name.startswith("C.") or os.path.isdir(os.path.join(folder, name)):
            continue
        lang = name.split(".")[0]
        p = subprocess.run(["localedef", "-i", lang, "-f", "UTF-8", os.path.join(folder, name)],
                           capture_output=True, text=True)
        if not os.path.isdir(os.path.join(folder, name)):
            raise SystemExit(f"FAIL: localedef {lang} did not make a locale (the package 'locales' gives its "
                             f"sources): {p.stderr.strip()}")


def run_on_terminal(cmd, env):
    """(exit code, what the terminal showed): all three standard handles on a
    pseudo-terminal, so Wine gives the program a console. The terminal is
    read to its end, when the last process holding it has closed it, not
    when the program exits: what the console draws last may come after that.
    A terminal still open after 60 s gives the exit code None."""
    master, slave = pty.openpty()
    p = subprocess.Popen(cmd, env=env, stdin=slave, stdout=slave, stderr=slave, start_new_session=True)
    os.close(slave)
    shown, deadline, ended = b"", time.time() + 60, False
    while not ended and time.time() < deadline:
        ready, _, _ = select.select([master], [], [], 0.2)
        if not ready:
            continue
        try:
            data = os.read(master, 65536)
        except OSError:  # EIO: no process holds the terminal any more
            data = b""
        shown += data
        ended = not data
    os.close(master)
    try:
        code = p.wait(timeout=10)
    except subprocess.TimeoutExpired:
        p.kill()
        p.wait()
        code = None
    return (code if ended else None), shown


def terminal_text(shown):
    """The characters shown, without the console's cursor controls and carriage returns."""
    text = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown.decode("utf-8", errors="replace"))
    return on_screen(text.replace("\r", ""))


def on_screen(text):
    """A console draws no blanks at the end of a line."""
    return "\n".join(line.rstrip(" ") for line in text.split("\n"))


def windows_bytes(text, codepage):
    return text.replace("\n", "\r\n").encode(codepage, errors="replace")


def show(value):
    if isinstance(value, tuple):
        return "(" + ", ".join(show(v) for v in value) + ")"
    if isinstance(value, bytes):
        return "b'" + value.decode("latin-1").encode("unicode_escape").decode() + "'"
    return repr(value)


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_console_text.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir, generated = sys.argv[1], sys.argv[2]
    linux_build = os.path.dirname(os.path.abspath(generated))
    prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(linux_build, "wineprefix")
    subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
    locales = os.path.join(linux_build, "wine-locales")
    make_locales(locales)
    base_env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all", LOCPATH=locales)
    for k in ("LC_ALL", "LC_CTYPE", "LC_MESSAGES", "LANGUAGE"):
        base_env.pop(k, None)

    problems, checks = [], 0

    def expect(what, got, want):
        nonlocal checks
        checks += 1
        if got != want:
            problems.append(f"{what}:\n  expected {show(want)}\n  got      {show(got)}")

    vmdctl = os.path.join(build_dir, "vmdctl.exe")
    sim_exe = os.path.join(build_dir, "vmdctl-sim.exe")
    linux_sim = os.path.join(linux_build, "vmdctl-sim")
    for exe in (vmdctl, sim_exe, linux_sim):
        if not os.path.isfile(exe):
            print(f"FAIL: {exe} is not built")
            return 1

    # vmdctl.exe: the unknown word comes back in message 0x1005.
    for word in WORDS:
        line = f"vmdctl.exe: Unknown command '{word}'.\n"
        for name, codepage in LOCALES:
            env = dict(base_env, LANG=name)
            code, out, err = scenario.run_to_end(["wine", vmdctl, "?", word], env, 60)
            expect(f"vmdctl.exe ? {word}, redirected, {name}", (code, out, err),
                   (0, windows_bytes(line, codepage), b""))
        code, shown = run_on_terminal(["wine", vmdctl, "?", word], dict(base_env, LANG="C.UTF-8"))
        expect(f"vmdctl.exe ? {word}, on the console", (code, terminal_text(shown)), (0, on_screen(line)))

    # vmdctl-sim.exe: a label and a mount folder of the disk in each script.
    with tempfile.TemporaryDirectory() as work:
        for label, folder in DISKS:
            state = os.path.join(work, "state.json")

            def reset():
                with open(state, "w", encoding="utf-8") as f:
                    json.dump(machine(label, folder), f, ensure_ascii=False)

            reset()
            p = subprocess.run([linux_sim, "--sim-state", state, "--sim-argv0", "vmdctl", "view", "2"],
                               capture_output=True)
            want = p.stdout.decode("utf-8")
            if p.returncode != 0 or label not in want or folder not in want:
                problems.append(f"the Linux vmdctl-sim did not show {label!r} and {folder!r}: "
                                f"{p.returncode} {p.stdout!r} {p.stderr!r}")
                continue
            cmd = ["wine", sim_exe, "--sim-state", "Z:" + state.replace("/", "\\"), "--sim-argv0", "vmdctl",
                   "view", "2"]
            for name, codepage in LOCALES:
                reset()
                code, out, err = scenario.run_to_end(cmd, dict(base_env, LANG=name), 60)
                expect(f"vmdctl-sim.exe view of {label!r}, redirected, {name}", (code, out, err),
                       (0, windows_bytes(want, codepage), b""))
            reset()
            code, shown = run_on_terminal(cmd, dict(base_env, LANG="C.UTF-8"))
            expect(f"vmdctl-sim.exe view of {label!r}, on the console", (code, terminal_text(shown)),
                   (0, on_screen(want)))

        # Both streams on one console keep the order they were written in:
        # the settings block, then the error of the status read.
        label, folder = DISKS[0]
        state = os.path.join(work, "state.json")
        failing = dict(machine(label, folder), faults=[{"api": "DeviceIoControl", "code": "0x4606c", "error": 31}])
        with open(state, "w", encoding="utf-8") as f:
            json.dump(failing, f, ensure_ascii=False)
        p = subprocess.run([linux_sim, "--sim-state", state, "--sim-argv0", "vmdctl", "view", "2"],
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        want = p.stdout.decode("utf-8")
        with open(state, "w", encoding="utf-8") as f:
            json.dump(failing, f, ensure_ascii=False)
        code, shown = run_on_terminal(["wine", sim_exe, "--sim-state", "Z:" + state.replace("/", "\\"),
                                       "--sim-argv0", "vmdctl", "view", "2"], dict(base_env, LANG="C.UTF-8"))
        if not want.endswith("Error: getting disk status failed!\n") or label not in want:
            problems.append(f"the Linux vmdctl-sim printed {want!r}")
        expect("vmdctl-sim.exe view with a failing status read, both streams on the console",
               (code, terminal_text(shown)), (0, on_screen(want)))

    if problems:
        print("\n".join(problems))
        print(f"FAIL: {len(problems)} of {checks} checks")
        return 1
    print(f"ok: {checks} checks")
    return 0


if __name__ == "__main__":
    sys.exit(main())
