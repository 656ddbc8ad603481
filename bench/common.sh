# What the benchmarks share; sourced by them with $here set to this folder.

# The simulator to time, in $sim: the path given, else the one that
# tools/try.sh built, else the one of tools/test.sh.
find_sim() {
  sim=${1:-}
  if [ -z "$sim" ]; then
    for candidate in "$here/../build/linux/vmdctl-sim" "$here/../build/test/vmdctl-sim"; do
      if [ -x "$candidate" ]; then sim=$candidate; break; fi
    done
  fi
  [ -n "$sim" ] && [ -x "$sim" ] || { echo "no simulator at $sim (give its path as the first argument)" >&2; exit 1; }
}

# A scratch folder in $work, removed when the script ends.
make_work() {
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
}

# Times in microseconds, one a line, on standard input: prints
# "median M ms<word> over N runs (min A, max B)", <word> being $1.
median_line() {
  sort -n | awk -v word="${1:-}" '
    { t[NR] = $1 }
    END {
      m = (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2
      printf "median %.1f ms%s over %d runs (min %.1f, max %.1f)", m / 1000, word, NR, t[1] / 1000, t[NR] / 1000
    }'
}

# The machine of the listing benchmarks, written to $1: 128 disks (every
# sixteenth a Direct-IO disk, the others SCSI disks of growing size, some with
# an image, some not in good state) and 24 drive letters in use, C to Z.
ls_machine() {
  python3 - "$1" <<'PY'
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
}

# The wall time of one run of a command, in microseconds, output dropped.
# EPOCHREALTIME is read by the shell itself: no other process is timed.
run_time() {
  local start end
  start=${EPOCHREALTIME/[.,]/}
  "$@" >/dev/null 2>&1 || true
  end=${EPOCHREALTIME/[.,]/}
  echo $((10#$end - 10#$start))
}
