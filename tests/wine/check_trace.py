#!/usr/bin/env python3
"""Runs commands through vmdctl-sim.exe under Wine and through the Linux
vmdctl-sim on the same machines with --sim-trace, and checks that the two
traces are the same bytes: UTF-8 with "\\n" line ends on both, whatever the
width of wchar_t and the text mode of the Windows C runtime.

  check_trace.py WIN-BUILD-DIR GENERATED-DIR

The Linux vmdctl-sim is the one of the build beside GENERATED-DIR. The
commands: del of a disk with one volume (the documented example), edit to a
label in Cyrillic, CJK and a character beyond 16 bits, answered at the prompt, a request a
fault rule fails, and a removal that never ends, whose poll is folded.
"""
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
import run_scenario as scenario  # noqa: E402

ONE_DISK = {"controller": {"disks": [{"index": 0, "size": 268435456, "signature": "0x12345678",
                                      "settings": {"driveLetter": "R"}}]},
            "volumes": [{"disk": 0, "mountPoints": ["R:\\"]}]}
CASES = [
    ("del 0 on a disk with one volume", ONE_DISK, ["del", "0"], b"y", 0),
    ("edit to a label in Cyrillic, CJK and a character beyond 16 bits", ONE_DISK,
     ["edit", "0", "-l", "Диск数据𝄞"], b"y", 0),
    ("a request failed by a rule", dict(ONE_DISK, faults=[{"api": "DeviceIoControl", "code": "RemoveDisk",
                                                           "nth": 2, "error": 5}]),
     ["del", "0", "-s"], b"", 3),
    ("a removal that never ends", {"controller": {"disks": [{"index": 3, "size": 67108864, "volume": False,
                                                             "goneAfterMs": "never"}]}},
     ["del", "3", "-s"], b"", 0),
]


def trace_of(cmd, args, machine, keys, folder, env, native):
    """The trace the command writes, and how it ended."""
    state = os.path.join(folder, "machine.json")
    trace = os.path.join(folder, "trace.txt")
    with open(state, "w", encoding="utf-8") as f:
        json.dump(machine, f, ensure_ascii=False)
    if os.path.exists(trace):
        os.unlink(trace)
    full = cmd + ["--sim-state", native(state), "--sim-argv0", "vmdctl", "--sim-trace", native(trace)] + args
    try:
        p = scenario.run_child(full, keys, env, 60)
    except scenario.TimedOut:
        return None, "timed out"
    if not os.path.exists(trace):
        return None, f"exit {p.returncode}, no trace\n{scenario.normalise(p.stderr)}"
    with open(trace, "rb") as f:
        return f.read(), f"exit {p.returncode}"


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_trace.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir, generated = sys.argv[1], sys.argv[2]
    linux_dir = os.path.dirname(os.path.abspath(generated))
    exe = os.path.abspath(os.path.join(build_dir, "vmdctl-sim.exe"))
    sim = os.path.join(linux_dir, "vmdctl-sim")
    for path in (exe, sim):
        if not os.path.isfile(path):
            print(f"FAIL: {path} is not built")
            return 1
    prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(linux_dir, "wineprefix")
    subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
    env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all")

    failures = 0
    with tempfile.TemporaryDirectory(prefix="vmd-trace-") as folder:
        for label, machine, args, keys, code in CASES:
            linux, said = trace_of([sim], args, machine, keys, folder, None, lambda p: p)
            wine, wine_said = trace_of(["wine", exe], args, machine, keys, folder, env,
                                       lambda p: "Z:" + p.replace("/", "\\"))
            # Every story runs to its end as it should: a trace cut short shows little.
            ended = f"exit {code}"
            if linux is None or wine is None or linux != wine or b" CoUninitialize " not in linux \
                    or said != ended or wine_said != ended:
                failures += 1
                print(f"FAIL {label}: Linux {said}, Wine {wine_said}")
                if linux and wine:
                    sys.stdout.write(scenario.diff("trace", linux.decode("utf-8", "replace"),
                                                   wine.decode("utf-8", "replace")))
            else:
                lines = linux.count(b"\n")
                print(f"ok   {label}: {lines} lines, the same bytes")
    print(f"{failures} failed" if failures else "all passed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
