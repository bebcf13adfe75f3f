#!/usr/bin/env python3
"""What a second worker brings a batch, and what a run costs beyond its replay.

    PYTHONPATH=build/release/bindings/python /usr/bin/python3 bench/batch_speedup.py [--seconds 60]

A real scheduler and its workers over TCP, started before the clock; every batch begins empty. The
overhead of a run is its share of one worker's batch less the same work in one process after the
other, without starting one."""
import argparse
import contextlib
import os
import socket
import statistics
import subprocess
import sys
import tempfile
import time

import alg_factory as af
from alg_factory import batch
from alg_factory.batch_run import library_identity, run


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def start(program, *arguments):
    return subprocess.Popen([sys.executable, "-m", f"distributed.cli.{program}", *arguments],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def timed_batch(recordings, workers, folder, number):
    """Seconds, without the start of the program and of the cluster."""
    from distributed import Client
    address = f"tcp://127.0.0.1:{free_port()}"
    processes = [start("dask_scheduler", "--host", address, "--dashboard-address",
                       "127.0.0.1:0")]
    processes += [start("dask_worker", address, "--nthreads", "1", "--no-nanny",
                        "--dashboard-address", "127.0.0.1:0",
                        "--local-directory", folder) for _ in range(workers)]
    try:
        with Client(address, timeout=60, set_as_default=False) as client:
            client.wait_for_workers(workers, timeout=120)
            variants = [{"name": "filter mode 1", "calibration": None, "calibration_name": None,
                         "filter_mode": 1, "product_type": None}]
            begin = time.perf_counter()
            rows = batch.batch(recordings, variants, os.path.join(folder, f"results-{workers}-{number}"),
                               lambda patience: contextlib.nullcontext(client))
            seconds = time.perf_counter() - begin
        assert [row["status"] for row in rows] == ["done"] * len(recordings), rows
        return seconds
    finally:
        for process in processes:
            process.kill()
            process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--recordings", type=int, default=40)
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        recordings = []
        for number in range(options.recordings):
            recordings.append(os.path.join(folder, f"{number}.algrec"))
            af.simulate(recordings[-1], seconds=options.seconds, seed=number, noise=0.05)
        begin = time.perf_counter()
        for path in recordings[:5]:
            row = run({"recording": path, "calibration": None, "filter_mode": 1,
                       "product_type": None, "library": library_identity()})
            assert row["status"] == "done", row
        alone = (time.perf_counter() - begin) / 5
        print(f"load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors; "
              f"{options.recordings} recordings of {options.seconds:g} s")
        print(f"a run without its process   {alone:7.2f} s")
        ones, twos = [], []
        for number in range(options.rounds):  # in turns: what else the machine does changes
            ones.append(timed_batch(recordings, 1, folder, number))
            load = os.getloadavg()[0]
            twos.append(timed_batch(recordings, 2, folder, number))
            print(f"one worker {ones[-1]:7.2f} s (load {load:.1f}), two {twos[-1]:7.2f} s "
                  f"(load {os.getloadavg()[0]:.1f})", flush=True)
        one, two = statistics.median(ones), statistics.median(twos)
        print(f"one worker, a run           {one / options.recordings:7.2f} s, of which overhead "
              f"{one / options.recordings - alone:.2f} s")
        print(f"two workers                 {one / two:7.2f} times as fast")


if __name__ == "__main__":
    main()
