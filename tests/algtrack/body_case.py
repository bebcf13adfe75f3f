"""Recordings of a moving body."""
import json
import math

from algtrack_case import AlgtrackCase

MARKERS = {0: (50, 0, 0), 1: (-40, 20, 5), 2: (-10, -45, 10), 3: (10, 35, -30)}
SIX = {**MARKERS, 4: (-45, -20, -25), 5: (30, 30, 40)}


def turn(angle, axis):
    """Quaternion x y z w; degrees."""
    half = math.radians(angle) / 2
    length = math.sqrt(sum(a * a for a in axis))
    return [math.sin(half) * a / length for a in axis] + [math.cos(half)]


def rotate(q, v):
    x, y, z, w = q
    t = [2 * (y * v[2] - z * v[1]), 2 * (z * v[0] - x * v[2]), 2 * (x * v[1] - y * v[0])]
    return [v[0] + w * t[0] + y * t[2] - z * t[1], v[1] + w * t[1] + z * t[0] - x * t[2],
            v[2] + w * t[2] + x * t[1] - y * t[0]]


class BodyCase(AlgtrackCase):
    def write_body(self, name, markers, title="tool"):
        with open(self.path(name), "w", encoding="utf-8") as file:
            json.dump({"format": "alg_factory body", "version": 1, "name": title, "unit": "mm",
                       "markers": [{"id": i, "position": p} for i, p in markers.items()]}, file)

    def write_motion(self, name, tip=None, seconds=6):
        """A body that leans to and fro; about its tip (mm) or wandering. Room axes, metres."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            for n in range(int(seconds * 100) + 1):
                t = n / 100
                axis = (math.sin(0.9 * t), math.cos(1.3 * t), 0.5 * math.sin(2 * t))
                q = turn(30 * math.sin(2.1 * t), axis)
                p = (0.1 * math.sin(t), 0.05 * math.cos(2 * t), 0.1 * math.sin(1.5 * t))
                if tip:
                    p = [-v / 1000 for v in rotate(q, tip)]
                file.write(f"{t:.2f} {p[0]:.9f} {p[1]:.9f} {p[2]:.9f} "
                           f"{q[0]:.9f} {q[1]:.9f} {q[2]:.9f} {q[3]:.9f}\n")

    def simulate_body(self, name, body, motion, *more):
        self.succeed("simulate", "-o", name, "--product-type", 2, "--trajectory", motion, "--body",
                     body, "--seconds", 6, "--noise", 0.05, "--distance", 1500, "--marker-size", 10,
                     *more)
