#!/usr/bin/env bash
# Builds everything and runs every test: unit tests, scenarios on the
# simulated machine, fuzz runs, and the Windows builds under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
jobs="${JOBS:-2}"

cmake -S . -B build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/win -j"$jobs" --target vmdctl vmdctl-sim vmdctl_unit_tests vmdtestctl

# The Linux side is built with clang so that the fuzz targets (libFuzzer)
# build in the same tree and run as tests beside the others.
CXX=clang++ cmake -S . -B build/test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVMDCTL_FUZZ=ON \
  -DVMDCTL_WIN_BUILD_DIR="$PWD/build/win" >/dev/null
cmake --build build/test -j"$jobs"

cd build/test
ctest -j"$jobs" --output-on-failure --timeout 300
