#!/usr/bin/env python3
"""Runs one scenario file against vmdctl-sim (Linux or, under Wine, the
Windows build), or against the real vmdctl.exe under Wine, and checks exact
standard output, standard error, exit code and the resulting machine state.

  run_scenario.py --sim PATH [--wine PREFIX] case.scn
  run_scenario.py --real PATH --wine PREFIX case.scn

The format is described in tests/scenario/README.md.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

# The parts of a scenario run; the Wine runners and checks reach them through
# this module too.
from scenario_case import keys_of, parse, unescape  # noqa: F401
from scenario_compare import diff, normalise, show_partial, subset_mismatch  # noqa: F401
from trace_patterns import read_trace, trace_mismatch  # noqa: F401


class Finished:
    def __init__(self, returncode, stdout, stderr):
        self.returncode, self.stdout, self.stderr = returncode, stdout, stderr


class TimedOut(Exception):
    def __init__(self, stdout, stderr):
        super().__init__("timed out")
        self.stdout, self.stderr = stdout, stderr


def run_child(cmd, keys, env, timeout, cwd=None):
    """Runs cmd to its end with `keys` on standard input (None: no input at
    all). Output goes to files, not pipes: a process that the child leaves
    behind (Wine starts some) cannot keep the run waiting."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        stdin = subprocess.DEVNULL if keys is None else subprocess.PIPE
        p = subprocess.Popen(cmd, stdin=stdin, stdout=out, stderr=err, env=env, cwd=cwd)
        try:
            p.communicate(keys, timeout=timeout)
        except subprocess.TimeoutExpired:
            p.kill()
            p.wait()
            out.seek(0)
            err.seek(0)
            raise TimedOut(out.read(), err.read())
        out.seek(0)
        err.seek(0)
        return Finished(p.returncode, out.read(), err.read())


def run_to_end(cmd, env, timeout, cwd=None):
    """(exit code, stdout, stderr) of cmd run with no input; the exit code is
    None when it timed out, and the output is what it had written by then."""
    try:
        p = run_child(cmd, None, env, timeout, cwd)
    except TimedOut as e:
        return None, e.stdout, e.stderr
    return p.returncode, p.stdout, p.stderr


def named_state(text, state_path):
    """The simulator names its state file in a message it cannot read; the
    story knows it as machine.json, wherever the run put it."""
    for form in ("Z:" + state_path.replace("/", "\\"), state_path):
        text = text.replace(form, "machine.json")
    return text


def check_output(run, p, state_path, real):
    sec = run.sections
    failures = []
    for name, raw in (("stdout", p.stdout), ("stderr", p.stderr)):
        if name in sec:
            actual = named_state(normalise(raw), state_path)
            if actual != sec[name]:
                failures.append(diff(name, sec[name], actual))
        raw_name = name + "-raw"
        if raw_name in sec:
            want = unescape(sec[raw_name].rstrip("\n")).encode("utf-8")
            if want != raw:
                failures.append(f"{raw_name}: expected {want!r}\n  found {raw!r}\n")
        head_name = name + "-head"
        if head_name in sec:
            actual = normalise(raw)
            if not actual.startswith(sec[head_name]):
                failures.append(diff(head_name, sec[head_name], actual[: len(sec[head_name])]))
    if "exit" in sec:
        want = int(sec["exit"].strip())
        if p.returncode != want:
            failures.append(f"exit: expected {want}, found {p.returncode}\n")
    if "state" in sec and not real:
        with open(state_path) as f:
            final = json.load(f)
        m = subset_mismatch(json.loads(sec["state"]), final)
        if m:
            failures.append(m + "\n")
    return failures


def program_command(a, head, run, number, machine_text, state_path, trace_path=None):
    """The command line of one run: the real program, or the simulator on
    the state file (and writing the trace to `trace_path`)."""
    if a.real:
        cmd = [a.real] + run.args
    else:
        def native(path):
            return path if not a.wine else "Z:" + path.replace("/", "\\")
        cmd = [a.sim, "--sim-state", native(state_path), "--sim-argv0", head.get("argv0", "vmdctl")]
        if trace_path:
            cmd += ["--sim-trace", native(trace_path)]
        cmd += run.args
        if machine_text is None and number == 0:
            cmd.insert(1, "--sim-reset")
    return ["wine"] + cmd if a.wine else cmd


def machine_file(folder, machine_text):
    """The state file of a story in `folder`: its `machine`, when it has one."""
    state_path = os.path.join(folder, "machine.json")
    if machine_text is not None:
        with open(state_path, "w") as f:
            json.dump(json.loads(machine_text or "{}"), f)
    return state_path


def untraced_difference(a, head, machine_text, runs, env, timeout, traced):
    """Runs the story again without the trace: None when every run printed,
    ended and left the machine as it did with the trace; else what differs."""
    with tempfile.TemporaryDirectory() as tmp:
        state_path = machine_file(tmp, machine_text)
        for number, run in enumerate(runs):
            cmd = program_command(a, head, run, number, machine_text, state_path)
            try:
                p = run_child(cmd, keys_of(run), env, timeout)
            except TimedOut:
                return f"{run.label or 'the run'} timed out without the trace"
            now = (p.returncode, in_folder(p.stdout, tmp), in_folder(p.stderr, tmp), read_bytes(state_path))
            for what, had, got in zip(("exit code", "stdout", "stderr", "state"), traced[number], now):
                if got != had:
                    shown = diff(what, normalise(had), normalise(got)) if isinstance(had, bytes) else f"{had} != {got}\n"
                    return f"{run.label or 'the run'}: the {what} with --sim-trace differs from the one without\n{shown}"
    return None


def in_folder(text, folder):
    """Output with the run's scratch folder named alike for every run, so that
    a message naming the state file compares equal across two runs."""
    return text.replace(folder.encode(), b"<scratch>")


def read_bytes(path):
    if not os.path.exists(path):
        return None
    with open(path, "rb") as f:
        return f.read()


RECORD_DIR = "VMDCTL_SCENARIO_RECORD"


def record_run(case, number, p, state_path, trace_path, tmp):
    """With $VMDCTL_SCENARIO_RECORD set, keeps what each run printed, its exit
    code, the machine it left and its trace under that folder, one folder per
    story, so that two builds of the program can be compared with `diff -r`."""
    root = os.environ.get(RECORD_DIR)
    if not root:
        return
    folder = os.path.join(root, os.path.splitext(os.path.basename(os.path.dirname(os.path.abspath(case))))[0],
                          os.path.splitext(os.path.basename(case))[0])
    os.makedirs(folder, exist_ok=True)
    stem = os.path.join(folder, f"run-{number + 1}")
    kept = {".exit": str(p.returncode).encode() + b"\n", ".stdout": in_folder(p.stdout, tmp),
            ".stderr": in_folder(p.stderr, tmp), ".state": read_bytes(state_path)}
    if trace_path:
        kept[".trace"] = read_bytes(trace_path)
    for ext, data in kept.items():
        if data is not None:
            with open(stem + ext, "wb") as f:
                f.write(in_folder(data, tmp))


RETRY_LOG = "VMDCTL_RETRY_LOG"


def note_passed_on_retry(case, tier, retried):
    """A test that passed only because a timed-out run was tried again says
    so, and adds that line to the file $VMDCTL_RETRY_LOG names, where the
    test command counts it apart. One write of one line, appended, so tests
    running side by side do not mix their lines."""
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    name = os.path.relpath(os.path.abspath(case), root)
    where = ", ".join([tier] + [label for label in retried if label])
    line = f"{name} ({where}): passed on retry"
    print(line)
    log = os.environ.get(RETRY_LOG)
    if log:
        fd = os.open(log, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644)
        try:
            os.write(fd, (line + "\n").encode("utf-8"))
        finally:
            os.close(fd)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--sim")
    ap.add_argument("--real")
    ap.add_argument("--wine")
    ap.add_argument("case")
    a = ap.parse_args()
    head, machine_text, runs = parse(a.case)
    timeout = float(head.get("timeout", "30" if a.wine else "60"))
    env = dict(os.environ)
    if a.wine:
        env.update(WINEPREFIX=a.wine, WINEDEBUG="-all")
    many = len(runs) > 1
    # On Linux every story runs with the trace, and once more without it to
    # show that the trace changes nothing; under Wine, to keep that tier in
    # its time, only a story that checks its trace runs with it.
    checks_trace = any("trace" in run.sections for run in runs)
    tracing = not a.real and (checks_trace or not a.wine)
    traced = []  # (exit code, stdout, stderr, state) of each run
    retried = []  # the runs that passed on their second try
    with tempfile.TemporaryDirectory() as tmp:
        state_path = machine_file(tmp, machine_text)
        for number, run in enumerate(runs):
            trace_path = os.path.join(tmp, f"trace-{number + 1}.txt") if tracing else None
            cmd = program_command(a, head, run, number, machine_text, state_path, trace_path)
            # The machine as this run found it, for a second try.
            before = None
            if os.path.exists(state_path):
                with open(state_path, "rb") as f:
                    before = f.read()
            p = None
            # Under Wine a start now and then hangs in Wine itself; one more try
            # tells that apart from the program hanging, which it does every time.
            for attempt in range(2 if a.wine else 1):
                if before is not None:
                    with open(state_path, "wb") as f:
                        f.write(before)
                try:
                    p = run_child(cmd, keys_of(run), env, timeout)
                    if attempt:
                        retried.append(run.label)
                    break
                except TimedOut as e:
                    where = f" {run.label}" if many else ""
                    print(f"{a.case}{where}: timed out after {timeout:g} s (try {attempt + 1})")
                    show_partial("stdout", e.stdout)
                    show_partial("stderr", e.stderr)
            if p is None:
                print(f"FAIL {a.case}: timed out")
                return 1
            record_run(a.case, number, p, state_path, trace_path, tmp)
            failures = check_output(run, p, state_path, a.real)
            if "trace" in run.sections and trace_path:
                with open(trace_path, encoding="utf-8", newline="") as f:
                    m = trace_mismatch(run.sections["trace"], f.read())
                if m:
                    failures.append(m)
            if failures:
                print(f"FAIL {a.case}" + (f" in {run.label}" if many else ""))
                for f in failures:
                    sys.stdout.write(f)
                if p.returncode not in (0, 2, 3, 4) and p.stderr:
                    sys.stdout.write("stderr was:\n" + normalise(p.stderr))
                return 1
            if tracing and not a.wine:
                traced.append((p.returncode, in_folder(p.stdout, tmp), in_folder(p.stderr, tmp), read_bytes(state_path)))
    # The sanitized build runs each story once, with the trace: the plain
    # build has already shown that the trace changes nothing.
    if traced and not os.environ.get("VMDCTL_SCENARIO_TRACED_ONLY"):
        m = untraced_difference(a, head, machine_text, runs, env, timeout, traced)
        if m:
            print(f"FAIL {a.case}: {m}")
            return 1
    print(f"ok {a.case}")
    if retried:
        note_passed_on_retry(a.case, ("vmdctl.exe" if a.real else "vmdctl-sim.exe") + " under Wine", retried)
    return 0


if __name__ == "__main__":
    sys.exit(main())
