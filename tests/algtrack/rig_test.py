#!/usr/bin/env python3
"""algtrack rig map, end to end."""
import csv
import json
import math
import os
import unittest

from algtrack_case import AlgtrackCase

OPENCV = os.path.join(os.environ["ALG_SOURCE"], "tests/kit/calibration/data/opencv")
STEREO = os.path.join(OPENCV, "stereo_fisheye.yml")


class RigTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.json",
                     "--image-size", "640,480")

    def test_writes_a_page_that_needs_nothing_and_allows_nothing_else(self):
        out = self.succeed("rig", "map", "--calibration", "rig.json", "-o", "map.html")
        self.assertIn("both cameras see", out)
        with open(self.path("map.html")) as file:
            page = file.read()
        self.assertIn("default-src 'none'; script-src 'sha256-", page)
        self.assertNotIn("unsafe", page)
        self.assertNotIn("http:", page)
        self.assertNotIn("https:", page)

    def test_rows_and_table_agree_with_the_textbook(self):
        data = json.loads(self.succeed("rig", "map", "--calibration", "rig.json", "--noise", 0.1,
                                       "--csv", "map.csv", "--json"))
        line, = [t for t in data[0]["table"] if t["depth_mm"] == 2000]
        with open(self.path("map.csv"), newline="") as file:
            rows = [r for r in csv.DictReader(file) if float(r["z_mm"]) == 2000]
        nearest = min(rows, key=lambda r: math.hypot(float(r["x_mm"]) + 50, float(r["y_mm"])))
        # z^2 sqrt(2) s / (f b) on the axis.
        expected = 2000 ** 2 * math.sqrt(2) * 0.1 / (380 * 100.3)
        self.assertAlmostEqual(float(nearest["sd_z_mm"]) / expected, 1, delta=0.1)
        deviations = sorted(float(r["sd_z_mm"]) for r in rows)
        self.assertAlmostEqual(line["sd_z_mm"], deviations[(len(deviations) - 1) // 2],
                               delta=1e-3 * line["sd_z_mm"])

    def test_compares_two_designs(self):
        with open(self.path("rig.json")) as file:
            data = json.load(file)
        data["translation"] = [2 * t for t in data["translation"]]
        del data["fundamental"]
        with open(self.path("long.json"), "w") as file:
            json.dump(data, file)
        out = json.loads(self.succeed("rig", "map", "--compare", "rig.json", "long.json",
                                      "-o", "designs.html", "--json"))
        self.assertEqual([d["rig"] for d in out], ["rig.json", "long.json"])
        short, long = ([t for t in d["table"] if t["depth_mm"] == 2000][0] for d in out)
        self.assertAlmostEqual(short["sd_z_mm"] / long["sd_z_mm"], 2, delta=0.2)
        with open(self.path("designs.html")) as file:
            self.assertIn("long.json", file.read())

    def test_the_product_type_decides_the_largest_depth(self):
        def deepest(product_type):
            data = json.loads(self.succeed("rig", "map", "--calibration", "rig.json", "--json",
                                           "--product-type", product_type))
            return max(t["depth_mm"] for t in data[0]["table"])
        self.assertEqual([deepest(t) for t in (0, 1, 2)], [3500, 3500, 4500])

    def test_refuses_wrong_input_in_one_line(self):
        for arguments in (["map"], [], ["map", "--calibration", "nowhere"],
                          ["map", "--compare", "rig.json"],
                          ["map", "--calibration", "rig.json", "--noise", "nan"],
                          ["map", "--calibration", "rig.json", "-o", "rig.json", "--force"],
                          ["map", "--calibration", "rig.json", "-o", "x", "--csv", "x"]):
            self.fail_in_one_line("rig", *arguments)
        self.assertFalse(os.path.exists(self.path("x")))
        rigs = ["rig.json"] * 3
        for arguments, found in (
                (["--compare", *rigs[:1]], "--compare: expected 2, found 1 (see"),
                (["--compare", *rigs], "--compare: expected 2, found 3 (see"),
                (["--compare", *rigs[:2], "--calibration", "rig.json"],
                 "--compare: expected without --calibration, found both")):
            self.assertIn(found, self.fail_in_one_line("rig", "map", *arguments))

    def test_the_unit_of_rigs_that_are_compared_can_be_said(self):
        stereo = os.path.join(os.environ["ALG_SOURCE"],
                              "tests/kit/calibration/data/opencv/stereo_fisheye.yml")
        self.assertIn("expected a unit", self.fail_in_one_line("rig", "map", "--compare", stereo,
                                                               stereo))
        self.succeed("rig", "map", "--compare", stereo, stereo, "--unit", "m")


if __name__ == "__main__":
    unittest.main()
