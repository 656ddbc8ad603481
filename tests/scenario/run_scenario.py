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
import re
import shlex
import subprocess
import sys
import tempfile

HEADERS = ("args", "stdin", "argv0", "timeout")
RUN_MARK = "run:"
# What a run may check; `stdin` is what it types.
RUN_SECTIONS = ("stdin", "stdout", "stderr", "stdout-raw", "stderr-raw", "stdout-head", "stderr-head", "exit",
                "state", "trace")
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


# --- The request trace (docs/simulator.md, "The request trace").

TRACE_LINE = re.compile(r'^(#\d+(?:\.\.#\d+)?|\*) t=(\d+)(?:\.\.(\d+))? (\S+) ("(?:[^"]*)")(.*)$')
TOKEN = re.compile(r'\S+?="[^"]*"|"[^"]*"|\S+')

# Program calls that change the machine: what `! changes` stands for.
CHANGING_CALLS = {"SetVolumeMountPointW", "DeleteVolumeMountPointW", "SetVolumeLabelW", "WriteFile",
                  "RegSetValueExW", "RegDeleteValueW", "BroadcastSystemMessageW"}
CHANGING_CODES = {"CreateDisk", "RemoveDisk", "ChangeDiskSettings", "ChangeDiskLetter", "ReinitializeDisk",
                  "SaveDiskImage", "ApplyImageSettings", "SetImOptions", "EnableIm", "DisableIm",
                  "IOCTL_MOUNTMGR_SET_AUTO_MOUNT", "FSCTL_LOCK_VOLUME", "FSCTL_DISMOUNT_VOLUME",
                  "FSCTL_UNLOCK_VOLUME"}
CREATE_ALWAYS = "2"


class TraceEntry:
    """One line of a trace: a program call ('#') or the machine's own ('*')."""

    def __init__(self, text, call, target, fields, result):
        self.text, self.call, self.target = text, call, target
        self.fields = fields  # {key: value} before "->"
        self.result = result  # the tokens after "->"

    @property
    def is_call(self):
        return self.text.startswith("#")


def split_fields(tokens):
    fields, words = {}, []
    for t in tokens:
        key, eq, value = t.partition("=")
        if eq and not t.startswith('"'):
            fields[key] = value
        else:
            words.append(t)
    return fields, words


def read_trace(text):
    """The trace's entries, with every folded repeat written out again."""
    entries = []
    for number, line in enumerate(text.split("\n"), 1):
        if not line:
            continue
        m = TRACE_LINE.match(line)
        if not m:
            raise ValueError(f"trace line {number} is not in the trace format: {line!r}")
        prefix, _, _, call, target, rest = m.groups()
        args, arrow, result = rest.partition(" -> ")
        fields, _ = split_fields(TOKEN.findall(args))
        if call == "Repeat":
            lines, rounds = int(fields["lines"]), int(fields["rounds"])
            entries.extend(entries[-lines:] * rounds)
            continue
        entries.append(TraceEntry(line, call, target, fields, TOKEN.findall(result) if arrow else []))
    return entries


class TracePattern:
    """One line of a `trace` section: `[!|>] Call "target" [key=value...] [-> result...]`."""

    def __init__(self, text, number=0):
        self.text, self.number = text, number
        self.kind = ""
        body = text.strip()
        if body[:2] == "!!":
            self.kind, body = "!!", body[2:].strip()
        elif body[:1] in ("!", ">"):
            self.kind, body = body[0], body[1:].strip()
        self.changes = body == "changes"
        if self.changes:
            if not self.kind.startswith("!"):
                raise ValueError(f"'changes' is a pattern of '!' lines only: {text!r}")
            return
        args, arrow, result = body.partition("->")
        tokens = TOKEN.findall(args)
        if len(tokens) < 2:
            raise ValueError(f"a trace pattern needs a call and a target (or *): {text!r}")
        self.call, self.target = tokens[0], tokens[1]
        if self.target != "*" and not (self.target.startswith('"') and self.target.endswith('"')):
            raise ValueError(f"a trace pattern's target is quoted, or *: {text!r}")
        self.fields, words = split_fields(tokens[2:])
        if words:
            raise ValueError(f"a trace pattern's arguments are key=value: {text!r}")
        self.result = TOKEN.findall(result) if arrow else []

    def target_matches(self, target):
        if "*" not in self.target:
            return target == self.target
        # '*' inside the quotes stands for any run of characters.
        parts = [re.escape(part) for part in self.target.split("*")]
        return re.fullmatch(".*".join(parts), target, re.DOTALL) is not None

    def matches(self, e):
        if self.changes:
            return e.is_call and changes_machine(e)
        if self.call != "*" and e.call != self.call:
            return False
        if self.target != "*" and not self.target_matches(e.target):
            return False
        if any(e.fields.get(k) != v for k, v in self.fields.items()):
            return False
        if self.result:
            if not e.result or e.result[0] != self.result[0]:
                return False
            if any(t not in e.result[1:] for t in self.result[1:]):
                return False
        return True


def changes_machine(e):
    if e.call in CHANGING_CALLS:
        return True
    if e.call == "CreateFileW":
        return e.fields.get("disposition") == CREATE_ALWAYS
    if e.call == "DeviceIoControl" and e.fields.get("code") in CHANGING_CODES:
        # Asking whether a disk could be removed (test-only, byte 13) removes nothing.
        return not (e.fields["code"] == "RemoveDisk" and e.fields.get("in", "")[26:28] == "01")
    return False


def trace_mismatch(expected, text):
    """None when the trace holds the expected lines in order (others between
    allowed), `>` lines right after the line before them, no `!` line
    between the lines around it and no `!!` line after the line before it;
    else why not."""
    try:
        patterns = [TracePattern(l, n) for n, l in enumerate(expected.split("\n"), 1)
                    if l.strip() and not l.lstrip().startswith("#")]
        entries = read_trace(text)
    except ValueError as e:
        return f"trace: {e}\n"
    # Each positive line, with the `!` lines of the gap before it and every
    # `!!` line stated before it.
    steps, forbidden, always = [], [], []
    for p in patterns:
        if p.kind == "!!":
            always.append(p)
        elif p.kind == "!":
            forbidden.append(p)
        else:
            steps.append((p, forbidden + always))
            forbidden = []
    tail = forbidden + always

    blocked = {}  # step: (the `!` pattern, the line it forbids) that kept it from its match

    def clean(lo, hi, bans, step=None):
        for i in range(lo, hi):
            for b in bans:
                if b.matches(entries[i]):
                    if step is not None:
                        blocked.setdefault(step, (b, entries[i]))
                    return False
        return True

    best = [0]
    failed = set()

    def place(step, start):
        """True when steps[step:] fit from entry `start` on."""
        best[0] = max(best[0], step)
        if step == len(steps):
            return clean(start, len(entries), tail, step)
        if (step, start) in failed:
            return False
        p, bans = steps[step]
        if p.kind == ">":
            i = start
            while i < len(entries) and not entries[i].is_call:
                i += 1
            candidates = [i] if i < len(entries) else []
        else:
            candidates = range(start, len(entries))
        for i in candidates:
            if not p.matches(entries[i]):
                continue
            if not clean(start, i, bans, step):
                break  # a later match would pass the banned line too
            if place(step + 1, i + 1):
                return True
        failed.add((step, start))
        return False

    if place(0, 0):
        return None
    if best[0] < len(steps):
        p = steps[best[0]][0]
        why = f"trace: no match for line {p.number} of the trace section: {p.text.strip()!r}"
    else:
        why = "trace: the lines after the last one matched break a '!' line"
    if best[0] in blocked:
        ban, line = blocked[best[0]]
        why += f"\n  line {ban.number} of the section ({ban.text.strip()!r}) forbids this line, found where it holds:\n    {line.text}"
    shown = "".join("  " + e.text + "\n" for e in entries[:400])
    more = f"  ... {len(entries) - 400} more\n" if len(entries) > 400 else ""
    return f"{why}\n  (the sequence up to there fits; other lines may come between, '!' lines may not)\n" \
        f"the trace was:\n{shown}{more}"


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
