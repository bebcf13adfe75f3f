#!/usr/bin/env python3
"""algtrack body: shape, pose, tip and check, of simulated recordings against their truth."""
import csv
import json
import math
import os
import unittest

from body_case import MARKERS, SIX, BodyCase, rotate


class BodyTest(BodyCase):
    def poses(self, *arguments):
        text = self.succeed("body", "pose", *arguments, "--csv", "-")
        return list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))

    def setUp(self):
        super().setUp()
        self.write_body("true.json", MARKERS)
        self.write_motion("motion.tum")
        self.simulate_body("r", "true.json", "motion.tum")

    def test_learned_distances_are_the_true_ones_within_their_deviations(self):
        found = json.loads(self.succeed("body", "learn", "r", "--ids", "3,1,0,2", "-o", "tool.json",
                                        "--json"))
        self.assertEqual(len(found["distances"]), 6)
        self.assertAlmostEqual(found["noise_px"], 0.05, delta=0.01)
        self.assertAlmostEqual(found["misfit"], 1, delta=0.2)
        for d in found["distances"]:
            truth = math.dist(MARKERS[d["first"]], MARKERS[d["second"]])
            self.assertLess(abs(d["distance_mm"] - truth), min(1, 4 * d["sd_mm"]), d)
            self.assertGreater(d["frames"], 400)
        with open(self.path("tool.json"), encoding="utf-8") as file:
            body = json.load(file)
        self.assertEqual([marker["id"] for marker in body["markers"]], [0, 1, 2, 3])

    def test_poses_put_the_markers_where_they_truly_were(self):
        truth = {}
        for time, thing, x, y, z in self.query("r", "SELECT time_ns, object, x, y, z FROM truth"):
            truth[(time, thing)] = (x, -y, -z)  # as delivered
        squares, expected, count = 0, 0, 0
        for row in self.poses("r", "--body", "true.json", "--single"):
            q = [float(row[name]) for name in ("qx", "qy", "qz", "qw")]
            p = [float(row[name]) for name in "xyz"]
            time = round(float(row["time_s"]) * 1e9)
            for thing, place in MARKERS.items():
                where = [a + b for a, b in zip(rotate(q, place), p)]
                squares += math.dist(where, truth[(time, thing)])**2
            expected += 4 * sum(float(row["sd_" + axis])**2 for axis in "xyz")
            count += 1
            self.assertEqual(row["body"], "tool")
            self.assertGreaterEqual(int(row["markers"]), 3)
        self.assertGreater(count, 400)
        # Every marker is as far off as the origin is, and a little more where the body turned.
        self.assertLess(squares, 2 * expected)
        self.assertGreater(squares, 0.7 * expected)

    def errors(self, *arguments, first_s=1):
        """Root mean square error of the markers, mm, and what is stated of the origin."""
        truth = {}
        for time, thing, x, y, z in self.query("r", "SELECT time_ns, object, x, y, z FROM truth"):
            truth[(time, thing)] = (x, -y, -z)
        squares, stated, count = 0, 0, 0
        for row in self.poses("r", "--body", "true.json", *arguments):
            time = round(float(row["time_s"]) * 1e9)
            if float(row["time_s"]) < first_s or (time, 0) not in truth:
                continue
            q = [float(row[name]) for name in ("qx", "qy", "qz", "qw")]
            p = [float(row[name]) for name in "xyz"]
            squares += sum(math.dist([a + b for a, b in zip(rotate(q, place), p)],
                                     truth[(time, thing)])**2 for thing, place in MARKERS.items())
            stated += 4 * sum(float(row["sd_" + axis])**2 for axis in "xyz")
            count += 4
        self.assertGreater(count, 1000)
        return math.sqrt(squares / count), math.sqrt(stated / count)

    def test_the_past_helps_and_the_future_more(self):
        single, _ = self.errors("--single")
        live, stated = self.errors()
        smooth, smooth_stated = self.errors("--smooth")
        self.assertLess(live, 0.85 * single)
        self.assertLess(smooth, 0.75 * live)
        self.assertAlmostEqual(live / stated, 1.1, delta=0.3)
        self.assertAlmostEqual(smooth / smooth_stated, 1.1, delta=0.3)

    def test_errors_against_the_truth_do_not_depend_on_the_body_frame(self):
        quarter = {i: (p[1] + 5, -p[0], p[2]) for i, p in MARKERS.items()}
        self.write_body("turned.json", quarter)
        lines = [self.succeed("body", "pose", "r", "--body", name, "--single", "--csv", "p.csv",
                              "--force").splitlines()[-2].split()
                 for name in ("true.json", "turned.json")]
        self.assertEqual(lines[0][:2], lines[1][:2])
        self.assertAlmostEqual(float(lines[0][3]), float(lines[1][3]), delta=0.002)  # degrees
        self.assertLess(float(lines[0][3]), 1)
        self.assertGreater(float(lines[0][3]), 0.02)
        facts = dict(self.query("r", "SELECT key, value FROM meta"))
        self.assertEqual(json.loads(facts["true_body"])["name"], "tool")

    def test_markers_that_face_away_are_unseen(self):
        def seen(name):
            return {row[0]: row[1] for row in self.query(
                name, "SELECT object, sum(in_right) FROM truth GROUP BY object")}
        self.write_motion("leaning.tum")
        facing = {0: (0, 1, 0), 1: (0, -1, 0), 2: (1, 0, 0), 3: (0, 0, 1)}  # room: y is the depth
        with open(self.path("true.json"), encoding="utf-8") as file:
            body = json.load(file)
        for marker in body["markers"]:
            marker["facing"] = facing[marker["id"]]
        with open(self.path("cones.json"), "w", encoding="utf-8") as file:
            json.dump(body, file)
        self.simulate_body("all", "cones.json", "leaning.tum")
        self.simulate_body("cones", "cones.json", "leaning.tum", "--emission", 60)
        self.assertEqual(set(seen("all").values()), {540})
        cones = seen("cones")
        self.assertEqual(cones[0], 0)       # looks away from the cameras all the time
        self.assertEqual(cones[1], 540)     # looks at them, leaning by 30 degrees at most
        self.assertLess(cones[2], 270)
        self.assertIn("--emission: expected --body with it, found none",
                      self.end_in_one_line(2, "simulate", "-o", "x", "--emission", 60))

    def test_report_has_the_errors_of_the_live_poses_in_all_its_writers(self):
        said = self.succeed("body", "pose", "r", "--body", "true.json", "--csv", "p.csv").splitlines()
        name, poses, position, turned = said[-2].split()
        found, = json.loads(self.succeed("report", "r", "--body", "true.json", "--json"))["bodies"]
        self.assertEqual((found["name"], found["ids"]), (name, [0, 1, 2, 3]))
        self.assertEqual((found["packets"], found["poses"], found["bridged"]), (540, int(poses), 0))
        self.assertAlmostEqual(found["error"]["position_mm"]["rms"], float(position), places=3)
        self.assertAlmostEqual(found["error"]["orientation_deg"]["rms"], float(turned), places=3)
        self.assertEqual(found["markers_visible"]["mean"], 4)
        self.assertAlmostEqual(found["residual_px"]["rms"], 0.05, delta=0.02)
        result = self.run_algtrack("report", "r", "--body", "true.json", "-o", "r.html")
        if "carries no report page" in result.stderr:
            self.skipTest("this build carries no report page")
        lines = result.stdout.splitlines()
        cells = lines[lines.index("Bodies, live") + 2].split()
        self.assertEqual(cells[:3], ["tool", "100.00", "4.00"])
        self.assertEqual(cells[3:5], [position, turned])

    def test_report_counts_the_markers_that_are_visible_and_bridges(self):
        self.simulate_body("hidden", "true.json", "motion.tum", "--occlude", "1:2-4", "--occlude",
                           "0:3-3.5", "--occlude", "2:3-3.5", "--occlude", "3:3-3.5")
        found, = json.loads(self.succeed("report", "hidden", "--body", "true.json", "--json"))["bodies"]
        self.assertEqual((found["poses"], found["bridged"]), (540, 45))
        # 4 s with four, 1.5 s with three, 0.5 s with none.
        self.assertAlmostEqual(found["markers_visible"]["mean"], (4 * 4 + 3 * 1.5) / 6, places=9)
        self.assertEqual(found["residual_px"]["count"], 540 - 45)
        inside, = json.loads(self.succeed("report", "hidden", "--body", "true.json", "--json",
                                          "--from", 3, "--to", 3.5))["bodies"]
        self.assertEqual((inside["packets"], inside["bridged"], inside["residual_px"]), (45, 45, None))
        self.assertGreater(inside["error"]["position_mm"]["rms"],
                           found["error"]["position_mm"]["rms"])

    def test_report_of_a_body_without_truth_knows_no_errors(self):
        self.change("r", "DELETE FROM truth")
        found, = json.loads(self.succeed("report", "r", "--body", "true.json", "--json"))["bodies"]
        self.assertIsNone(found["error"])
        self.assertEqual(found["poses"], 540)
        self.write_body("other.json", {2: (0, 0, 0), 4: (9, 0, 0), 5: (0, 9, 0)})
        self.assertIn("other.json: expected ids of its own, found id 2, which true.json has",
                      self.end_in_one_line(2, "report", "r", "--json", "--body", "true.json",
                                           "--body", "other.json"))

    def test_prediction_is_of_the_moment_ahead(self):
        rows = self.poses("r", "--body", "true.json", "--ahead", 20)
        self.assertTrue(all(row["source"] == "predicted" for row in rows))
        self.assertAlmostEqual(float(rows[5]["time_s"]), 5 / 90 + 0.02, places=6)
        live = self.poses("r", "--body", "true.json")
        self.assertEqual(len(rows), len(live))
        self.assertGreater(float(rows[100]["sd_z"]), float(live[100]["sd_z"]))
        self.assertIn("--ahead: expected a live pose, found --smooth",
                      self.end_in_one_line(2, "body", "pose", "r", "--body", "true.json",
                                           "--smooth", "--ahead", 5, "--csv", "x.csv"))

    def test_rows_name_the_packet_and_the_call_and_those_of_a_stretch_are_as_of_the_whole(self):
        calls = [call for call, in self.query(
            "r", "SELECT id FROM calls WHERE kind = 'InputStream' ORDER BY id")]
        for manner in ([], ["--smooth"], ["--single"], ["--ahead", 20]):
            rows = self.poses("r", "--body", "true.json", *manner)
            for row in rows:
                self.assertEqual(int(row["call"]), calls[int(row["packet"])])
            wanted = [row for row in rows if 90 <= int(row["packet"]) < 180]  # 90 a second
            self.assertGreater(len(wanted), 85)
            self.assertEqual(
                self.poses("r", "--body", "true.json", *manner, "--from", 1, "--to", 2), wanted)
        self.end_in_one_line(2, "body", "pose", "r", "--body", "true.json", "--csv", "x.csv",
                             "--from", 2, "--to", 1)

    def test_two_bodies_are_tracked_at_once(self):
        for name, ids in (("left", (0, 1, 2)), ("right", (3, 4, 5))):
            self.write_body(name + ".json", {i: SIX[i] for i in ids}, name)
        self.write_body("six.json", SIX)
        self.simulate_body("both", "six.json", "motion.tum")
        rows = self.poses("both", "--body", "left.json", "--body", "right.json")
        self.assertEqual([row["body"] for row in rows[200:204]], ["left", "right"] * 2)
        self.assertEqual({row["markers"] for row in rows[200:]}, {"3"})
        # Both frames are that of the six: the same pose, within what is stated.
        for left, right in zip(rows[200::2], rows[201::2]):
            self.assertEqual(left["time_s"], right["time_s"])
            for axis in "xyz":
                self.assertLess(abs(float(left[axis]) - float(right[axis])), 5 *
                                math.hypot(float(left["sd_" + axis]), float(right["sd_" + axis])))
        self.write_body("one.json", {i: SIX[i] for i in (0, 1, 2)})
        self.write_body("other.json", {i: SIX[i] for i in (3, 4, 5)})
        self.assertIn("--tum: expected bodies of different names",
                      self.end_in_one_line(2, "body", "pose", "both", "--body", "one.json",
                                           "--body", "other.json", "--tum", "t"))

    def test_trajectory_file_has_the_poses_in_metres(self):
        self.succeed("body", "pose", "r", "--body", "true.json", "--csv", "p.csv", "--tum", "t")
        with open(self.path("t-tool.tum"), encoding="utf-8") as file:
            line = [float(v) for v in next(x for x in file if x[0] != "#").split()]
        with open(self.path("p.csv"), encoding="utf-8") as file:
            row = next(csv.DictReader(x for x in file if x[0] != "#"))
        for value, name in zip(line, ("time_s", "x", "y", "z", "qx", "qy", "qz", "qw")):
            scale = 1000 if name in "xyz" else 1
            self.assertAlmostEqual(value * scale, float(row[name]), places=5)

    def test_a_trajectory_goes_to_standard_output_alone(self):
        self.succeed("body", "pose", "r", "--body", "true.json", "--tum", "t")
        with open(self.path("t-tool.tum"), encoding="utf-8") as file:
            expected = file.read()
        self.assertEqual(self.succeed("body", "pose", "r", "--body", "true.json", "--tum", "-"), expected)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("-")], [])
        self.write_body("other.json", {4: (0, 0, 0), 5: (9, 0, 0), 6: (0, 9, 0)}, "other")
        self.assertIn("--tum: expected one body for the standard output, found 2", self.end_in_one_line(
            2, "body", "pose", "r", "--body", "true.json", "--body", "other.json", "--tum", "-"))
        self.end_in_one_line(2, "body", "pose", "r", "--body", "true.json", "--tum", "-", "--csv", "-")

    def test_a_body_that_is_not_there_is_said_with_status_1(self):
        self.write_body("absent.json", {3: (0, 0, 0), 4: (60, 0, 0), 5: (0, 60, 0)})
        said = self.find_in_one_line("body", "pose", "r", "--body", "absent.json", "--csv", "p.csv")
        self.assertIn("absent.json: no pose in r: ids 4, 5 were never seen\n", said)
        with open(self.path("p.csv"), encoding="utf-8") as file:
            self.assertEqual([row for row in csv.DictReader(x for x in file if x[0] != "#")], [])
        self.write_body("other.json", {0: (150, 0, 0), 1: (0, 150, 0), 2: (0, 0, 90), 3: (0, 0, -90)})
        for how in (["--single"], ["--smooth"], []):
            said = self.find_in_one_line("body", "pose", "r", "--body", "other.json", *how, "--csv",
                                         "p.csv", "--force")
            self.assertIn("of 540 packets with three markers or more in both cameras 540 off shape\n",
                          said)
        self.write_body("larger.json", {**{i: (x + 50, y, z) for i, (x, y, z) in MARKERS.items()},
                                        5: (0, 60, 60)})
        self.succeed("body", "pose", "r", "--body", "larger.json", "--csv", "q.csv")
        self.simulate("wrong", "--seconds", 0.2, "--wrong-check", 1)
        self.assertIn("no pose in wrong: no packet with a start word and a right check byte comes "
                      "behind an Init\n", self.find_in_one_line(
                          "body", "pose", "wrong", "--body", "absent.json", "--csv", "-"))

    def test_a_name_that_no_file_would_keep_is_refused_at_once(self):
        self.assertIn("--name: expected a name of at most 1000 bytes, found 100000",
                      self.end_in_one_line(2, "body", "learn", "r", "--ids", "0,1,2,3", "-o", "n.json",
                                           "--name", "n" * 100000))
        self.assertFalse(os.path.exists(self.path("n.json")))
        self.succeed("body", "learn", "r", "--ids", "0,1,2,3", "-o", "n.json", "--name", "n" * 1000)
        self.succeed("body", "pose", "r", "--body", "n.json", "--csv", "p.csv")
        self.write_body("long.json", MARKERS, "n" * 1001)
        self.assertIn("long.json: expected a name of at most 1000 bytes, found 1001",
                      self.end_in_one_line(2, "body", "map", "--body", "long.json"))

    def test_a_name_stays_one_field_of_the_table(self):
        self.write_body("odd.json", MARKERS, 'a,b"c\nd')
        self.succeed("body", "pose", "r", "--body", "odd.json", "--csv", "p.csv", "--force")
        with open(self.path("p.csv"), encoding="utf-8") as file:
            row = next(csv.DictReader(x for x in file if x[0] != "#"))
        self.assertEqual(row["body"], 'a,b"c\\nd')
        self.assertEqual(row["source"], "measured")

    def test_a_name_that_is_no_part_of_a_files_is_refused(self):
        for name in ("", "a/b", "a\nb", "a\x1b[31m", "a\0b"):
            self.write_body("odd.json", MARKERS, name)
            self.assertIn("--tum: expected a body's name that can be part of a file's",
                          self.end_in_one_line(2, "body", "pose", "r", "--body", "odd.json",
                                               "--tum", "t"))

    def test_two_bodies_share_no_marker(self):
        self.write_body("other.json", {2: (0, 0, 0), 4: (9, 0, 0), 5: (0, 9, 0)})
        self.assertIn("other.json: expected ids of its own, found id 2, which true.json has",
                      self.end_in_one_line(2, "body", "pose", "r", "--body", "true.json", "--body",
                                     "other.json", "--csv", "p.csv"))

    def test_map_says_what_to_expect_by_distance(self):
        rows = json.loads(self.succeed("body", "map", "--body", "true.json", "--json"))["rows"]
        self.assertEqual([row["distance_mm"] for row in rows][:3], [500, 1000, 1500])
        # At 1500 mm single packets are as far off as it says, their mean distance being that.
        rms, _ = self.errors("--single")
        self.assertAlmostEqual(rms / rows[2]["depth_mm"], 1, delta=0.25)

    def test_map_of_what_has_no_pose_is_refused_in_one_line(self):
        for name, markers, text in (
                ("line.json", {0: (0, 0, 0), 1: (50, 0, 0), 2: (100, 0.5, 0)}, "span a plane"),
                ("tiny.json", {0: (0, 0, 0), 1: (0.3, 0, 0), 2: (0, 0.3, 0)}, "span a plane"),
                ("wide.json", {0: (1e5, 0, 0), 1: (-1e5, 0, 0), 2: (0, 1e5, 0)},
                 "expected a body whose pose both cameras tell"),
                ("far.json", {0: (1e6, 0, 0), 1: (0, 9, 0), 2: (0, 0, 9)}, "at most 100 m")):
            self.write_body(name, markers)
            for more in ([], ["--json"]):
                self.assertIn(f"{name}: ", self.end_in_one_line(2, "body", "map", "--body", name, *more))
                self.assertIn(text, self.end_in_one_line(2, "body", "map", "--body", name, *more))
        with open(self.path("true.json"), encoding="utf-8") as file:
            good = file.read()
        for text in ("", "[", "[" * 60000, "{}", good.replace("50", "NaN"), good.replace("50", "1e999"),
                     good.replace("[50, 0, 0]", "null"), good.replace("50", '"50"'), good + "x",
                     good[:-9], "\0" * 100, " " * 70000):
            with open(self.path("bad.json"), "w", encoding="utf-8") as file:
                file.write(text)
            self.assertIn("bad.json: expected ",
                          self.end_in_one_line(2, "body", "map", "--body", "bad.json"))
        for name in ("none.json", self.folder, "/dev/zero"):
            self.assertIn(f"{name}: expected a body",
                          self.end_in_one_line(2, "body", "map", "--body", name))
        for noise in ("-1", "0", "nan", "inf", "1e9", "1e-9", "x", "0.05px", "1,2", " "):
            self.assertIn("--noise: expected a number from 0.001 to 100",
                          self.end_in_one_line(2, "body", "map", "--body", "true.json", "--noise", noise))
        for arguments in ([], ["--body"], ["--body", "true.json", "--noise"],
                          ["--body", "true.json", "--noise", ""],
                          ["--body", "true.json", "--body", "true.json"],
                          ["--body", "true.json", "--unit", "mm"],
                          ["--body", "true.json", "--calibration", "true.json"],
                          ["--body", "true.json", "--calibration", "none.yaml"]):
            self.end_in_one_line(2, "body", "map", *arguments)

    def test_emission_that_is_no_angle_is_refused_and_leaves_no_file(self):
        given = ["simulate", "-o", "x", "--product-type", 2, "--trajectory", "motion.tum", "--body"]
        for angle in ("-1", "0", "0.99", "180.01", "nan", "-nan", "inf", "1e308", "1e999", "x", "60deg",
                      "60,70", "0x3c"):
            self.assertIn("--emission: expected a number from 1 to 180, found '" + angle,
                          self.end_in_one_line(2, *given, "true.json", "--emission", angle))
        self.end_in_one_line(2, *given, "true.json", "--emission")
        self.end_in_one_line(2, *given, "true.json", "--emission", "")
        self.end_in_one_line(2, *given, "true.json", "--emission", 60, "--emission", 70)
        for name in ("motion.tum", "none.json", self.folder, "/dev/null"):
            self.assertIn(f"{name}: expected a body",
                          self.end_in_one_line(2, *given, name, "--emission", 60))
        self.write_body("true.json", MARKERS)
        for facing, text in (((0, 0, 0), "a direction in facing"), ((1e6, 0, 0), "at most 100 m"),
                             ("up", "three numbers in facing"), ((1, 0), "three numbers in facing")):
            with open(self.path("true.json"), encoding="utf-8") as file:
                body = json.load(file)
            body["markers"][1]["facing"] = facing
            with open(self.path("facing.json"), "w", encoding="utf-8") as file:
                json.dump(body, file)
            self.assertIn(text, self.end_in_one_line(2, *given, "facing.json", "--emission", 60))
        self.assertNotIn("x", os.listdir(self.folder))
        # The ends of the range are angles: a needle's beam, and all around.
        self.succeed(*given, "true.json", "--emission", 1, "--seconds", 0.1)
        self.succeed(*given, "true.json", "--emission", 180, "--seconds", 0.1, "--force")

    def test_tip_of_a_pointer_is_found(self):
        tip = (20, -150, 10)
        self.write_motion("spot.tum", tip)
        self.simulate_body("s", "true.json", "spot.tum")
        found = json.loads(self.succeed("body", "pivot", "s", "--body", "true.json", "-o",
                                        "pointer.json", "--json"))
        for value, deviation, truth in zip(found["tip_mm"], found["sd_mm"], tip):
            self.assertLess(abs(value - truth), max(4 * deviation, 0.05))
            self.assertLess(deviation, 0.5)
        with open(self.path("pointer.json"), encoding="utf-8") as file:
            self.assertEqual(json.load(file)["pivot"], found["tip_mm"])
        self.assertIn("true.json: expected no file of this name",
                      self.end_in_one_line(2, "body", "pivot", "s", "--body", "true.json", "-o",
                                           "true.json"))
        self.succeed("body", "pivot", "s", "--body", "true.json", "-o", "true.json", "--force")
        with open(self.path("true.json"), encoding="utf-8") as file:
            self.assertEqual(json.load(file)["pivot"], found["tip_mm"])
        # A body that wanders has no tip that stands still.
        self.assertIn("found one that wanders",
                      self.end_in_one_line(2, "body", "pivot", "r", "--body", "true.json", "-o", "x.json"))
        self.assertNotIn("x.json", os.listdir(self.folder))

    def test_bent_body_is_found_and_its_marker_named(self):
        self.assertIn("in place", self.succeed("body", "check", "r", "--body", "true.json"))
        bent = dict(MARKERS)
        bent[3] = (10, 35, -10)
        self.write_body("bent.json", bent)
        self.assertIn("moved: marker 3",
                      self.end_in_one_line(1, "body", "check", "r", "--body", "bent.json"))

    def test_a_recording_may_stand_behind_the_body(self):
        for arguments in (["check", "r", "--body", "true.json", "--json"],
                          ["check", "--body", "true.json", "r", "--json"],
                          ["check", "--json", "--body", "true.json", "r"]):
            self.assertTrue(json.loads(self.succeed("body", *arguments))["same"], arguments)
        self.end_in_one_line(2, "body", "check", "--body", "true.json", "true.json", "r")

    def test_what_cannot_be_learned_is_refused_in_one_line(self):
        self.assertIn("r: expected three markers that hold still",
                      self.end_in_one_line(2, "body", "learn", "r", "--ids", "3,4,5", "-o", "x.json"))
        self.assertIn("--ids: expected whole numbers from 0 to 5, found 99",
                      self.end_in_one_line(2, "body", "learn", "r", "--ids", "1,2,99", "-o", "x.json"))
        self.assertIn("--ids: expected every id once",
                      self.end_in_one_line(2, "body", "learn", "r", "--ids", "1,1,2", "-o", "x.json"))
        self.write_body("high.json", {0: (0, 0, 0), 1: (9, 0, 0), 5: (0, 9, 0)})
        self.assertIn("expected ids below 3",
                      self.end_in_one_line(2, "simulate", "-o", "x", "--product-type", 0, "--trajectory",
                                     "motion.tum", "--body", "high.json"))


if __name__ == "__main__":
    unittest.main()
