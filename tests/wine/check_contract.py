#!/usr/bin/env python3
"""Runs vmdctl-contract.exe, the Win32 services checked against Wine.

  check_contract.py WIN-BUILD-DIR GENERATED-DIR

The Wine prefix is the test run's own (the folder beside GENERATED-DIR
named wineprefix, or $VMDCTL_WINEPREFIX); it is created when missing.
"""
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check_contract.py WIN-BUILD-DIR GENERATED-DIR")
    build_dir, generated = sys.argv[1], sys.argv[2]
    exe = os.path.join(build_dir, "vmdctl-contract.exe")
    if not os.path.isfile(exe):
        print(f"FAIL: {exe} is not built (it is built with vmdctl-sim, or as the target vmdctl-contract)")
        return 1
    prefix = os.environ.get("VMDCTL_WINEPREFIX") or os.path.join(
        os.path.dirname(os.path.abspath(generated)), "wineprefix")
    subprocess.run([os.path.join(HERE, "make_prefix.sh"), prefix], check=True)
    env = dict(os.environ, WINEPREFIX=prefix, WINEDEBUG="-all")
    try:
        p = subprocess.run(["wine", exe], env=env, stdin=subprocess.DEVNULL, capture_output=True, timeout=240)
    except subprocess.TimeoutExpired as e:
        # What the program had written names the check it hung in.
        sys.stdout.write((e.stdout or b"").decode("utf-8", errors="replace").replace("\r\n", "\n"))
        sys.stdout.write((e.stderr or b"").decode("utf-8", errors="replace"))
        print("FAIL: vmdctl-contract.exe timed out")
        return 1
    sys.stdout.write(p.stdout.decode("utf-8", errors="replace").replace("\r\n", "\n"))
    if p.returncode != 0:
        sys.stdout.write(p.stderr.decode("utf-8", errors="replace"))
        print(f"FAIL: exit code {p.returncode}")
    return 0 if p.returncode == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
