#!/usr/bin/env bash
# Builds vmdctl-sim for Linux and tries it on a fresh simulated machine.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh --linux-only
cmake -S . -B build/linux -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/linux -j2 --target vmdctl-sim
sim="build/linux/vmdctl-sim"
export VMDCTL_SIM_STATE="$PWD/build/linux/try-machine.json"
run() {
  echo
  echo "\$ vmdctl $*"
  "$sim" --sim-argv0 vmdctl "$@" || echo "(exit code $?)"
}
# A machine with two disks and Invisible Memory in use.
cp tools/demo-machine.json "$VMDCTL_SIM_STATE"
run ver
run ls
run view 2
run view 5
run im
run mem
run view 9
# A disk's life: created, listed, changed, exported, read back, removed.
run add -n 512 -d T -l SCRATCH -s
run ls
run edit 0 -l WORK -s
run export 0 -f 'C:\work.vdd' -s
run del 0 -s
run ls
run ? view
echo
echo "The simulated machine is in $VMDCTL_SIM_STATE; try more with:"
echo "  VMDCTL_SIM_STATE=$VMDCTL_SIM_STATE $sim <command> [<option>...]"
