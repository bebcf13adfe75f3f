#!/usr/bin/env python3
"""algtrack body with product type 1's two-point object: a position and a direction."""
import csv
import json
import math
import re
import unittest

from algtrack_case import AlgtrackCase
from body_case import rotate

HALF = 34  # mm, of the simulated object


class BodyPairTest(AlgtrackCase):
    def write_pair(self, name="pair.json", places=((-HALF, 0, 0), (HALF, 0, 0)), ids=(2, 2)):
        with open(self.path(name), "w", encoding="utf-8") as file:
            json.dump({"format": "alg_factory body", "version": 1, "name": "stick", "unit": "mm",
                       "markers": [{"id": i, "position": p} for i, p in zip(ids, places)]}, file)

    def setUp(self):
        super().setUp()
        self.write_pair()

    def poses(self, *arguments):
        text = self.succeed("body", "pose", *arguments, "--csv", "-")
        return list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))

    def truth(self, name):
        """{time: (first place, second place)}, axes as delivered."""
        found = {}
        for time, marker, x, y, z in self.query(
                name, "SELECT time_ns, marker, x, y, z FROM truth WHERE object = 2"):
            found.setdefault(time, {})[marker] = (x, -y, -z)
        return {time: (ends[0], ends[1]) for time, ends in found.items()}

    def errors(self, rows, truth, skip_s=0.5):
        """Root mean square errors of middle (mm) and direction (degrees), and the mean squares of
        both in stated variances."""
        squares, count = [0, 0, 0, 0], 0
        for row in rows:
            time = round(float(row["time_s"]) * 1e9)
            if float(row["time_s"]) < skip_s or time not in truth:
                continue
            first, second = truth[time]
            middle = [(a + b) / 2 for a, b in zip(first, second)]
            along = [(b - a) / math.dist(first, second) for a, b in zip(first, second)]
            seen = rotate([float(row[name]) for name in ("qx", "qy", "qz", "qw")], (1, 0, 0))
            # The ends look alike.
            cosine = abs(sum(a * b for a, b in zip(seen, along)))
            angle = math.degrees(math.acos(min(1, cosine)))
            off = [float(row[axis]) - m for axis, m in zip("xyz", middle)]
            squares[0] += sum(v * v for v in off)
            squares[1] += angle**2
            squares[2] += sum((v / float(row["sd_" + axis]))**2 for axis, v in zip("xyz", off)) / 3
            squares[3] += (angle / float(row["sd_direction"]))**2 / 2
            count += 1
        self.assertGreater(count, 300)
        return (math.sqrt(squares[0] / count), math.sqrt(squares[1] / count), squares[2] / count,
                squares[3] / count)

    def test_position_and_direction_are_the_true_ones_within_their_deviations(self):
        self.simulate("r", "--seconds", 6, "--noise", 0.05)
        truth, found = self.truth("r"), {}
        for how in ("--single", None, "--smooth"):
            rows = self.poses("r", "--body", "pair.json", *([how] if how else []))
            position, turn, of_position, of_turn = found[how] = self.errors(rows, truth)
            self.assertTrue(0.5 < of_position < 1.8, (how, found[how]))
            self.assertTrue(0.5 < of_turn < 1.8, (how, found[how]))
            # Nobody sees a turn about the line of the two.
            self.assertEqual({row["sd_r" + axis] for row in rows for axis in "xyz"}, {"inf"})
        for better, worse in ((None, "--single"), ("--smooth", None)):
            self.assertLess(found[better][0], 0.9 * found[worse][0], found)
            self.assertLess(found[better][1], 0.9 * found[worse][1], found)

    def test_a_known_distance_that_is_wrong_gives_no_pose(self):
        self.write_pair("long.json", ((-50, 0, 0), (50, 0, 0)))
        self.simulate("r", "--seconds", 3, "--noise", 0.05)
        for how in ("--single", "--smooth"):
            result = self.run_algtrack("body", "pose", "r", "--body", "long.json", how, "--csv", "-")
            self.assertEqual((result.returncode, result.stdout.splitlines()[-1][:9]), (1, "time_s,bo"))
            self.assertIn("long.json: no pose in r: of 270 packets with both markers in both cameras "
                          "270 off shape\n", result.stderr)

    def test_without_two_blobs_of_its_id_there_is_no_pose(self):
        self.simulate("r", "--seconds", 1, "--product-type", 2)
        self.assertIn("no pose in r: never two blobs of id 2 in both cameras\n", self.find_in_one_line(
            "body", "pose", "r", "--body", "pair.json", "--csv", "p.csv"))

    def test_the_report_has_its_errors_too(self):
        self.simulate("r", "--seconds", 4, "--noise", 0.05, "--occlude", "2:2-2.5")
        said = self.succeed("body", "pose", "r", "--body", "pair.json", "--csv", "p.csv").splitlines()
        _, poses, position, turned = next(line for line in said if line.startswith("stick")).split()
        found, = json.loads(self.succeed("report", "r", "--body", "pair.json", "--json"))["bodies"]
        self.assertEqual((found["ids"], found["poses"], found["bridged"]), ([2, 2], int(poses), 45))
        self.assertAlmostEqual(found["error"]["position_mm"]["rms"], float(position), places=3)
        self.assertAlmostEqual(found["error"]["orientation_deg"]["rms"], float(turned), places=3)
        self.assertAlmostEqual(found["markers_visible"]["mean"], 2 * 3.5 / 4, places=9)

    def test_the_ends_keep_their_names_through_gaps_of_one_camera(self):
        self.simulate("r", "--seconds", 6, "--noise", 0.05, "--dropouts", 0.1, "--occlude", "2:2-2.1",
                      "--occlude", "2:4-5:left")
        rows, truth = self.poses("r", "--body", "pair.json"), self.truth("r")
        directions = set()
        for row in rows:
            first, second = truth[round(float(row["time_s"]) * 1e9)]
            seen = rotate([float(row[name]) for name in ("qx", "qy", "qz", "qw")], (1, 0, 0))
            directions.add(sum(a * (c - b) for a, b, c in zip(seen, first, second)) > 0)
        self.assertEqual(len(directions), 1)
        self.assertIn("bridged", {row["source"] for row in rows})
        self.assertGreater(len(rows), 500)
        _, _, of_position, of_turn = self.errors(rows, truth)
        self.assertLess(of_position, 2)
        self.assertLess(of_turn, 2)

    def test_an_mcap_file_has_it_where_its_markers_truly_were(self):
        self.simulate("r", "--seconds", 4, "--noise", 0.05)
        self.succeed("export", "r", "--mcap", "r.mcap", "--body", "pair.json")
        with open(self.path("r.mcap"), "rb") as file:  # not compressed
            texts = re.findall(rb'\{"version":1,[^\0]*?"direction_sd_rad":[0-9.e-]+\}\]\}', file.read())
        self.assertGreater(len(texts), 300)
        truth, starts = self.truth("r"), dict(self.query("r", "SELECT id, start_ns FROM calls"))
        squares = []
        for message in map(json.loads, texts[45:]):
            first, second = truth[starts[message["call"]]]
            found = [1000 * message["poses"][0]["position"][axis] for axis in "xyz"]
            squares.append(math.dist(found, [(a + b) / 2 for a, b in zip(first, second)])**2)
            self.assertNotIn("rotation_sd_rad", message["bodies"][0])
        self.assertLess(math.sqrt(sum(squares) / len(squares)), 4)

    def test_origin_may_be_anywhere_on_the_line(self):
        self.write_pair("end.json", ((0, 0, 0), (0, 0, 2 * HALF)))
        self.simulate("r", "--seconds", 3, "--noise", 0.05)
        middle = self.poses("r", "--body", "pair.json")
        for row, end in zip(middle, self.poses("r", "--body", "end.json")):
            places = []
            for one, at in ((row, (-HALF, 0, 0)), (end, (0, 0, 0))):
                turned = rotate([float(one[name]) for name in ("qx", "qy", "qz", "qw")], at)
                places.append([float(one[axis]) + v for axis, v in zip("xyz", turned)])
            self.assertLess(math.dist(*places), 0.01)

    def test_a_simulated_pair_follows_the_trajectory_in_product_type_1(self):
        self.write_pair("wide.json", ((-60, 0, 0), (20, 0, 0)))
        with open(self.path("motion.tum"), "w", encoding="utf-8") as file:
            for n in range(61):
                half = 0.4 * math.sin(n / 10)
                file.write(f"{n / 10} {0.05 * math.sin(n / 9)} 0 {0.05 * math.cos(n / 7)} "
                           f"0 0 {math.sin(half)} {math.cos(half)}\n")
        given = ["simulate", "-o", "w", "--trajectory", "motion.tum", "--body", "wide.json", "--noise",
                 0.05, "--marker-size", 10, "--seconds", 6, "--product-type"]
        self.succeed(*given, 1)
        for first, second in self.truth("w").values():
            self.assertAlmostEqual(math.dist(first, second), 80, places=6)
        self.assertEqual(self.query("w", "SELECT DISTINCT object FROM truth"), [(2,)])
        facts = dict(self.query("w", "SELECT key, value FROM meta"))
        self.assertEqual([m["id"] for m in json.loads(facts["true_body"])["markers"]], [2, 2])
        said = self.succeed("body", "pose", "w", "--body", "wide.json", "--csv", "p.csv", "--tum", "t")
        self.assertIn("how far they are turned about it is not known", said)
        cells = next(line for line in said.splitlines() if line.startswith("stick")).split()
        self.assertLess(float(cells[2]), 3)  # mm
        self.assertLess(float(cells[3]), 3)  # degrees
        with open(self.path("t-stick.tum"), encoding="utf-8") as file:
            self.assertIn("the turn about their line is not known", file.read())
        self.assertIn("wide.json: expected product type 1", self.end_in_one_line(2, *given, 2, "--force"))

    def test_what_is_no_pair_is_refused_in_one_line(self):
        self.simulate("r", "--seconds", 0.5)
        for ids, places, text in (
                ((2, 1), ((-9, 0, 0), (9, 0, 0)), "two markers of id 2, or three markers or more"),
                ((1, 1), ((-9, 0, 0), (9, 0, 0)), "found two and id 1"),
                ((2, 2), ((9, 0, 0), (9, 0, 0)), "in one place"),
                ((2, 2), ((-9, 1, 0), (9, 1, 0)), "the origin on the line"),
                ((2,), ((9, 0, 0),), "3 to 16 markers")):
            self.write_pair("bad.json", places, ids)
            self.assertIn(text, self.end_in_one_line(2, "body", "pose", "r", "--body", "bad.json",
                                                     "--csv", "x"))
        # Where three markers are needed, two are no body.
        for arguments in (["map"], ["check", "r"], ["pivot", "r"]):
            self.assertIn("pair.json: expected 3 to 16 markers",
                          self.end_in_one_line(2, "body", *arguments, "--body", "pair.json"))


if __name__ == "__main__":
    unittest.main()
