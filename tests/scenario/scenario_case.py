"""A scenario file read into its headers, its machine and its runs (the format
is described in tests/scenario/README.md)."""

import shlex

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
