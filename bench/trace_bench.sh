#!/usr/bin/env bash
# What the request trace costs: `vmdctl-sim ls` on the machine of
# ls_bench.sh (128 disks, 24 letters in use), whole process, without and with
# --sim-trace (to a new file each time), the two taken in turn so that a busy
# machine slows both alike. Prints the medians of the CPU time each process
# used (user plus system, as the kernel counts it) and of the wall time, and
# their ratios; fails when the trace costs more than 10 % of CPU time. The
# wall time is shown too, but on a machine that runs other work it varies
# from run to run by more than the trace costs, so it does not decide.
#
#   bench/trace_bench.sh [path/to/vmdctl-sim] [runs]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
find_sim "${1:-}"
runs=${2:-30}

make_work
state=$work/machine.json
trace=$work/trace.txt
ls_machine "$state"

# One run of each to check them and warm the caches.
rows=$("$sim" --sim-state "$state" ls 2>/dev/null | grep -c '^#')
[ "$rows" -eq 128 ] || { echo "expected 128 rows, found $rows" >&2; exit 1; }
"$sim" --sim-state "$state" --sim-trace "$trace" ls >/dev/null 2>&1
lines=$(wc -l <"$trace")
disks=$(grep -c ' code=QueryDiskInfo ' "$trace")
[ "$disks" -eq 128 ] || { echo "expected the trace to ask for 128 disks, found $disks" >&2; exit 1; }

plain=() traced=()
for ((i = 0; i < runs; i++)); do
  plain+=("$("$here/proc_time.py" "$sim" --sim-state "$state" ls)")
  rm -f "$trace"
  traced+=("$("$here/proc_time.py" "$sim" --sim-state "$state" --sim-trace "$trace" ls)")
done
column() { printf '%s\n' "${@:2}" | cut -d' ' -f"$1"; }
median_us() { sort -n | awk '{ t[NR] = $1 } END { print (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }
cpu_a=$(column 2 "${plain[@]}" | median_us)
cpu_b=$(column 2 "${traced[@]}" | median_us)
wall_a=$(column 1 "${plain[@]}" | median_us)
wall_b=$(column 1 "${traced[@]}" | median_us)
echo "vmdctl-sim ls, 128 disks, 24 letters: $(column 2 "${plain[@]}" | median_line " CPU"); $(column 1 "${plain[@]}" | median_line " wall")"
echo "the same with --sim-trace ($lines lines, $(wc -c <"$trace") bytes): $(column 2 "${traced[@]}" | median_line " CPU"); $(column 1 "${traced[@]}" | median_line " wall")"
# Where valgrind is installed, the instructions each process ran, counted
# once each: the same on a busy machine as on an idle one.
if command -v valgrind >/dev/null; then
  count() { valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null | sed -n 's/.*Collected : //p'; }
  rm -f "$trace"
  ins_a=$(count "$sim" --sim-state "$state" ls)
  ins_b=$(count "$sim" --sim-state "$state" --sim-trace "$trace" ls)
  awk -v a="$ins_a" -v b="$ins_b" 'BEGIN { printf "instructions: %d without, %d with the trace: %+.1f %%\n", a, b, (b / a - 1) * 100 }'
fi
awk -v a="$cpu_a" -v b="$cpu_b" -v wa="$wall_a" -v wb="$wall_b" 'BEGIN {
  r = b / a
  printf "wall time: trace costs %+.1f %% (ratio %.3f; not decisive)\n", (wb / wa - 1) * 100, wb / wa
  printf "CPU time: trace costs %+.1f %% (ratio %.3f; at most 10 %% allowed)\n", (r - 1) * 100, r
  exit (r > 1.10)
}'
