#!/usr/bin/env python3
"""What the pose filters cost and what they win, by filter mode: the tables of docs/smoothing.md.

    bench/smoothing.py --algtrack build/release/tools/algtrack/algtrack [--trajectory MOTION.tum]
                       [--calibration CAMERAS]

Everything but the first columns of the frequency response is measured, on recordings that algtrack
simulates with the real library. Without --trajectory (a measured motion: lines of t tx ty tz qx qy
qz qw in seconds and metres) the built-in motion is taken."""
import argparse
import cmath
import functools
import json
import math
import os
import sqlite3
import statistics
import struct
import subprocess
import tempfile

RATE = 90  # packets a second
SMOOTHING_RADIUS = 3  # mm: delivered positions are pulled towards their last three within it
PROCESS_NOISE = 1e-5
MEASUREMENT_NOISE = {0: 1e-6, 1: 1e-4}  # by filter mode
MODES = (-1, 0, 1)
FREQUENCIES = (0.5, 1, 2, 4, 8, 15, 30)
AHEAD_MS = (5, 11, 22, 50, 90)


@functools.lru_cache
def steady_gain(mode):
    """The gain (position, velocity) at which the filter of one axis settles: A = [1 h; 0 1],
    C = [1 0], Q = q I, R = r, predicted and corrected until nothing changes."""
    h, q, r = 1 / RATE, PROCESS_NOISE, MEASUREMENT_NOISE[mode]
    pp = pv = vv = 0.0
    for _ in range(10000):
        pp, pv, vv = pp + 2 * h * pv + h * h * vv + q, pv + h * vv, vv + q
        kp, kv = pp / (pp + r), pv / (pp + r)
        pp, pv, vv = (1 - kp) * pp, (1 - kp) * pv, vv - kv * pv
    return kp, kv


def response(mode, frequency):
    """H(z) = C (I - (I - K C) A / z)^-1 K at z = exp(i 2 pi f h)."""
    kp, kv = steady_gain(mode)
    h = 1 / RATE
    w = cmath.exp(-2j * math.pi * frequency * h)
    # M = I - (I - K C) A w
    a, b = 1 - (1 - kp) * w, -(1 - kp) * h * w
    c, d = kv * w, 1 - (1 - kv * h) * w
    return (d * kp - b * kv) / (a * d - b * c)


def delay_ms(value, frequency):
    return -cmath.phase(value) / (2 * math.pi * frequency) * 1000


class Bench:
    def __init__(self, algtrack, folder):
        self.algtrack, self.folder = algtrack, folder

    def run(self, *arguments):
        return subprocess.run([self.algtrack, *map(str, arguments)], check=True, text=True,
                              cwd=self.folder, capture_output=True).stdout

    def simulate(self, mode, *options):
        self.run("simulate", "-o", "r", "--force", "--filter-mode", mode, *options)

    def report(self, mode, *options):
        self.simulate(mode, *options)
        return json.loads(self.run("report", "r", "--json"))

    def answers(self):
        """(time, object, raw, filtered, rate) of every answer with an object."""
        rows = sqlite3.connect(os.path.join(self.folder, "r")).execute(
            "SELECT start_ns, type, output FROM calls WHERE kind = 'HandleEvent'"
            " AND length(output) = 52 ORDER BY id")
        for start, object_id, output in rows:
            values = struct.unpack("<i12f", output)
            if values[0] != -1:
                yield start / 1e9, object_id, values[1:4], values[7:10], values[10:13]

    def delivered_errors(self, report):
        """RMS distance of object 0 from the truth in the blocks (which no mode changes): in all, and
        of those with less and with more than the smoothing's radius to the packet before."""
        delivered, slow, fast, last = {}, [], [], None
        database = sqlite3.connect(os.path.join(self.folder, "r"))
        for call, block in database.execute("SELECT call, block FROM blocks"):
            for object_id, *place in struct.iter_unpack("<ifff36x", block[8:8 + 520]):
                if object_id == 0:
                    delivered[call] = place
        for call, *place in database.execute(
                "SELECT call, x, -y, -z FROM truth WHERE object = 0 ORDER BY frame"):
            if last is not None and call in delivered:
                kind = slow if math.dist(place, last) < SMOOTHING_RADIUS else fast
                kind.append(math.dist(delivered[call], place))
            last = place
        return (report["objects"][0]["error_mm"]["raw"]["rms"], rms(slow), rms(fast),
                len(slow) / (len(slow) + len(fast)))

    def measured_response(self, mode, frequency):
        """The same from a swinging object: the filtered row over the raw one at its frequency."""
        seconds = 20
        with open(os.path.join(self.folder, "swing.tum"), "w", encoding="ascii") as file:
            for n in range(seconds * 4 * RATE):
                t = n / (4 * RATE)
                file.write(f"{t:.9f} {0.02 * math.sin(2 * math.pi * frequency * t):.9f} 0 0 0 0 0 1\n")
        self.simulate(mode, "--trajectory", "swing.tum", "--seconds", seconds - 1,
                      "--product-type", 2)
        raw = filtered = 0
        for time, object_id, raw_place, place, _ in self.answers():
            if object_id != 0 or not 8 <= time < 18:  # settled; whole periods
                continue
            turn = cmath.exp(-2j * math.pi * frequency * time)
            raw += raw_place[0] * turn
            filtered += place[0] * turn
        return filtered / raw

    def extrapolation(self, ahead):
        """RMS distance from the truth `ahead` seconds later: of the filtered position, and of it
        moved on at its rate, which is what event 2 answers for a later stamp."""
        truth = {}
        for time, x, y, z in sqlite3.connect(os.path.join(self.folder, "r")).execute(
                "SELECT time_ns, avg(x), -avg(y), -avg(z) FROM truth WHERE object = 2"
                " GROUP BY frame"):
            truth[round(time / 1e9 * RATE)] = (x, y, z)
        late, moved = [], []
        for time, object_id, _, place, rate in self.answers():
            then = (time + ahead) * RATE
            before, share = math.floor(then), then - math.floor(then)
            if object_id != 2 or before not in truth or before + 1 not in truth or time < 2:
                continue
            really = [a + share * (b - a) for a, b in zip(truth[before], truth[before + 1])]
            late.append(math.dist(place, really))
            moved.append(math.dist([p + ahead * v for p, v in zip(place, rate)], really))
        return rms(late), rms(moved)


def curve_svg(measured):
    """Gain over frequency, both modes: lines from the equations, dots as measured."""
    left, top, width, height = 60, 16, 560, 260
    low, high = 0.25, RATE / 2
    x = lambda f: left + width * math.log(f / low) / math.log(high / low)
    y = lambda gain: top + height * (1.1 - gain) / 1.1
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 20} {top + height + 46}"'
             ' font-family="sans-serif" font-size="12">',
             '<title>Gain of the pose filters over the frequency of the motion</title>',
             f'<rect width="100%" height="100%" fill="#ffffff"/>']
    for gain in (0, 0.25, 0.5, 0.75, 1):
        lines.append(f'<path d="M{left} {y(gain):.1f}h{width}" stroke="#e3e7ec"/>'
                     f'<text x="{left - 8}" y="{y(gain) + 4:.1f}" text-anchor="end">{gain:g}</text>')
    for f in (0.5, 1, 2, 5, 10, 20, 45):
        lines.append(f'<path d="M{x(f):.1f} {top}v{height}" stroke="#e3e7ec"/>'
                     f'<text x="{x(f):.1f}" y="{top + height + 18}" text-anchor="middle">{f:g}</text>')
    lines.append(f'<text x="{left + width / 2}" y="{top + height + 38}" text-anchor="middle">'
                 'frequency of the motion, Hz</text>')
    for mode, color in ((0, "#2f6fdb"), (1, "#8a5a3c")):
        points = [low * (high / low) ** (n / 200) for n in range(201)]
        path = " ".join(f"{x(f):.1f},{y(abs(response(mode, f))):.1f}" for f in points)
        lines.append(f'<polyline points="{path}" fill="none" stroke="{color}" stroke-width="2"/>')
        lines += [f'<circle cx="{x(f):.1f}" cy="{y(abs(value)):.1f}" r="4" fill="{color}"/>'
                  for f, value in measured[mode].items()]
        label = 20 if mode == 0 else 9
        lines.append(f'<text x="{x(label):.1f}" y="{y(abs(response(mode, label))) - 12:.1f}" '
                     f'fill="{color}">mode {mode}</text>')
    return "\n".join(lines + ["</svg>", ""])


def rms(values):
    return math.sqrt(statistics.fmean(v * v for v in values)) if values else float("nan")


def mean(values):
    values = [value for value in values if value is not None]
    return statistics.fmean(values) if values else float("nan")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--algtrack", required=True)
    parser.add_argument("--trajectory")
    parser.add_argument("--calibration", help="of the cameras in motion, else the built-in ones")
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--svg", help="write the curve of the frequency response here")
    arguments = parser.parse_args()
    motion = ["--seconds", arguments.seconds]
    if arguments.trajectory:
        motion += ["--trajectory", os.path.abspath(arguments.trajectory)]
    if arguments.calibration:
        motion += ["--calibration", os.path.abspath(arguments.calibration)]
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(os.path.abspath(arguments.algtrack), folder)
        for mode in (0, 1):
            kp, kv = steady_gain(mode)
            noise = math.sqrt(statistics.fmean(
                abs(response(mode, RATE / 2 * (n + 0.5) / 2000)) ** 2 for n in range(2000)))
            print(f"mode {mode}: gain {kp:.4f}, {kv:.4f} per second; white noise out over in {noise:.3f}")
        print("\nFrequency response: equations | measured")
        print("Hz     " + "".join(f"mode {m}: gain  delay ms | gain  delay ms     " for m in (0, 1)))
        measured = {0: {}, 1: {}}
        for f in FREQUENCIES:
            line = f"{f:<7}"
            for mode in (0, 1):
                h, m = response(mode, f), bench.measured_response(mode, f)
                measured[mode][f] = m
                line += f"{abs(h):12.3f} {delay_ms(h, f):9.2f} |{abs(m):6.3f} {delay_ms(m, f):8.2f}    "
            print(line)
        if arguments.svg:
            with open(arguments.svg, "w", encoding="ascii") as file:
                file.write(curve_svg(measured))
        print("\nAt rest, 0.05 px of noise: jitter, mm (raw -> filtered)")
        for mode in MODES:
            objects = bench.report(mode, "--scene", "still", "--noise", 0.05, "--seconds", 60,
                                   "--product-type", 2)["objects"]
            raw, filtered = (mean(o["jitter_mm"][kind]["total"] for o in objects)
                             for kind in ("raw", "filtered"))
            print(f"mode {mode:2}: {raw:.3f} -> {filtered:.3f} ({filtered / raw:.2f})")
        print("\nIn motion, no noise: RMS error raw, filtered; lag; difference, shifted back")
        for mode in MODES:
            report = bench.report(mode, *motion, "--product-type", 2)
            objects = report["objects"]
            error = [mean((o["error_mm"][kind] or {}).get("rms") for o in objects)
                     for kind in ("raw", "filtered")]
            lag = [o["lag"] or {} for o in objects]
            print(f"mode {mode:2}: {error[0]:.2f} mm, {error[1]:.2f} mm; "
                  f"{mean(l.get('ms') for l in lag):.1f} ms; "
                  f"{mean(l.get('difference_mm') for l in lag):.2f} mm, "
                  f"{mean(l.get('shifted_difference_mm') for l in lag):.2f} mm")
        error, slow, fast, share = bench.delivered_errors(report)
        print(f"Delivered, object 0: {error:.3f} mm; where it moved by less than "
              f"{SMOOTHING_RADIUS} mm since the packet before ({share:.0%}) {slow:.3f} mm, "
              f"elsewhere {fast:.3f} mm")
        print("\nEvent 2, product type 0: RMS error after so many ms, as it is -> moved on")
        for mode in (0, 1):
            bench.simulate(mode, *motion, "--product-type", 0)
            print(f"mode {mode}: " + "; ".join(
                "{} ms {:.2f} -> {:.2f} mm".format(ms, *bench.extrapolation(ms / 1000))
                for ms in AHEAD_MS))


if __name__ == "__main__":
    main()
