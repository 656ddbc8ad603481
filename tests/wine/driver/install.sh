#!/bin/sh
# Installs the test controller driver into a Wine prefix:
#   install.sh PREFIX-DIR BUILD-DIR STATE-FILE
# BUILD-DIR holds vmdtestctl.sys, vmdmodel.dll and vmdctl.exe (the Windows
# build); STATE-FILE is the machine state the driver's model reads and
# writes. Creates the prefix if needed. A second call with the same files
# only makes sure the driver runs; with new files it copies them and starts
# Wine again. Ends when `vmdctl.exe ver` reaches the driver.
set -eu
if [ $# -ne 3 ]; then
  echo "usage: $0 PREFIX-DIR BUILD-DIR STATE-FILE" >&2
  exit 64
fi
here=$(cd "$(dirname "$0")" && pwd)
prefix=$1 build=$2 state=$3
case $prefix in /*) ;; *) prefix=$(pwd)/$prefix ;; esac
case $state in /*) ;; *) state=$(pwd)/$state ;; esac
export WINEPREFIX="$prefix" WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
service=vmdtestctl
# Every Wine call is bounded: a hang is reported, never waited out.
bounded() { timeout -k 5 60 "$@"; }

"$here/../make_prefix.sh" "$prefix"

sys32="$prefix/drive_c/windows/system32"
marker="$prefix/.vmdtestctl-installed"
same() { cmp -s "$1" "$2"; }
# The driver starts with Wine's services, a moment after the server: wait
# until the program finds it and gets the controller's version.
wait_for_driver() {
  echo '{}' > "$state"
  # Output to a file: processes Wine starts on the way keep a pipe open.
  out="$prefix/vmdtestctl-probe.txt"
  deadline=$(($(date +%s) + 90))
  while :; do
    if timeout -k 5 20 wine "$build/vmdctl.exe" ver >"$out" 2>&1 </dev/null; then
      return 0
    fi
    if [ "$(date +%s)" -ge $deadline ]; then
      echo "install.sh: the test controller driver does not answer; vmdctl.exe ver printed:" >&2
      cat "$out" >&2
      [ -f "$state.error" ] && cat "$state.error" >&2
      exit 1
    fi
    sleep 2
  done
}
for f in vmdtestctl.sys vmdmodel.dll vmdctl.exe; do
  if [ ! -f "$build/$f" ]; then
    echo "install.sh: $build/$f is missing; build the Windows targets vmdtestctl and vmdctl" >&2
    exit 1
  fi
done
if [ -f "$marker" ] && same "$build/vmdtestctl.sys" "$sys32/drivers/vmdtestctl.sys" &&
   same "$build/vmdmodel.dll" "$sys32/vmdmodel.dll"; then
  wait_for_driver
  exit 0
fi
fresh=yes
[ -f "$marker" ] && fresh=no

mkdir -p "$sys32/drivers" "$(dirname "$state")"
cp "$build/vmdtestctl.sys" "$sys32/drivers/vmdtestctl.sys"
cp "$build/vmdmodel.dll" "$sys32/vmdmodel.dll"
[ -f "$state" ] || echo '{}' > "$state"

if [ $fresh = no ]; then
  # The old files are loaded in winedevice.exe: start Wine again. The
  # device node makes services.exe load the new driver.
  bounded wineserver -k 2>/dev/null || true
  bounded wineserver -w 2>/dev/null || true
  "$here/../make_prefix.sh" "$prefix"
  touch "$marker"
  wait_for_driver
  exit 0
fi

winstate="Z:$(printf '%s' "$state" | sed 's#/#\\\\#g')"
reg="$prefix/vmdtestctl.reg"
# The state file's name, and a root-enumerated device node served by the
# driver: Wine calls its AddDevice when the service starts.
cat > "$reg" <<REG
REGEDIT4

[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Services\\$service\\Parameters]
"StateFile"="$winstate"

[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Enum\\ROOT\\VMDTESTCTL\\0000]
"HardwareID"=hex(7):52,00,4f,00,4f,00,54,00,5c,00,56,00,4d,00,44,00,54,00,45,00,53,00,54,00,43,00,54,00,4c,00,00,00,00,00
"Service"="$service"
"ClassGUID"="{4d36e97d-e325-11ce-bfc1-08002be10318}"
"DeviceDesc"="vmdctl test controller"
REG
bounded wine regedit /S "$(printf 'Z:%s' "$reg" | sed 's#/#\\#g')" >/dev/null 2>&1
bounded wine sc create $service type= kernel start= demand error= normal \
  binPath= 'C:\windows\system32\drivers\vmdtestctl.sys' >/dev/null 2>&1 || true
bounded wine sc start $service >/dev/null 2>&1 || true
touch "$marker"
wait_for_driver
