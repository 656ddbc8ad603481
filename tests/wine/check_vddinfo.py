#!/usr/bin/env python3
"""Runs the Windows descriptor reader, vddinfo.exe, under Wine on real files
and checks that it says what the Linux vddinfo says about them.

  check_vddinfo.py WIN-BUILD-DIR GENERATED-DIR

The descriptor is one that vmdctl-sim (Linux, the build beside
GENERATED-DIR) exports for a disk it has just added; the files are a valid
descriptor, the same with one byte changed, one cut short, a file that does
not exist, and no file at all. Each is read by relative name from one
folder, so both programs print the same path.
"""
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
import run_scenario as scenario  # noqa: E402


def run(cmd, cwd, env=None, timeout=60):
    """Exit code ("timed out" when it did not end), stdout and stderr."""
    code, out, err = scenario.run_to_end(cmd, env, timeout, cwd=cwd)
    return "timed out" if code is None else code, out, err


def text(data):
    # The Windows C runtime writes "\n" as "\r\n".
    return data.decode("utf-8", "replace").replace("\r\n", "\n")


def make_descriptor(sim, folder):
    """The bytes vmdctl-sim's export writes for a disk that add made."""
    state = os.path.join(folder, "machine.json")
    for args in (["add", "-n", "256", "-d", "R", "-l", "My Disk", "-r", "Data?Temp Files", "-s"],
                 ["export", "0", "-f", "C:\\disk.vdd", "-s"]):
        code, out, err = run([sim, "--sim-state", state, "--sim-argv0", "vmdctl"] + args, folder)
        if code != 0:
            raise SystemExit(f"FAIL: vmdctl-sim {' '.join(args)}: exit {code}\n{text(err)}")
    with open(state, encoding="utf-8") as f:
        files = json.load(f)["files"]
    head = next(f["head"] for f in files if f["path"].lower() == "c:\\disk.vdd")
    return bytes.fromhex(head)


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_vddinfo.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir, generated = sys.argv[1], sys.argv[2]
    linux_dir = os.path.dirname(os.path.abspath(generated))
    exe = os.path.abspath(os.path.join(build_dir, "vddinfo.exe"))
    reader = os.path.join(linux_dir, "vddinfo")
    sim = os.path.join(linux_dir, "vmdctl-sim")
    for path, what in ((exe, "the release target"), (reader, "the Linux build"), (sim, "the Linux build")):
        if not os.path.isfile(path):
            print(f"FAIL: {path} is not built ({what} builds it)")
            return 1
    prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(linux_dir, "wineprefix")
    subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
    env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all")

    folder = tempfile.mkdtemp(prefix="vmd-vddinfo-")
    good = make_descriptor(sim, folder)
    damaged = bytearray(good)
    damaged[len(damaged) // 2] ^= 0x5A
    for name, data in (("disk.vdd", good), ("damaged.vdd", bytes(damaged)), ("short.vdd", good[:40])):
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)

    cases = [("valid", ["disk.vdd"], 0), ("one byte changed", ["damaged.vdd"], 3),
             ("cut short", ["short.vdd"], 3), ("missing", ["nowhere.vdd"], 3), ("no file", [], 2)]
    failures = 0
    for label, args, want in cases:
        code, out, err = run(["wine", exe] + args, folder, env)
        lcode, lout, lerr = run([reader] + args, folder)
        problems = []
        if code != want:
            problems.append(f"exit {code}, expected {want}")
        if lcode != want:
            problems.append(f"the Linux reader exits {lcode}, expected {want}")
        if text(out) != text(lout):
            problems.append(f"stdout differs:\n--- Wine\n{text(out)}--- Linux\n{text(lout)}")
        if text(err) != text(lerr):
            problems.append(f"stderr differs:\n--- Wine\n{text(err)}--- Linux\n{text(lerr)}")
        if want == 0 and "vmdctl add" not in text(out):
            problems.append("no add command line in the output")
        if want != 0 and not err:
            problems.append("nothing on standard error")
        print(f"{'ok' if not problems else 'FAIL'}: vddinfo.exe, {label}")
        for p in problems:
            print("  " + p)
        failures += bool(problems)
    print(f"{len(cases) - failures} passed, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
