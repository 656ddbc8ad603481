#!/usr/bin/env python3
"""Runs vmdctl-contract.exe, the Win32 services checked against Wine.

  check_contract.py WIN-BUILD-DIR GENERATED-DIR [NAME-PART]

The Wine prefix is the test run's own (the folder beside GENERATED-DIR
named wineprefix, or $VMDCTL_WINEPREFIX); it is created when missing.
make_prefix.sh gives it drive T:, a folder of the prefix, for the volume
checks.
"""
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scenario"))
import run_scenario as scenario  # noqa: E402


def text(data):
    return (data or b"").decode("utf-8", errors="replace").replace("\r\n", "\n")


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit("usage: check_contract.py WIN-BUILD-DIR GENERATED-DIR [NAME-PART]")
    build_dir, generated = sys.argv[1], sys.argv[2]
    exe = os.path.join(build_dir, "vmdctl-contract.exe")
    if not os.path.isfile(exe):
        print(f"FAIL: {exe} is not built (it is built with vmdctl-sim, or as the target vmdctl-contract)")
        return 1
    prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(
        os.path.dirname(os.path.abspath(generated)), "wineprefix")
    subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
    env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all")
    if os.path.isdir(os.path.join(prefix, "dosdevices", "t:")):
        env["VMDCTL_CONTRACT_DRIVE"] = "T"
    code, out, err = scenario.run_to_end(["wine", exe] + sys.argv[3:], env, 240)
    # On a time-out what the program had written names the check it hung in.
    sys.stdout.write(text(out))
    if code != 0:
        sys.stdout.write(text(err))
    if code is None:
        print("FAIL: vmdctl-contract.exe timed out")
        return 1
    if code != 0:
        print(f"FAIL: exit code {code}")
    return 0 if code == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
