#!/usr/bin/env python3
"""Runs one scenario file against vmdctl-sim (Linux or, under Wine, the
Windows build), or against the real vmdctl.exe under Wine, and checks exact
standard output, standard error, exit code and the resulting machine state.

  run_scenario.py --sim PATH [--wine PREFIX] case.scn
  run_scenario.py --real PATH --wine PREFIX case.scn

The format is described in tests/scenario/README.md.
"""
import argparse
import difflib
import json
import os
import shlex
import subprocess
import sys
import tempfile

HEADERS = ("args", "stdin", "argv0", "timeout")
RUN_MARK = "run:"
# What a run may check; `stdin` is what it types.
RUN_SECTIONS = ("stdin", "stdout", "stderr", "stdout-raw", "stderr-raw", "stdout-head", "stderr-head", "exit",
                "state")
HEX_DIGITS = set("0123456789abcdefABCDEF")


class Run:
    def __init__(self, args, label):
        self.args = args
        self.label = label
        self.sections = {}


def section_body(lines):
    if lines and lines[-1] == "<<no newline>>":
        return "".join(l + "\n" for l in lines[:-1])[:-1]
    return "".join(l + "\n" for l in lines)


def parse(path):
    """The headers, the `machine` text (or None) and the runs, in order."""
    with open(path, encoding="utf-8", newline="") as f:
        text = f.read()
    lines = text.split("\n")
    if text.endswith("\n"):
        lines = lines[:-1]

    def fail(number, why):
        raise SystemExit(f"{path}:{number}: {why}")

    head, pre = {}, {}     # pre: the `machine` section, before any run
    runs = []              # the `--- run:` blocks
    loose = {}             # sections of a file without run blocks
    target = None          # (dict, name) that the current lines go to
    body = []

    def close():
        if target is not None:
            target[0][target[1]] = section_body(body)

    for number, line in enumerate(lines, 1):
        if line.startswith("--- "):
            close()
            body = []
            name = line[4:].strip()
            if name.startswith(RUN_MARK):
                command = name[len(RUN_MARK):].strip()
                if loose:
                    fail(number, "a run block after sections that belong to no run")
                runs.append(Run(shlex.split(command), f"run {len(runs) + 1} ({command})"))
                target = None
                continue
            if name == "machine":
                if runs:
                    fail(number, "'machine' comes before the first run")
                if "machine" in pre:
                    fail(number, "section 'machine' twice")
                target = (pre, "machine")
                continue
            owner = runs[-1].sections if runs else loose
            if runs and name not in RUN_SECTIONS:
                fail(number, f"unknown section '{name}' in a run")
            if name in owner:
                fail(number, f"section '{name}' twice" + (f" in {runs[-1].label}" if runs else ""))
            target = (owner, name)
            continue
        if target is None:
            if runs:
                if line.strip() and not line.startswith("#"):
                    fail(number, f"text outside a section in {runs[-1].label}")
                continue
            if not line.strip() or line.startswith("#"):
                continue
            key, _, value = line.partition(":")
            if key.strip() not in HEADERS:
                fail(number, f"unknown header '{key}'")
            head[key.strip()] = value.strip()
            continue
        body.append(line)
    close()

    if runs:
        for key in ("args", "stdin"):
            if key in head:
                raise SystemExit(f"{path}: header '{key}' with run blocks: each run says its own")
    else:
        # One run: the command line and the keys come from the headers.
        run = Run(shlex.split(head.get("args", "")), "")
        run.sections = loose
        if "stdin" in head:
            run.sections.setdefault("stdin", head["stdin"])
        runs = [run]
    return head, pre.get("machine"), runs


def unescape(s):
    return s.encode("utf-8").decode("unicode_escape").encode("latin-1").decode("utf-8")


def keys_of(run):
    # The keys are one line of escapes; line breaks in a section are layout.
    return unescape(run.sections.get("stdin", "").replace("\n", "")).encode("utf-8")


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
    retried = []  # the runs that passed on their second try
    with tempfile.TemporaryDirectory() as tmp:
        state_path = os.path.join(tmp, "machine.json")
        if machine_text is not None:
            with open(state_path, "w") as f:
                json.dump(json.loads(machine_text or "{}"), f)
        for number, run in enumerate(runs):
            if a.real:
                cmd = [a.real] + run.args
            else:
                st = state_path if not a.wine else "Z:" + state_path.replace("/", "\\")
                cmd = [a.sim, "--sim-state", st, "--sim-argv0", head.get("argv0", "vmdctl")] + run.args
                if machine_text is None and number == 0:
                    cmd.insert(1, "--sim-reset")
            if a.wine:
                cmd = ["wine"] + cmd
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
            failures = check_output(run, p, state_path, a.real)
            if failures:
                print(f"FAIL {a.case}" + (f" in {run.label}" if many else ""))
                for f in failures:
                    sys.stdout.write(f)
                if p.returncode not in (0, 2, 3, 4) and p.stderr:
                    sys.stdout.write("stderr was:\n" + normalise(p.stderr))
                return 1
    print(f"ok {a.case}")
    if retried:
        note_passed_on_retry(a.case, ("vmdctl.exe" if a.real else "vmdctl-sim.exe") + " under Wine", retried)
    return 0


if __name__ == "__main__":
    sys.exit(main())
