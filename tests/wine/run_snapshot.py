#!/usr/bin/env python3
"""Captures a machine with vmdsnap.exe under Wine and proves the copy by
difference: the real vmdctl.exe on the machine and vmdctl-sim on the copy
must answer alike.

  run_snapshot.py --prefix PREFIX --build WINDOWS-BUILD --sim VMDCTL-SIM
                  --snap-sim VMDSNAP-SIM [--state STATE-FILE] [--registry] case.json

With --state the machine is the test controller driver's (tests/wine/driver),
whose model reads STATE-FILE; without it the prefix has no controller at all.
A case (tests/wine/snapshot/*.json) holds:

  story     what the machine is
  drives    letters that are fixed drives on folders of their own
  machine   the driver's machine (the simulator's state schema)
  try       commands with -s, run one after the other on both sides
  holds     texts the copy must hold as they are (labels, paths in any script)

For each case:
1. vmdsnap.exe captures the machine (exit code 0, nothing on standard error),
   sending queries only: the driver's machine is what it was, and the
   requests it received are all queries. With --registry the prefix's
   registry is exported before and after and must be the same.
2. ls, view N for every disk, im, mem and ver print byte for byte the same
   from vmdctl.exe on the machine, from vmdctl-sim.exe (Wine) and from
   vmdctl-sim (Linux) on the copy; the line ends and the Linux build's UTF-8
   are made Wine's before comparing. In `mem` the free physical memory is
   the moment's, so it is compared without that one number.
3. Each command of `try` runs on the machine and on the copy; both must print
   the same, then vmdsnap.exe captures the machine again and vmdsnap-sim
   captures the copy, and the two captures must hold the same controller
   (disks, records, letters), the same letters and mount points, the same
   MountedDevices values of disks, and the same files written. What Wine
   cannot show is left out of that comparison, as docs/simulator.md lists
   under "Known differences".
"""
import argparse
import copy
import json
import os
import re
import shlex
import shutil
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
sys.path.insert(0, HERE)
import run_real  # noqa: E402
import run_scenario as scenario  # noqa: E402

TIMEOUT = 60
# What a capture may ask of the controller and of the disks' devices.
QUERIES = {"QueryControllerVersion", "QueryImStatus", "QueryDiskBitmap", "QueryDiskInfo", "ReadDiskSettingsRecord",
           "QueryDiskStatus", "QueryDeviceNumber", "QueryDosNameTarget"}
FREE_MEMORY = re.compile(r"(OS Managed Memory \(Free/Total\): )\d+(/\d+ MB)")
# What vmdsnap.exe cannot read under Wine, whatever the machine: Wine will not
# open its Z: drive (the Unix root) as a device. vmdsnap.exe names it and ends
# with 3; every other line on standard error fails the capture.
WINE_GAPS = (r"Warning: could not read the disk extents of \\.\Z: (0x00000005)!",)


class Failure(Exception):
    pass


def winpath(path):
    """A Unix path as Wine sees it (Z: is the Unix root)."""
    return "Z:" + path.replace("/", "\\")


class Sides:
    def __init__(self, a, work):
        self.a = a
        self.work = work
        self.env = dict(os.environ, WINEPREFIX=a.prefix, WINEDEBUG="-all")
        self.exe = os.path.join(a.build, "vmdctl.exe")
        self.snap = os.path.join(a.build, "vmdsnap.exe")
        self.sim_exe = os.path.join(a.build, "vmdctl-sim.exe")
        self.code_page = None
        self.retried = []  # the runs that passed on their second try

    def wine(self, args, label):
        p, again = run_real.run_once(["wine"] + args, None, self.env, TIMEOUT, label)
        if p is None:
            raise Failure(f"{label}: timed out")
        if again:
            self.retried.append(label)
        return p

    def linux(self, args, label):
        try:
            return scenario.run_child(args, None, self.env, TIMEOUT)
        except scenario.TimedOut:
            raise Failure(f"{label}: timed out")

    def wine_text(self, data):
        """Bytes a Windows program wrote, as text: Wine's code page, "\\n" line ends."""
        text = data.decode(self.oem(), errors="replace")
        while "\r\n" in text:
            text = text.replace("\r\n", "\n")
        return text

    def as_wine_writes(self, data):
        """The Linux build's UTF-8 as the Windows build writes it redirected: the
        console's code page, "?" for what it lacks."""
        return data.decode("utf-8").encode(self.oem(), errors="replace").decode(self.oem())

    def oem(self):
        if self.code_page is None:
            p = self.wine(["cmd", "/c", "chcp"], "chcp")
            m = re.search(rb"(\d+)", p.stdout)
            # Without a console Wine names none (0): the OEM code page of the
            # Unix locale is the one a redirected program writes in.
            cp = m.group(1).decode() if m and m.group(1) != b"0" else "437"
            self.code_page = "utf-8" if cp == "65001" else "cp" + cp
        return self.code_page

    def capture(self, name):
        """vmdsnap.exe on the machine; the document it wrote."""
        out = os.path.join(self.work, name)
        p = self.wine([self.snap, "-o", winpath(out)], "vmdsnap.exe")
        # Wine's own notes ("wine: ...") are not the program's.
        lines = [l for l in self.wine_text(p.stderr).splitlines() if not l.startswith("wine: ")]
        if p.returncode != (3 if lines else 0) or any(l not in WINE_GAPS for l in lines):
            raise Failure(f"vmdsnap.exe ended with {p.returncode}:\n" + self.wine_text(p.stderr))
        with open(out, encoding="utf-8") as f:
            return json.load(f)

    def capture_copy(self, state, name):
        """vmdsnap-sim on the copy's state file."""
        out = os.path.join(self.work, name)
        p = self.linux([self.a.snap_sim, "--sim-state", state, "-o", out], "vmdsnap-sim")
        if p.returncode != 0:
            raise Failure(f"vmdsnap-sim ended with {p.returncode}:\n" + p.stderr.decode("utf-8", "replace"))
        with open(out, encoding="utf-8") as f:
            return json.load(f)

    def real(self, args):
        p = self.wine([self.exe] + args, "vmdctl.exe " + " ".join(args))
        return p.returncode, self.wine_text(p.stdout), self.wine_text(p.stderr)

    def sim_exe_run(self, state, args):
        p = self.wine([self.sim_exe, "--sim-state", winpath(state), "--sim-argv0", "vmdctl.exe"] + args,
                      "vmdctl-sim.exe " + " ".join(args))
        return p.returncode, self.wine_text(p.stdout), self.wine_text(p.stderr)

    def sim_run(self, state, args):
        p = self.linux([self.a.sim, "--sim-state", state, "--sim-argv0", "vmdctl.exe"] + args, "vmdctl-sim")
        if p.returncode in (64, 65):
            raise Failure(f"vmdctl-sim refused the copy: " + p.stderr.decode("utf-8", "replace"))
        return p.returncode, self.as_wine_writes(p.stdout), self.as_wine_writes(p.stderr)


def without_free_memory(run):
    code, out, err = run
    return code, FREE_MEMORY.sub(r"\1*\2", out), err


def same_run(label, expected, actual, where):
    if expected == actual:
        return
    lines = [f"{label}: {where} differs from vmdctl.exe on the machine"]
    for name, e, a in zip(("exit code", "stdout", "stderr"), expected, actual):
        if e != a:
            lines.append(f"  {name}: machine {e!r}\n  {' ' * len(name)}  copy    {a!r}")
    raise Failure("\n".join(lines))


def state_without_stats(path):
    with open(path, encoding="utf-8") as f:
        state = json.load(f)
    stats = state.pop("stats", {})
    return state, stats


# --- Comparing two captures where Wine and the simulator can agree.

def masked_record(hex_text):
    """A record's bytes without what the moment of a command chooses: the
    checksum, the disk signature and the volume serial."""
    b = bytearray.fromhex(hex_text)
    for at in range(8, 12):
        if at < len(b):
            b[at] = 0
    for at in range(28, 32):
        if at < len(b):
            b[at] = 0
    if len(b) >= 48:
        fmt, length = b[44] | b[45] << 8, b[46] | b[47] << 8
        if length and fmt + 16 <= len(b):
            b[fmt + 12:fmt + 16] = b"\0\0\0\0"
    return b.hex()


def comparable_disk(d):
    d = copy.deepcopy(d)
    d.pop("signature", None)
    for key in ("settings", "status"):
        if isinstance(d.get(key), dict):
            for k in ("signature", "volumeSerial"):
                d[key].pop(k, None)
    for key in ("settingsRecord", "statusRecord", "pendingSettingsRecord"):
        if key in d:
            d[key] = masked_record(d[key])
    return d


def comparable(doc):
    """What two captures of one machine, one by Wine and one by the
    simulator, must share."""
    c = doc.get("controller", {})
    controller = {k: v for k, v in c.items() if k != "disks"}
    controller["disks"] = [comparable_disk(d) for d in c.get("disks", [])]
    # A disk's volume under Wine is a folder of the host: only where it is
    # mounted and on which device count.
    disk_volumes = sorted(
        (v["disk"], sorted(v.get("mountPoints", [])), v.get("devicePath"))
        for v in doc.get("volumes", []) if "disk" in v)
    letters = sorted(d["letter"] for d in doc.get("drives", []))
    for v in doc.get("volumes", []):
        if "disk" in v:
            letters += [m[0] for m in v.get("mountPoints", []) if len(m) == 3]
    mounted = doc.get("registry", {}).get("SYSTEM\\MountedDevices", {})
    # Wine's mount manager keeps its drives as Unix paths; a disk's value is 12 bytes.
    mounted = {k: v for k, v in mounted.items()
               if v.get("type") == "REG_BINARY" and len(v.get("data", "")) == 24}
    # The other drives and volumes are the prefix's own, the same on both
    # sides but for their free space, which is the moment's.
    moment = without_the_moment(doc)
    drives = moment.get("drives", [])
    other_volumes = [v for v in moment.get("volumes", []) if "disk" not in v]
    return {"controller": controller, "diskVolumes": disk_volumes, "letters": sorted(letters),
            "mountedDevices": mounted, "drives": drives, "otherVolumes": other_volumes}


def first_difference(a, b, where=""):
    if type(a) is not type(b):
        return f"{where}: {json.dumps(a, ensure_ascii=False)} / {json.dumps(b, ensure_ascii=False)}"
    if isinstance(a, dict):
        for k in sorted(set(a) | set(b)):
            if k not in a or k not in b:
                return f"{where}.{k}: only in the {'machine' if k in a else 'copy'}'s capture"
            d = first_difference(a[k], b[k], f"{where}.{k}")
            if d:
                return d
        return None
    if isinstance(a, list):
        if len(a) != len(b):
            return f"{where}: {len(a)} entries on the machine, {len(b)} on the copy:\n  " \
                   f"{json.dumps(a, ensure_ascii=False)}\n  {json.dumps(b, ensure_ascii=False)}"
        for i, (x, y) in enumerate(zip(a, b)):
            d = first_difference(x, y, f"{where}[{i}]")
            if d:
                return d
        return None
    return None if a == b else f"{where}: machine {json.dumps(a, ensure_ascii=False)}, copy {json.dumps(b, ensure_ascii=False)}"


def files_written(state):
    """The files the controller keeps in a state: path -> (size, head)."""
    return {f["path"].lower(): (f.get("size"), f.get("head", "")[:1024]) for f in state.get("files", [])}


# --- The steps.

def read_only_capture(sides, a, name):
    """Captures the machine and shows the capture changed nothing there."""
    if a.state:
        # The model writes the machine in its own form at the first request,
        # and the driver gives the disks their drives; its counters then start
        # afresh from a state written without them.
        sides.real(["ver"])
        state, _ = state_without_stats(a.state)
        with open(a.state, "w", encoding="utf-8") as f:
            json.dump(state, f, ensure_ascii=False)
    registry_before = export_registry(sides, "before") if a.registry else None
    doc = sides.capture(name)
    if a.state:
        after, stats = state_without_stats(a.state)
        if after != state:
            raise Failure("the capture changed the driver's machine: " + (first_difference(state, after) or ""))
        sent = set(stats.get("requests", {})) | set(stats.get("diskRequests", {}))
        if not stats.get("requests"):
            raise Failure("the driver's model received no request from the capture")
        if sent - QUERIES:
            raise Failure(f"the capture sent requests that are no queries: {sorted(sent - QUERIES)}")
    if registry_before is not None:
        registry_after = export_registry(sides, "after")
        if registry_after != registry_before:
            import difflib
            diff = "".join(list(difflib.unified_diff(registry_before.splitlines(True), registry_after.splitlines(True),
                                                     "before", "after"))[:40])
            raise Failure("the capture changed the prefix's registry:\n" + diff)
    return doc


def export_registry(sides, name):
    text = ""
    for hive in ("HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER"):
        path = os.path.join(sides.work, f"{name}-{hive}.reg")
        p = sides.wine(["regedit", "/E", winpath(path), hive], "regedit /E")
        if p.returncode != 0 or not os.path.exists(path):
            raise Failure(f"regedit could not export {hive}")
        with open(path, "rb") as f:
            text += f.read().decode("utf-16", errors="replace")
    return text


def without_the_moment(doc):
    """A capture without what changes from one moment to the next: memory,
    the clock and free space."""
    d = copy.deepcopy(doc)
    d.pop("host", None)
    d.pop("clock", None)
    for entry in d.get("drives", []) + d.get("volumes", []):
        entry.pop("freeBytes", None)
        entry.pop("freeToCaller", None)
    return d


def holds_texts(sides, doc, texts):
    """The copy in the file (UTF-8) and on standard output (ASCII) is one
    document, and holds each text as it is on the machine."""
    p = sides.wine([sides.snap], "vmdsnap.exe to standard output")
    try:
        piped = json.loads(p.stdout.decode("ascii"))
    except (UnicodeDecodeError, ValueError) as e:
        raise Failure(f"vmdsnap.exe to standard output: not an ASCII JSON document ({e})")
    filed = without_the_moment(doc)
    piped = without_the_moment(piped)
    if piped != filed:
        raise Failure("vmdsnap.exe wrote another document to standard output than to its file: "
                      + (first_difference(filed, piped) or ""))
    text = json.dumps(doc, ensure_ascii=False)
    for t in texts:
        if json.dumps(t, ensure_ascii=False)[1:-1] not in text:
            raise Failure(f"the copy does not hold {t}")


def read_commands(sides, doc, copy_path):
    disks = [d["index"] for d in doc.get("controller", {}).get("disks", [])]
    commands = [["ls"]] + [["view", str(i)] for i in disks] + [["im"], ["mem"], ["ver"]]
    for args in commands:
        label = " ".join(args)
        machine = sides.real(args)
        # Each side reads a copy of its own: the simulator writes its state back.
        for runner, where in ((sides.sim_exe_run, "vmdctl-sim.exe"), (sides.sim_run, "vmdctl-sim")):
            state = os.path.join(sides.work, "read.json")
            shutil.copyfile(copy_path, state)
            answer = runner(state, args)
            if args == ["mem"]:
                same_run(label, without_free_memory(machine), without_free_memory(answer), where)
            else:
                same_run(label, machine, answer, where)
    return len(commands)


def exported_files(sides, prefix, args):
    """The files a command wrote through the file system: `-f X:\\path` of export."""
    found = {}
    if args and args[0] == "export" and "-f" in args:
        target = args[args.index("-f") + 1]
        with open(prefix.unix_path(target), "rb") as f:
            data = f.read()
        found[target.lower()] = (len(data), data.hex()[:1024])
    return found


def read_state(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def changed(before, after):
    return {k: v for k, v in after.items() if before.get(k) != v}


def try_commands(sides, a, case, prefix, copy_path):
    sim_state = os.path.join(sides.work, "copy-run.json")
    shutil.copyfile(copy_path, sim_state)
    tried = 0
    for line in case.get("try", []):
        machine_files = files_written(read_state(a.state))
        copy_files = files_written(read_state(sim_state))
        args = shlex.split(line)
        machine = sides.real(args)
        answer = sides.sim_run(sim_state, args)
        same_run(line, machine, answer, "vmdctl-sim")
        tried += 1
        real_doc = sides.capture(f"after-{tried}.json")
        copy_doc = sides.capture_copy(sim_state, f"after-{tried}-copy.json")
        d = first_difference(comparable(real_doc), comparable(copy_doc), "capture")
        if d:
            raise Failure(f"after '{line}': {d}")
        # The files each side's command wrote: the controller's (an image) in
        # its machine, the program's own (a descriptor) on a drive of the prefix.
        wrote = changed(machine_files, files_written(read_state(a.state)))
        wrote.update(exported_files(sides, prefix, args))
        copy_wrote = changed(copy_files, files_written(read_state(sim_state)))
        if wrote != copy_wrote:
            raise Failure(f"after '{line}': files written differ:\n  machine {sorted(wrote.items())}\n"
                          f"  copy    {sorted(copy_wrote.items())}")
    return tried


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--prefix", required=True)
    ap.add_argument("--build", required=True)
    ap.add_argument("--sim", required=True)
    ap.add_argument("--snap-sim", required=True)
    ap.add_argument("--state")
    ap.add_argument("--registry", action="store_true")
    ap.add_argument("case")
    a = ap.parse_args()
    with open(a.case, encoding="utf-8") as f:
        case = json.load(f)
    work = tempfile.mkdtemp(prefix="vmd-snapshot-")
    sides = Sides(a, work)
    name = os.path.basename(a.case)
    drive_maker = os.path.join(a.build, "define_drive.exe")
    try:
        with run_real.arranged(a.prefix, drive_maker, sides.env, work) as (prefix, registry):
            for letter in case.get("drives", []):
                prefix.drive(letter)
            machine = case.get("machine", {})
            if a.state:
                registry.arrange(machine.get("registry", {}))
                with open(a.state, "w", encoding="utf-8") as f:
                    json.dump(machine, f, ensure_ascii=False)
                if os.path.exists(a.state + ".error"):
                    os.unlink(a.state + ".error")
            elif machine or case.get("try"):
                raise Failure("a case without the driver has no machine to arrange and nothing to try")
            doc = read_only_capture(sides, a, "copy.json")
            copy_path = os.path.join(work, "copy.json")
            if case.get("holds"):
                holds_texts(sides, doc, case["holds"])
            compared = read_commands(sides, doc, copy_path)
            tried = try_commands(sides, a, case, prefix, copy_path) if a.state else 0
            if a.state and os.path.exists(a.state + ".error"):
                with open(a.state + ".error") as f:
                    raise Failure("the driver's model could not use the state: " + f.read())
    except Failure as e:
        print(f"FAIL {name}\n{e}")
        return 1
    finally:
        shutil.rmtree(work, ignore_errors=True)
    print(f"ok {name}: captured, {compared} commands alike on the copy, {tried} tried on both")
    if sides.retried:
        scenario.note_passed_on_retry(a.case, "vmdsnap.exe and vmdctl.exe under Wine", sides.retried)
    return 0


if __name__ == "__main__":
    sys.exit(main())
