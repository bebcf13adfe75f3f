#!/usr/bin/env python3
"""Kills a recording host (kill -9) at random moments and looks at what is left of its recording.

Every recording must open, pass SQLite's own integrity check, replay to the same bytes, and lack
less than the last second. Prints the worst case; fails if any of this does not hold.
"""
import argparse
import os
import random
import signal
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time


def kill_once(host, folder, delay):
    """Returns (calls that returned, their last time) of a host that lived for `delay` seconds."""
    recording, notes = os.path.join(folder, "killed.algrec"), os.path.join(folder, "notes")
    for name in os.listdir(folder):
        os.remove(os.path.join(folder, name))
    process = subprocess.Popen([host, recording, notes])
    time.sleep(delay)
    process.send_signal(signal.SIGKILL)
    if process.wait() != -signal.SIGKILL:
        sys.exit("the host ended by itself")
    data = open(notes, "rb").read() if os.path.exists(notes) else b""
    calls, last_ns = struct.unpack("<qq", data) if len(data) == 16 else (0, 0)
    return recording, calls, last_ns


def examine(recording):
    """Returns (calls in the file, start of its last one); raises sqlite3.Error if unreadable."""
    database = sqlite3.connect(recording)
    try:
        (verdict,) = database.execute("PRAGMA integrity_check").fetchone()
        if verdict != "ok":
            raise sqlite3.DatabaseError(verdict)
        return database.execute("SELECT count(*), max(start_ns) FROM calls").fetchone()
    finally:
        database.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--host", required=True, help="the program to kill")
    parser.add_argument("--algtrack", required=True)
    parser.add_argument("--kills", type=int, default=100)
    parser.add_argument("--longest", type=float, default=2.5, help="seconds before a kill, at most")
    parser.add_argument("--seed", type=int, default=random.randrange(2**32))
    options = parser.parse_args()
    print(f"seed {options.seed}")
    draw = random.Random(options.seed)

    unreadable = absent = failed = worst_rows = 0
    worst_seconds = 0.0
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(options.kills):
            recording, calls, last_ns = kill_once(
                options.host, folder, draw.uniform(0.0, options.longest))
            if not os.path.exists(recording):
                absent += 1  # killed before there was a file; then no call had returned either
                if calls > 0:
                    sys.exit("calls returned before the file existed")
                continue
            # The program reads first: it has to cope with the journal as the kill left it.
            replay = subprocess.run([options.algtrack, "replay", recording, "--verify"],
                                    capture_output=True, text=True)
            if replay.returncode != 0:
                failed += 1
                print(replay.stderr, end="")
            try:
                count, start_ns = examine(recording)
            except sqlite3.Error as error:
                unreadable += 1
                print(f"unreadable: {error}")
                continue
            worst_rows = max(worst_rows, calls - count)
            if calls > count:
                first_lost = start_ns if start_ns is not None else last_ns - 1e9 * calls / 360
                worst_seconds = max(worst_seconds, (last_ns - first_lost) / 1e9)
    print(f"{options.kills} kills: {unreadable} files unreadable, {failed} not replayed, "
          f"{absent} killed before there was a file; "
          f"lost at most {worst_rows} calls, {worst_seconds:.3f} s")
    if unreadable or failed or worst_seconds >= 1:
        sys.exit(1)


if __name__ == "__main__":
    main()
