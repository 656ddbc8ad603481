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
# Wine's processes never get the lock's descriptor (9): a server that
# inherited it would hold the lock for as long as it runs.
# The first program a new server runs also starts the session's own
# processes (services, the desktop), which keep that program's output open;
# so the session starts here, with no test's output to hold.
keep_server() {
  WINEPREFIX="$prefix" WINEDEBUG=-all wineserver -p </dev/null >/dev/null 2>&1 9>&- || true
  WINEPREFIX="$prefix" WINEDEBUG=-all wine cmd /c exit </dev/null >/dev/null 2>&1 9>&- || true
}
ready() {
  [ -f "$prefix/.vmdctl-ready" ] && [ -f "$prefix/.vmdctl-setup-2" ] && [ -f "$prefix/system.reg" ]
}
if ready; then
  keep_server
  exit 0
fi
mkdir -p "$prefix"
# Tests started side by side may ask at once: one creates, the others wait.
if command -v flock >/dev/null 2>&1; then
  exec 9>"$prefix.lock"
  flock 9
  if ready; then
    keep_server
    exit 0
  fi
fi
export WINEPREFIX="$prefix" WINEDEBUG=-all
# No desktop integration or Gecko/Mono prompts: the tests need none of it.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
if [ ! -f "$prefix/.vmdctl-ready" ] || [ ! -f "$prefix/system.reg" ]; then
  wineboot -i >/dev/null 2>&1 9>&- || wine cmd /c exit >/dev/null 2>&1 9>&-
  wineserver -w 2>/dev/null 9>&- || true
  if [ ! -f "$prefix/system.reg" ]; then
    echo "make_prefix.sh: Wine did not create a prefix in $prefix" >&2
    exit 1
  fi
  touch "$prefix/.vmdctl-ready"
fi
# A program that crashes ends at once with a failure. Wine would otherwise
# start its debugger, which may hold the test's pipes open until the time
# limit, and the program's exit code can read 0. Drive T: is a folder of the
# prefix for the volume checks; Wine sees drives when its session starts,
# so a server that runs without them is ended first.
if [ ! -f "$prefix/.vmdctl-setup-2" ]; then
  wineserver -k 2>/dev/null 9>&- || true
  mkdir -p "$prefix/drive_t"
  ln -sfn ../drive_t "$prefix/dosdevices/t:"
  key='HKCU\Software\Wine\DllOverrides'
  wine reg add "$key" /v winedbg.exe /t REG_SZ /d '' /f </dev/null >/dev/null 2>&1 9>&-
  wine reg query "$key" /v winedbg.exe </dev/null >/dev/null 2>&1 9>&- || {
    echo "make_prefix.sh: could not turn off the debugger in $prefix" >&2
    exit 1
  }
  wineserver -w 2>/dev/null 9>&- || true
  touch "$prefix/.vmdctl-setup-2"
fi
keep_server
