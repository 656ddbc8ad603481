#!/usr/bin/env python3
"""Runs one command, output dropped, and prints its wall time and the CPU
time its process used (user plus system, from the kernel's own count), in
microseconds: "WALL CPU". The CPU time is what the process itself cost; a
busy machine stretches its wall time far more than it.

  proc_time.py COMMAND [ARG ...]
"""
import os
import sys
import time


def main():
    with open(os.devnull, "wb") as null:
        start = time.perf_counter_ns()
        pid = os.posix_spawnp(sys.argv[1], sys.argv[1:], os.environ,
                             file_actions=[(os.POSIX_SPAWN_DUP2, null.fileno(), 1),
                                           (os.POSIX_SPAWN_DUP2, null.fileno(), 2)])
        _, _, usage = os.wait4(pid, 0)
        wall = (time.perf_counter_ns() - start) // 1000
    cpu = round((usage.ru_utime + usage.ru_stime) * 1e6)
    print(wall, cpu)


if __name__ == "__main__":
    main()
