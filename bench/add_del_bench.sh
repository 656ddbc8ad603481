#!/usr/bin/env bash
# Times a whole `add -s` then `del -s` cycle of vmdctl-sim on a machine with
# 127 disks (one index left free), whole processes, and prints the median
# wall time in ms beside the virtual time the cycle spent waiting (the
# simulator's waits cost no real time).
#
#   bench/add_del_bench.sh [path/to/vmdctl-sim] [runs]
#
# Not a test: the figure depends on the machine it runs on.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
find_sim "${1:-}"
runs=${2:-20}

make_work
base=$work/base.json
state=$work/machine.json

# 127 disks of 64 MB on indexes 1 to 127, each with its volume; the new disk takes index 0.
python3 - "$base" <<'PY'
import json, sys
disks = [{"index": i, "size": 64 << 20, "settings": {"volumeLabel": "D%d" % i}} for i in range(1, 128)]
volumes = [{"disk": i} for i in range(1, 128) if i <= 20]
json.dump({"controller": {"disks": disks, "memoryLimitMb": 1 << 20}, "volumes": volumes}, open(sys.argv[1], "w"))
PY

elapsed() { python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["clock"]["elapsedMs"])' "$1"; }

# One cycle to check that it works.
cp "$base" "$state"
"$sim" --sim-state "$state" add -n 256 -s
"$sim" --sim-state "$state" ls | grep '^#0 ' >/dev/null || { echo "add did not create disk 0" >&2; exit 1; }

"$sim" --sim-state "$state" del 0 -s
cp "$base" "$state"
"$sim" --sim-state "$state" add -n 256 -s
added=$(elapsed "$state")
"$sim" --sim-state "$state" del 0 -s
deleted=$(elapsed "$state")

times=()
for ((i = 0; i < runs; i++)); do
  cp "$base" "$state"
  start=${EPOCHREALTIME/[.,]/}
  "$sim" --sim-state "$state" add -n 256 -s >/dev/null
  "$sim" --sim-state "$state" del 0 -s
  end=${EPOCHREALTIME/[.,]/}
  times+=($((10#$end - 10#$start)))
done
echo "add -s then del -s, 127 disks: $(printf '%s\n' "${times[@]}" | median_line " real");" \
  "virtual time waited: add $added ms, del $((deleted - added)) ms"
