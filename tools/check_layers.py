#!/usr/bin/env python3
"""Checks that no include points up the layers drawn in ARCHITECTURE.md.

Each folder of src/ has a rank; a file may include its own folder and any
folder of a lower rank. sim/ stands beside the platform implementations: it
sees the platform interface, the foundations and the wire contract
(controller/codes.h), nothing of the program above them. snapshot/, the
capture, stands where shell stands and may include sim/ as well: it writes
the simulator's state with the simulator's own record description. The two
entry points, which put a whole program together, may include anything.

Prints every upward include and exits 1 when there is one.
"""
import pathlib
import re
import sys

RANKS = {
    "base": 0,
    "resources": 0,
    "platform": 1,
    "console": 2,
    "controller": 3,
    "settings": 4,
    "volume": 5,
    "commands": 6,
    "shell": 7,
    "descriptor": 7,
    "snapshot": 7,
}
SIM_MAY_INCLUDE = ("base/", "platform/platform.h", "platform/host.h", "controller/codes.h", "sim/")
ENTRY_POINTS = {"src/shell/main_win32.cpp", "sim/main.cpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def violations(root: pathlib.Path):
    for path in sorted(list((root / "src").rglob("*")) + list((root / "sim").rglob("*"))):
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        rel = path.relative_to(root).as_posix()
        if rel in ENTRY_POINTS:
            continue
        for target in INCLUDE.findall(path.read_text(encoding="utf-8")):
            if rel.startswith("sim/"):
                if not target.startswith(SIM_MAY_INCLUDE):
                    yield rel, target
                continue
            own = rel.split("/")[1]
            other = target.split("/")[0]
            if other == own or (own == "snapshot" and other == "sim"):
                continue
            if other not in RANKS or RANKS[other] > RANKS[own]:
                yield rel, target


def main() -> int:
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent)
    found = list(violations(root))
    for rel, target in found:
        print(f"{rel}: includes \"{target}\", which is above it")
    print(f"{len(found)} upward includes")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
