#!/usr/bin/env python3
"""Checks of the request trace that a story cannot state: --sim-trace with a
file that cannot be written, the trace's own lines, and the runner's trace
patterns on traces made up for them (each accepted and refused as the
README says).

  trace_checks.py path/to/vmdctl-sim
"""
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import run_scenario as scenario  # noqa: E402

failures = []


def check(what, ok):
    print(("ok   " if ok else "FAIL ") + what)
    if not ok:
        failures.append(what)


def simulator(sim, *args, keys=b""):
    return subprocess.run([sim, *args], input=keys, capture_output=True, timeout=60)


def unwritable_trace_refused(sim, tmp):
    state = os.path.join(tmp, "machine.json")
    for name, path in (("in a missing folder", os.path.join(tmp, "missing", "t.txt")),
                       ("that is a folder", tmp)):
        with open(state, "w") as f:
            f.write('{"controller": {"disks": [{"index": 0, "size": 67108864}]}}')
        before = os.stat(state)
        with open(state, "rb") as f:
            content = f.read()
        for extra in ([], ["--sim-reset"]):
            p = simulator(sim, "--sim-state", state, *extra, "--sim-trace", path, "del", "0", "-s")
            label = f"a trace file {name}{' with --sim-reset' if extra else ''}"
            check(f"{label}: exit 64", p.returncode == 64)
            check(f"{label}: one line naming the file",
                  p.stderr.decode().startswith(f"vmdctl-sim: cannot write the trace file {path}: ")
                  and p.stderr.count(b"\n") == 1 and p.stdout == b"")
            with open(state, "rb") as f:
                check(f"{label}: the state file untouched",
                      f.read() == content and os.stat(state).st_mtime_ns == before.st_mtime_ns)
        check(f"a trace file {name}: nothing created", not os.path.exists(os.path.join(tmp, "missing")))


def trace_lines(sim, tmp):
    state = os.path.join(tmp, "lines.json")
    trace = os.path.join(tmp, "trace.txt")
    p = simulator(sim, "--sim-state", state, "--sim-reset", "--sim-trace", trace, "add", "-s", "-n", "64")
    check("add -s with a trace: exit 0", p.returncode == 0)
    with open(trace, "rb") as f:
        data = f.read()
    check("the trace ends with a line break and holds no carriage return",
          data.endswith(b"\n") and b"\r" not in data)
    text = data.decode("utf-8")
    try:
        entries = scenario.read_trace(text)
    except ValueError as e:
        entries = []
        print(e)
    check("every line is in the trace format", bool(entries))
    numbers = [int(line.split(" ", 1)[0][1:]) for line in text.splitlines() if line.startswith("#")]
    check("the calls are numbered 1, 2, 3, ...", numbers == list(range(1, len(numbers) + 1)))
    check("the first call is the framework's start", text.startswith('#1 t=0 InitFramework "" -> ok\n'))
    check("the new disk's arrival is shown after the sleep it fell in", "* t=2000 DiskArrived " in text)


def documented_example(sim, tmp):
    """docs/simulator.md shows the trace of del 0 on a disk with one volume:
    the program must still write exactly that."""
    docs = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "simulator.md")
    with open(docs, encoding="utf-8") as f:
        text = f.read()
    start = text.index("```\n#1 t=0 InitFramework") + 4
    shown = text[start:text.index("```", start)]
    state = os.path.join(tmp, "example.json")
    trace = os.path.join(tmp, "example.txt")
    with open(state, "w") as f:
        f.write('{"controller": {"disks": [{"index": 0, "size": 268435456, "signature": "0x12345678", '
                '"settings": {"driveLetter": "R"}}]}, "volumes": [{"disk": 0, "mountPoints": ["R:\\\\"]}]}')
    p = simulator(sim, "--sim-state", state, "--sim-argv0", "vmdctl", "--sim-trace", trace, "del", "0", keys=b"y")
    with open(trace, encoding="utf-8") as f:
        written = f.read()
    check("the documented trace of del 0 is the one the program writes", p.returncode == 0 and written == shown)


TRACE = "\n".join([
    '#1 t=0 DeviceIoControl "ctl" code=RemoveDisk in=10000000100000000000000000010000 out=0 -> ok returned=0',
    '#2 t=0 ReadKey "" -> ok key="y"',
    '#3 t=0 CreateFileW "\\\\?\\Volume{aa}" access=0x80000000 -> ok',
    '#4 t=0 DeviceIoControl "\\\\?\\Volume{aa}" code=FSCTL_LOCK_VOLUME in= out=0 -> ok returned=0',
    '#5 t=0 DeviceIoControl "\\\\?\\Volume{aa}" code=FSCTL_DISMOUNT_VOLUME in= out=0 -> ok returned=0',
    '#6 t=0 CloseHandle "\\\\?\\Volume{aa}" -> ok',
    '#7 t=0 DeviceIoControl "ctl" code=RemoveDisk in=10000000100000000000000000000100 out=0 -> ok returned=0',
    '#8 t=0 DeviceIoControl "ctl" code=QueryDiskPresent in= out=4 -> ok returned=4 data=01000000',
    '#9 t=0 Sleep "" ms=500 -> ok',
    '#10 t=500 DeviceIoControl "ctl" code=QueryDiskPresent in= out=4 -> ok returned=4 data=01000000',
    '#11 t=500 Sleep "" ms=500 -> ok',
    '#12..#15 t=1000..1500 Repeat "" lines=2 rounds=2',
    '* t=2000 DiskGone "\\\\.\\VelmoRdDevPort0Target0"',
    '#16 t=2000 DeviceIoControl "ctl" code=QueryDiskPresent in= out=4 -> ok returned=4 data=00000000',
]) + "\n"


def patterns(*lines):
    return scenario.trace_mismatch("\n".join(lines), TRACE)


def trace_patterns():
    check("a folded poll counts as its rounds written out",
          len(scenario.read_trace(TRACE)) == 17)
    check("lines in order, others between: accepted",
          patterns('ReadKey "" -> ok key="y"', 'DeviceIoControl * code=RemoveDisk',
                   'DeviceIoControl "ctl" code=QueryDiskPresent -> ok data=00000000') is None)
    check("lines out of order: refused",
          patterns('DeviceIoControl * code=FSCTL_DISMOUNT_VOLUME', 'DeviceIoControl * code=FSCTL_LOCK_VOLUME')
          is not None)
    check("a result word the line lacks: refused", patterns('ReadKey "" -> ok key="n"') is not None)
    check("an argument the line lacks: refused",
          patterns('DeviceIoControl * code=RemoveDisk in=10000000100000000000000000000000') is not None)
    check("'*' in a quoted target: accepted", patterns('CloseHandle "*{aa}"') is None)
    check("'>' with the very next call: accepted",
          patterns('CreateFileW "*{aa}"', '> DeviceIoControl * code=FSCTL_LOCK_VOLUME') is None)
    check("'>' with a call between: refused",
          patterns('CreateFileW "*{aa}"', '> DeviceIoControl * code=FSCTL_DISMOUNT_VOLUME') is not None)
    check("'>' skips the machine's own lines",
          patterns('Sleep "" ms=500', '> DeviceIoControl "ctl" code=QueryDiskPresent -> ok data=00000000') is None)
    check("'!' with no such line in its gap: accepted",
          patterns('ReadKey *', '! DeviceIoControl * code=QueryDiskPresent', 'CloseHandle *') is None)
    check("'!' with such a line in its gap: refused",
          patterns('ReadKey *', '! DeviceIoControl * code=FSCTL_LOCK_VOLUME', 'CloseHandle *') is not None)
    check("'!' looks at its own gap only",
          patterns('CloseHandle *', '! DeviceIoControl * code=FSCTL_LOCK_VOLUME') is None)
    check("'!!' holds to the end: refused",
          patterns('ReadKey *', '!! Sleep *', 'CloseHandle *') is not None)
    check("'! changes' passes the test-only removal and refuses the real one",
          patterns('! changes', 'ReadKey *') is None
          and patterns('CloseHandle *', '! changes') is not None)
    check("'! changes' refuses a lock",
          patterns('ReadKey *', '! changes', 'CloseHandle *') is not None)
    check("a pattern without a target is refused as a pattern",
          "needs a call and a target" in (patterns('ReadKey') or ""))


def main():
    sim = sys.argv[1]
    with tempfile.TemporaryDirectory() as tmp:
        unwritable_trace_refused(sim, tmp)
        trace_lines(sim, tmp)
        documented_example(sim, tmp)
    trace_patterns()
    print(f"{len(failures)} failed" if failures else "all passed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
