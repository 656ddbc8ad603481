#!/usr/bin/env python3
"""Runs one scenario against the real vmdctl.exe under Wine, with the test
controller driver (tests/wine/driver) answering its control requests from the
simulator's controller model, and checks standard output, standard error, the
exit code and the controller's resulting state.

  run_real.py --prefix PREFIX --build WINDOWS-BUILD --state STATE-FILE case.scn

WINDOWS-BUILD holds vmdctl.exe and define_drive.exe; the prefix has the
driver installed (tests/wine/driver/install.sh); STATE-FILE is the file its
Parameters key names. The scenario format is that of
tests/scenario (README there), with lines that arrange the prefix for this
tier, written as comments so the simulator's runner reads past them:

  #! drive X        drive X: is a fixed drive on a folder of its own for the
                    run (a letter the program gives a Direct-IO disk, or
                    whose root it reads), known to Wine's mount manager
  #! file X:\\a\\b   that file exists (empty) in such a drive's folder
  #! expect-file X:\\a\\b SIZE [HEX]
                    after the runs that file has SIZE bytes, beginning with
                    the bytes HEX

The machine's `registry` keys (values a program reads from Wine's own
registry, such as another product's settings) are written into the prefix
for the run and taken away after it; only keys the prefix does not have are
arranged, so nothing of the prefix's own is changed.

`state` is matched as a subset of the state file the driver's model wrote;
`stats` and `broadcasts` count the program's own system calls, which only the
simulator sees, so a scenario of this tier does not give them.
"""
import argparse
import contextlib
import json
import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scenario"))
import run_scenario as scenario  # noqa: E402

PROGRAM_ONLY = ("stats", "broadcasts")


def directives(path):
    """The `#!` lines of a scenario, as (word, rest) pairs."""
    found = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            if line.startswith("#!"):
                word, _, rest = line[2:].strip().partition(" ")
                found.append((word, rest.strip()))
    return found


class Prefix:
    """Drive letters on folders of their own, made for one run and taken away after."""

    def __init__(self, prefix, define_drive, env):
        self.dosdevices = os.path.join(prefix, "dosdevices")
        self.define_drive = define_drive
        self.env = env
        self.folders = {}

    def _define(self, *args):
        p = scenario.run_child(["wine", self.define_drive] + list(args), b"", self.env, 30)
        if p.returncode != 0:
            raise SystemExit(scenario.normalise(p.stderr) or f"define_drive.exe {' '.join(args)} failed")

    def drive(self, letter):
        letter = letter.rstrip(":").lower()
        if os.path.lexists(os.path.join(self.dosdevices, letter + ":")):
            raise SystemExit(f"drive {letter.upper()}: is already defined in the prefix")
        folder = tempfile.mkdtemp(prefix=f"vmd-drive-{letter}-")
        self.folders[letter] = folder
        self._define(letter, folder)

    def unix_path(self, winpath):
        letter, rest = winpath[0].lower(), winpath[2:].lstrip("\\")
        if letter not in self.folders:
            raise SystemExit(f"file {winpath}: drive {letter.upper()}: is not one of the scenario's drives")
        return os.path.join(self.folders[letter], *rest.split("\\"))

    def file(self, winpath):
        path = self.unix_path(winpath)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        open(path, "wb").close()

    def file_mismatch(self, described):
        """None when the file `X:\\path SIZE [HEX]` is there as described."""
        parts = described.split()
        winpath, size = parts[0], int(parts[1])
        path = self.unix_path(winpath)
        if not os.path.isfile(path):
            return f"{winpath}: no such file"
        with open(path, "rb") as f:
            data = f.read()
        if len(data) != size:
            return f"{winpath}: {len(data)} bytes, expected {size}"
        if len(parts) > 2 and not data.hex().startswith(parts[2].lower()):
            return f"{winpath}: begins {data[:len(parts[2]) // 2].hex()}, expected {parts[2].lower()}"
        return None

    def clear(self):
        for letter, folder in self.folders.items():
            try:
                self._define(letter)
            except (SystemExit, scenario.TimedOut):
                link = os.path.join(self.dosdevices, letter + ":")
                if os.path.islink(link):
                    os.unlink(link)
            shutil.rmtree(folder, ignore_errors=True)


def reg_data(value):
    """A machine state's registry value as a line of a REGEDIT4 file."""
    if isinstance(value, int):
        return f"dword:{value & 0xFFFFFFFF:08x}"
    kind = value.get("type", "REG_DWORD")
    if kind == "REG_DWORD":
        return f"dword:{int(value['data']) & 0xFFFFFFFF:08x}"
    if kind == "REG_BINARY":
        data = bytes.fromhex(str(value["data"]).replace(" ", ""))
        return "hex:" + ",".join(f"{b:02x}" for b in data)
    raise SystemExit(f"registry value type {kind}: this tier writes REG_DWORD and REG_BINARY only")


class Registry:
    """The machine's registry keys, written into the prefix for one run."""

    def __init__(self, env, workdir):
        self.env = env
        self.workdir = workdir
        self.created = []  # the highest key each arrangement created

    def _wine(self, args):
        return scenario.run_child(["wine"] + args, b"", self.env, 30)

    def _exists(self, key):
        return self._wine(["reg", "query", "HKLM\\" + key]).returncode == 0

    def _import(self, lines, name):
        path = os.path.join(self.workdir, name)
        with open(path, "w", newline="\r\n") as f:
            f.write("REGEDIT4\n\n" + "\n".join(lines) + "\n")
        # Wine's Z: is the Unix root.
        p = self._wine(["regedit", "/S", "Z:" + path.replace("/", "\\")])
        if p.returncode != 0:
            raise SystemExit(f"regedit could not import {name}: " + scenario.normalise(p.stderr))

    def arrange(self, keys):
        lines = []
        for key, values in keys.items():
            parts = key.split("\\")
            top = None
            for n in range(len(parts), 0, -1):
                if self._exists("\\".join(parts[:n])):
                    break
                top = "\\".join(parts[:n])
            if top is None:
                raise SystemExit(f"registry key {key}: the prefix has it already; this tier arranges new keys only")
            if top not in self.created:
                self.created.append(top)
            lines.append(f"[HKEY_LOCAL_MACHINE\\{key}]")
            for name, value in values.items():
                lines.append(f'"{name}"={reg_data(value)}')
            lines.append("")
        if lines:
            self._import(lines, "arrange.reg")

    def clear(self):
        if self.created:
            self._import([f"[-HKEY_LOCAL_MACHINE\\{k}]" for k in self.created], "clear.reg")
            self.created = []


@contextlib.contextmanager
def arranged(wine_prefix, define_drive, env, registry_folder):
    """The drives and registry keys of one run, as (Prefix, Registry): taken
    away after it however it ends, the keys first and the drives even when
    that fails."""
    prefix = Prefix(wine_prefix, define_drive, env)
    registry = Registry(env, registry_folder)
    try:
        yield prefix, registry
    finally:
        try:
            registry.clear()
        finally:
            prefix.clear()


def without_program_counts(expected):
    if isinstance(expected, dict):
        return {k: v for k, v in expected.items() if k not in PROGRAM_ONLY}
    return expected


def run_once(cmd, keys, env, timeout, label):
    """(the finished process, whether it took a second try), or (None, True)
    after two tries that timed out."""
    # Wine itself now and then hangs at a start; the program hangs every time.
    for attempt in range(2):
        try:
            return scenario.run_child(cmd, keys, env, timeout), attempt > 0
        except scenario.TimedOut as e:
            print(f"{label}: timed out after {timeout:g} s (try {attempt + 1})")
            scenario.show_partial("stdout", e.stdout)
            scenario.show_partial("stderr", e.stderr)
    return None, True


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--prefix", required=True)
    ap.add_argument("--build", required=True)
    ap.add_argument("--state", required=True)
    ap.add_argument("case")
    a = ap.parse_args()
    head, machine_text, runs = scenario.parse(a.case)
    timeout = float(head.get("timeout", "30"))
    env = dict(os.environ, WINEPREFIX=a.prefix, WINEDEBUG="-all")
    exe = os.path.join(a.build, "vmdctl.exe")
    error_file = a.state + ".error"
    many = len(runs) > 1
    expected_files = []
    retried = []  # the runs that passed on their second try
    drive_maker = os.path.join(a.build, "define_drive.exe")
    with arranged(a.prefix, drive_maker, env, os.path.dirname(os.path.abspath(a.state))) as (prefix, registry):
        for word, rest in directives(a.case):
            if word == "drive":
                prefix.drive(rest)
            elif word == "file":
                prefix.file(rest)
            elif word == "expect-file":
                expected_files.append(rest)
            else:
                raise SystemExit(f"{a.case}: unknown arrangement '#! {word}'")
        machine = json.loads(machine_text or "{}")
        registry.arrange(machine.get("registry", {}))
        with open(a.state, "w") as f:
            json.dump(machine, f)
        if os.path.exists(error_file):
            os.unlink(error_file)
        for run in runs:
            where = f" in {run.label}" if many else ""
            p, again = run_once(["wine", exe] + run.args, scenario.keys_of(run), env, timeout, a.case + where)
            if p is None:
                print(f"FAIL {a.case}{where}: timed out")
                return 1
            failures = scenario.check_output(run, p, a.state, True)
            if os.path.exists(error_file):
                with open(error_file) as f:
                    failures.append("the driver's model could not use the state: " + f.read())
            elif "state" in run.sections:
                with open(a.state) as f:
                    final = json.load(f)
                m = scenario.subset_mismatch(without_program_counts(json.loads(run.sections["state"])), final)
                if m:
                    failures.append(m + "\n")
            if failures:
                print(f"FAIL {a.case}{where}")
                for f in failures:
                    sys.stdout.write(f)
                if p.returncode not in (0, 2, 3, 4) and p.stderr:
                    sys.stdout.write("stderr was:\n" + scenario.normalise(p.stderr))
                return 1
            if again:
                retried.append(run.label)
        for described in expected_files:
            m = prefix.file_mismatch(described)
            if m:
                print(f"FAIL {a.case}\n{m}")
                return 1
    print(f"ok {a.case}")
    if retried:
        scenario.note_passed_on_retry(a.case, "vmdctl.exe with the test driver under Wine", retried)
    return 0


if __name__ == "__main__":
    sys.exit(main())
