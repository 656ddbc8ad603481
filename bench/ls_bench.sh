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

make_work
state=$work/machine.json

ls_machine "$state"

# One run to check the listing and warm the caches.
rows=$("$sim" --sim-state "$state" ls 2>/dev/null | grep -c '^#')
[ "$rows" -eq 128 ] || { echo "expected 128 rows, found $rows" >&2; exit 1; }

median() {  # label, then the command; prints the median wall time of $runs runs
  local label=$1 times=() i
  shift
  for ((i = 0; i < runs; i++)); do times+=("$(run_time "$@")"); done
  echo "$label: $(printf '%s\n' "${times[@]}" | median_line)"
}

median "vmdctl-sim ls, 128 disks, 24 letters" "$sim" --sim-state "$state" ls
# The cost of starting the simulator at all, for comparison.
median "vmdctl-sim ver, default machine" "$sim" --sim-state "$work/default.json" ver
