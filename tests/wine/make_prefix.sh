#!/bin/sh
# Creates the private Wine prefix that a test run shares: make_prefix.sh DIR.
# The first run spends some seconds setting it up; later runs return at once.
set -eu
if [ $# -ne 1 ]; then
  echo "usage: $0 PREFIX-DIR" >&2
  exit 64
fi
prefix=$1
case $prefix in
  /*) ;;
  *) prefix=$(pwd)/$prefix ;;
esac
# One server for the whole run: processes that start while a server is
# shutting down can hang, and a running server makes every start faster.
keep_server() {
  WINEPREFIX="$prefix" WINEDEBUG=-all wineserver -p </dev/null >/dev/null 2>&1 || true
}
if [ -f "$prefix/.vmdctl-ready" ] && [ -f "$prefix/system.reg" ]; then
  keep_server
  exit 0
fi
mkdir -p "$prefix"
# Tests started side by side may ask at once: one creates, the others wait.
if command -v flock >/dev/null 2>&1; then
  exec 9>"$prefix.lock"
  flock 9
  if [ -f "$prefix/.vmdctl-ready" ] && [ -f "$prefix/system.reg" ]; then
    keep_server
    exit 0
  fi
fi
export WINEPREFIX="$prefix" WINEDEBUG=-all
# No desktop integration or Gecko/Mono prompts: the tests need none of it.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
wineboot -i >/dev/null 2>&1 || wine cmd /c exit >/dev/null 2>&1
wineserver -w 2>/dev/null || true
if [ ! -f "$prefix/system.reg" ]; then
  echo "make_prefix.sh: Wine did not create a prefix in $prefix" >&2
  exit 1
fi
touch "$prefix/.vmdctl-ready"
keep_server
