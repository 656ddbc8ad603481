#!/usr/bin/env bash
# Builds everything and runs every test: unit tests, scenarios on the
# simulated machine, fuzz runs, the Windows builds and the release package
# under Wine; the Linux side runs under the address and undefined-behaviour
# sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
jobs="${JOBS:-2}"

cmake -S . -B build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/win -j"$jobs" --target vmdctl vmdctl-sim vmdctl_unit_tests vmdtestctl
# The release zip (cmake/package.cmake), which the Wine tier unpacks and checks.
cmake --build build/win -j"$jobs" --target release

# The Linux side is built with clang so that the fuzz targets (libFuzzer)
# build in the same tree and run as tests beside the others, and with
# AddressSanitizer and UndefinedBehaviorSanitizer, so that the unit and
# scenario tiers run under them: any finding ends that test with a failure.
# (One sanitized build rather than a plain one and a sanitized one keeps the
# whole run within 20 minutes on two cores; tools/try.sh builds it plain.)
sanitize="-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
CXX=clang++ cmake -S . -B build/test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVMDCTL_FUZZ=ON \
  -DCMAKE_CXX_FLAGS="$sanitize" -DCMAKE_EXE_LINKER_FLAGS="$sanitize" \
  -DVMDCTL_WIN_BUILD_DIR="$PWD/build/win" >/dev/null
cmake --build build/test -j"$jobs"

cd build/test
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest -j"$jobs" --output-on-failure --timeout 300
