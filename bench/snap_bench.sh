#!/usr/bin/env bash
# Times vmdsnap.exe capturing a machine of 128 disks under Wine, against the
# test controller driver, beside `vmdctl.exe ls` on the same machine: the
# median wall time of each over several runs, whole process, and the ratio.
# The capture is held to at most 3 times the listing.
#
#   bench/snap_bench.sh [WINDOWS-BUILD] [runs]
#
# WINDOWS-BUILD (default build/win) holds vmdctl.exe, vmdsnap.exe and the
# test driver (targets vmdctl vmdsnap vmdtestctl). The driver is installed
# into a prefix of its own under that folder (about 25 s the first time).
# Not a test: the figures depend on the machine it runs on.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
build=$(cd "${1:-$here/../build/win}" && pwd)
runs=${2:-7}
for f in vmdctl.exe vmdsnap.exe vmdtestctl.sys vmdmodel.dll; do
  [ -f "$build/$f" ] || { echo "no $build/$f (cmake --build $build --target vmdctl vmdsnap vmdtestctl)" >&2; exit 1; }
done

prefix=$build/wineprefix-bench
state=$build/wine-bench/state.json
mkdir -p "$(dirname "$state")"
"$here/../tests/wine/driver/install.sh" "$prefix" "$build" "$state" >/dev/null
export WINEPREFIX=$prefix WINEDEBUG=-all
work=$(mktemp -d)
trap 'rm -rf "$work"; echo "{}" > "$state"' EXIT

# 128 disks: SCSI disks with settings records, every sixteenth a Direct-IO
# disk without a letter, some with images and a status of their own.
python3 - "$state" <<'PY'
import json, sys
disks = []
for i in range(128):
    settings = {"sizeMb": 64 + i, "fileSystem": "NTFS" if i % 2 else "FAT32", "volumeLabel": "DISK%d" % i}
    disk = {"index": i, "size": (64 + i) << 20, "signature": "0x%08x" % (0x51000000 + i), "settings": settings}
    if i % 16 == 15:
        disk["directIo"] = True
        settings["diskFlags"] = "0x01000000"
    if i % 3 == 0:
        disk["image"] = True
        settings["imageFile"] = "C:\\images\\disk%d.img" % i
    if i % 5 == 0:
        disk["status"] = {"imQuotaMb": 16}
    disks.append(disk)
json.dump({"controller": {"disks": disks}}, open(sys.argv[1], "w"))
PY

# Checks that both see the 128 disks, and warms the driver's model up.
rows=$(timeout 120 wine "$build/vmdctl.exe" ls 2>/dev/null </dev/null | grep -c '^#' || true)
[ "$rows" -eq 128 ] || { echo "vmdctl.exe ls: expected 128 rows, found $rows" >&2; exit 1; }
timeout 300 wine "$build/vmdsnap.exe" -o "Z:${work//\//\\}\\copy.json" </dev/null >/dev/null 2>&1 || true
disks=$(python3 -c "import json,sys; print(len(json.load(open(sys.argv[1]))['controller']['disks']))" "$work/copy.json")
[ "$disks" -eq 128 ] || { echo "vmdsnap.exe: expected 128 disks, found $disks" >&2; exit 1; }

times() {  # the command; prints one time in microseconds a run
  local start end i
  for ((i = 0; i < runs; i++)); do
    start=${EPOCHREALTIME/[.,]/}
    timeout 300 "$@" </dev/null >/dev/null 2>&1 || true
    end=${EPOCHREALTIME/[.,]/}
    echo $((10#$end - 10#$start))
  done
}
median_of() { sort -n | awk '{ t[NR] = $1 } END { print (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }

times wine "$build/vmdctl.exe" ls > "$work/ls.txt"
times wine "$build/vmdsnap.exe" -o "Z:${work//\//\\}\\copy.json" > "$work/snap.txt"
echo "vmdctl.exe ls, 128 disks: $(median_line < "$work/ls.txt")"
echo "vmdsnap.exe, 128 disks:   $(median_line < "$work/snap.txt")"
ls_median=$(median_of < "$work/ls.txt")
snap_median=$(median_of < "$work/snap.txt")
awk -v s="$snap_median" -v l="$ls_median" 'BEGIN {
  r = s / l
  printf "capture / ls: %.2f (at most 3)\n", r
  exit r > 3
}'
