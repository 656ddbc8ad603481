"""The request trace (docs/simulator.md, "The request trace"): its lines read
into entries, and a scenario's `trace` section matched against them."""

import re


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
