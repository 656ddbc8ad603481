#!/usr/bin/env bash
# Installs what building and testing need, from Debian's packages. Does
# nothing when everything is there already.
set -euo pipefail

packages=(
  cmake make g++ python3
  libgtest-dev libgmock-dev nlohmann-json3-dev
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
  wine64 wine python3-pefile
  locales
  clang libclang-rt-14-dev
)
if [ "${1:-}" = "--linux-only" ]; then
  packages=(cmake make g++ python3 libgtest-dev libgmock-dev nlohmann-json3-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
