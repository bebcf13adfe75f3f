#!/usr/bin/env python3
"""algtrack tracks: estimates of a simulated recording against its truth."""
import csv
import json
import math
import unittest

from algtrack_case import AlgtrackCase


class TracksTest(AlgtrackCase):
    def rows(self, *arguments):
        text = self.succeed("tracks", *arguments, "--csv", "-")
        return list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))

    def truth(self, name):
        """(time in ns, object) -> the middle of its markers, right camera's frame."""
        return {(time, thing): (x, y, z) for time, thing, x, y, z in self.query(
            name, "SELECT time_ns, object, avg(x), avg(y), avg(z) FROM truth GROUP BY 1, 2")}

    def error(self, rows, truth):
        """Root mean square over the rows whose moment has a truth, after the first second."""
        squares = []
        for row in rows:
            key = (round(float(row["time_s"]) * 1e9), int(row["object"]))
            near = [truth[(key[0] + d, key[1])] for d in (-1, 0, 1) if (key[0] + d, key[1]) in truth]
            if near and float(row["time_s"]) > 1:
                squares.append(sum((float(row["camera_" + axis]) - value)**2
                                   for axis, value in zip("xyz", near[0])))
        self.assertGreater(len(squares), 500)
        return math.sqrt(sum(squares) / len(squares))

    def test_smoothed_is_better_than_live_and_live_than_delivered(self):
        for product_type in (0, 1, 2):
            name = "r%d" % product_type
            self.simulate(name, "--seconds", 6, "--noise", 0.05, "--product-type", product_type)
            truth = self.truth(name)
            text = self.succeed("replay", name, "--csv", "-")
            blocks = [row for row in csv.DictReader(
                line for line in text.splitlines() if line[:1] not in "#"
                and "Written" not in line) if row["source"] == "block"]
            delivered = self.error(blocks, truth)
            live = self.error(self.rows(name), truth)
            smooth = self.error(self.rows(name, "--smooth"), truth)
            self.assertLess(live, 0.6 * delivered)
            self.assertLess(smooth, 0.3 * delivered)

    def test_a_prediction_is_of_the_moment_ahead(self):
        self.simulate("r", "--seconds", 6, "--noise", 0.05, "--rate", 100)
        truth = self.truth("r")
        ahead = self.rows("r", "--ahead", 30)
        self.assertEqual({row["source"] for row in ahead}, {"predicted"})
        self.assertLess(self.error(ahead, truth), 8)

    def test_the_formats_agree(self):
        self.simulate("r", "--seconds", 1, "--noise", 0.05)
        self.succeed("tracks", "r", "--csv", "t.csv", "--jsonl", "t.jsonl", "--tum", "t")
        with open(self.path("t.csv")) as file:
            table = [line.split(",") for line in file if line[0].isdigit()]
        with open(self.path("t.jsonl")) as file:
            lines = [json.loads(line) for line in file][1:]
        self.assertEqual(len(table), len(lines))
        for row, line in zip(table, lines):
            self.assertEqual([int(row[1]), row[14]], [line["object"], line["source"]])
            for text, number in zip(row[2:5], line["position"]):
                self.assertAlmostEqual(float(text), number, delta=1e-5)
        with open(self.path("t-object0.tum")) as file:
            tum = [line.split() for line in file if line[0] != "#"]
        first = [row for row in table if row[1] == "0"]
        self.assertEqual(len(tum), len(first))
        self.assertAlmostEqual(float(tum[5][3]) * 1000, float(first[5][4]), delta=1e-4)

    def test_a_gap_is_bridged_and_says_so(self):
        self.simulate("r", "--seconds", 5, "--occlude", "0:2-2.5")
        hidden = [row for row in self.rows("r")
                  if row["object"] == "0" and 2.02 < float(row["time_s"]) < 2.49]
        self.assertEqual({row["source"] for row in hidden}, {"bridged"})
        self.assertGreater(float(hidden[-1]["sd_z"]), float(hidden[0]["sd_z"]))
        self.assertGreater(float(hidden[-1]["age_s"]), 0.4)

    def test_what_cannot_be_done_is_refused_in_one_line(self):
        self.simulate("r", "--seconds", 0.3)
        self.assertIn("--csv", self.fail_in_one_line("tracks", "r"))
        self.fail_in_one_line("tracks", "r", "--smooth", "--ahead", 20, "--csv", "-")
        self.fail_in_one_line("tracks", "r", "--ahead", 101, "--csv", "-")
        self.fail_in_one_line("tracks", "r", "--noise", -1, "--csv", "-")
        self.fail_in_one_line("tracks", "missing", "--csv", "-")
        self.fail_in_one_line("tracks", "r", "--csv", "r", "--force")
        self.succeed("tracks", "r", "--csv", "t")
        self.fail_in_one_line("tracks", "r", "--csv", "t")
        self.succeed("tracks", "r", "--csv", "t", "--force")


    def test_rows_name_the_packet_and_the_call(self):
        self.simulate("r", "--seconds", 1, "--noise", 0.05, "--inertial")
        expected = {row["packet"]: row["call"] for row in csv.DictReader(
            line for line in self.succeed("replay", "r", "--csv", "-").splitlines()
            if line[0] != "#") if row["source"] == "block"}
        for manner in ([], ["--smooth"], ["--ahead", 20]):
            rows = self.rows("r", *manner)
            self.assertEqual({row["packet"]: row["call"] for row in rows},
                             {packet: expected[packet] for packet in {r["packet"] for r in rows}})
            self.assertGreater(len({row["packet"] for row in rows}), 80)
            line = json.loads(self.succeed("tracks", "r", *manner, "--jsonl", "-").splitlines()[1])
            self.assertEqual((str(line["packet"]), str(line["call"])),
                             (rows[0]["packet"], rows[0]["call"]))

    def test_an_object_and_a_stretch_of_time_are_those_of_the_whole(self):
        self.simulate("r", "--seconds", 2, "--noise", 0.05, "--rate", 100)
        for manner in ([], ["--smooth"], ["--ahead", 30]):
            ahead = 0.03 if "--ahead" in manner else 0
            wanted = [row for row in self.rows("r", *manner) if row["object"] == "1"
                      and 0.5 <= round(float(row["time_s"]) - ahead, 6) < 0.9]
            self.assertEqual(len(wanted), 40)
            self.assertEqual(self.rows("r", *manner, "--object", 1, "--from", 0.5, "--to", 0.9),
                             wanted)
        self.fail_in_one_line("tracks", "r", "--csv", "-", "--from", 2, "--to", 1)

    def test_a_recording_without_any_track_says_why(self):
        self.simulate("dark", "--seconds", 1, "--product-type", 2, "--dropouts", 1)
        self.assertEqual(self.find_in_one_line("tracks", "dark", "--csv", "-"),
                         "algtrack: dark: no track: of 90 packets none has a blob\n")
        self.simulate("half", "--seconds", 1, "--product-type", 2, "--occlude", "3:0-1:left",
                      "--occlude", "1:0-1")
        self.assertEqual(self.find_in_one_line("tracks", "half", "--object", 3, "--csv", "-"),
                         "algtrack: half: no track of object 3: of 90 packets none has blobs of "
                         "object 3 from both cameras\n")
        self.assertEqual(self.find_in_one_line("tracks", "half", "--object", 1, "--tum", "t"),
                         "algtrack: half: no track of object 1: of 90 packets none has a blob of "
                         "object 1\n")
        self.succeed("tracks", "half", "--csv", "-")


if __name__ == "__main__":
    unittest.main()
