#!/usr/bin/env python3
"""How long a recording takes to become numpy arrays, and a block to reach Python.

    PYTHONPATH=build/release/bindings/python /usr/bin/python3 bench/python_load.py [--seconds 600]

Prints the median and the fastest of several runs, wall clock and processor time; the file is in the
system's cache, as after a copy or a look at it."""
import argparse
import os
import statistics
import tempfile
import time

import alg_factory as af


def measure(what, runs, work):
    wall, cpu = [], []
    for _ in range(runs):
        begin, begin_cpu = time.perf_counter(), time.process_time()
        result = work()
        wall.append(time.perf_counter() - begin)
        cpu.append(time.process_time() - begin_cpu)
    print(f"{what:58} {statistics.median(wall):8.3f} {min(wall):8.3f} {min(cpu):8.3f}")
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=600)
    parser.add_argument("--runs", type=int, default=7)
    options = parser.parse_args()
    print(f"load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
    print(f"{'seconds':58} {'median':>8} {'fastest':>8} {'cpu':>8}")
    with tempfile.TemporaryDirectory() as folder:
        for product_type in (1, 2):
            path = os.path.join(folder, f"{product_type}.algrec")
            counts = af.simulate(path, product_type=product_type, seconds=options.seconds, noise=0.05)

            def load():
                recording = af.Recording(path)
                recording.blocks  # calls, packets, blocks, answers and messages are read together
                return recording

            def load_truth():
                af.Recording(path).markers

            name = f"product type {product_type}, {options.seconds:g} s"
            measure(f"{name}: {counts['calls']:,} calls as arrays", options.runs, load)
            measure(f"{name}: the truth", options.runs, load_truth)
            measure(f"{name}: every blob and its end", 1, lambda: af.Recording(path).blobs)
        packets = packets_of(path)
        host = af.Host(2, af.Recording(path).calibration)

        def feed():
            for packet in packets:
                host.feed(packet)

        measure(f"{len(packets):,} packets fed, nobody listens", 3, feed)
        host.on_block = lambda block: None
        measure(f"{len(packets):,} packets fed, on_block gets a view", 3, feed)


def packets_of(path):
    recording = af.Recording(path)
    return [recording.payload(call) for call in recording.packets["call"][:2000]]


if __name__ == "__main__":
    main()
