#!/usr/bin/env bash
# Times `vmdctl-sim ls` on a machine with 128 disks and 24 drive letters in
# use (C to Z), whole process, and prints the median wall time in ms.
#
#   bench/ls_bench.sh [path/to/vmdctl-sim] [runs]
#
# Not a test: the figure depends on the machine it runs on.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
find_sim "${1:-}"
runs=${2:-30}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
state=$work/machine.json

python3 - "$state" <<'PY'
import json, sys
disks, drives, volumes = [], [], []
for i in range(128):
    if i % 16 == 15:
        disks.append({"index": i, "size": (i + 1) << 20, "directIo": True, "letter": "A"})
    else:
        disks.append({"index": i, "size": (i + 1) << 26, "image": i % 3 == 0, "good": i % 7 != 0,
                      "systemDiskNumber": i + 1})
letters = [chr(c) for c in range(ord("C"), ord("Z") + 1)]
for n, letter in enumerate(letters):
    guid = "%08x-0000-0000-0000-000000000000" % (n + 1)
    name = "\\\\?\\Volume{%s}\\" % guid
    drives.append({"letter": letter, "type": "fixed", "volume": name})
    volumes.append({"name": name,
                    "interfacePath": "\\\\?\\STORAGE#Volume#{%s}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}" % guid,
                    "mountPoints": [letter + ":\\"], "fileSystem": "NTFS", "label": "V%d" % n,
                    "extents": [{"disk": n, "offset": 65536, "length": 1 << 26}]})
json.dump({"controller": {"disks": disks}, "drives": drives, "volumes": volumes}, open(sys.argv[1], "w"))
PY

# One run to check the listing and warm the caches.
rows=$("$sim" --sim-state "$state" ls 2>/dev/null | grep -c '^#')
[ "$rows" -eq 128 ] || { echo "expected 128 rows, found $rows" >&2; exit 1; }

# EPOCHREALTIME is read by the shell itself: no other process is timed.
median() {  # label, then the command; prints the median wall time of $runs runs
  local label=$1 times=() start end i
  shift
  for ((i = 0; i < runs; i++)); do
    start=${EPOCHREALTIME/[.,]/}
    "$@" >/dev/null 2>&1 || true
    end=${EPOCHREALTIME/[.,]/}
    times+=($((10#$end - 10#$start)))
  done
  echo "$label: $(printf '%s\n' "${times[@]}" | median_line)"
}

median "vmdctl-sim ls, 128 disks, 24 letters" "$sim" --sim-state "$state" ls
# The cost of starting the simulator at all, for comparison.
median "vmdctl-sim ver, default machine" "$sim" --sim-state "$work/default.json" ver
