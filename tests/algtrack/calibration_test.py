#!/usr/bin/env python3
"""algtrack calibration, through the command line; the numbers are read back with Python."""
import gzip
import json
import os
import socket
import struct
import unittest

from algtrack_case import AlgtrackCase

OPENCV = os.path.join(os.environ["ALG_SOURCE"], "tests/kit/calibration/data/opencv")
STEREO = os.path.join(OPENCV, "stereo_fisheye.yml")
INTRINSICS = os.path.join(OPENCV, "intrinsics.yml")
EXTRINSICS = os.path.join(OPENCV, "extrinsics.yml")
RADTAN = os.path.join(OPENCV, "intrinsics_radtan.yml")

# Offsets in doubles.
LEFT_K, RIGHT_K, ROTATION, TRANSLATION, FUNDAMENTAL = 1, 18, 35, 44, 47


class CalibrationTest(AlgtrackCase):
    def doubles(self, name):
        with open(self.path(name), "rb") as file:
            return list(struct.unpack("<115d", file.read()))

    def write_doubles(self, name, values):
        with open(self.path(name), "wb") as file:
            file.write(struct.pack("<115d", *values))

    def import_rig(self):
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.bin")
        return self.doubles("rig.bin")

    def findings(self, *arguments):
        result = self.run_algtrack("calibration", "check", *arguments, "--json")
        codes = [f["code"] for f in json.loads(result.stdout)["findings"]]
        self.assertEqual(result.returncode, 1 if codes else 0)
        self.assertEqual(result.stderr.count("\n"), 1 if codes else 0)
        return codes

    def test_import_writes_the_record_in_millimetres(self):
        d = self.import_rig()
        self.assertEqual(d[LEFT_K:LEFT_K + 9], [381.2, 0, 321.5, 0, 380.7, 238.4, 0, 0, 1])
        self.assertEqual(d[10:14], [0.021, -0.0064, 0.0018, -0.0005])
        self.assertEqual(d[RIGHT_K], 379.6)
        for found, expected in zip(d[TRANSLATION:TRANSLATION + 3], (-100.3, 0.8, -1.6)):
            self.assertAlmostEqual(found, expected, places=9)
        self.assertEqual(d[56:], [0] * 59)

    def test_import_computes_the_fundamental_matrix(self):
        d = self.import_rig()
        # A point that both ideal cameras see: q^T F p = 0, in numbers of Python's own.
        R = [d[ROTATION + 3 * i:ROTATION + 3 * i + 3] for i in range(3)]
        T = d[TRANSLATION:TRANSLATION + 3]
        F = [d[FUNDAMENTAL + 3 * i:FUNDAMENTAL + 3 * i + 3] for i in range(3)]
        for point in ((100, 50, 900), (-300, 200, 1500), (10, -400, 700)):
            right = [sum(R[i][k] * point[k] for k in range(3)) + T[i] for i in range(3)]
            p = [d[LEFT_K] * point[0] / point[2] + d[LEFT_K + 2],
                 d[LEFT_K + 4] * point[1] / point[2] + d[LEFT_K + 5], 1]
            q = [d[RIGHT_K] * right[0] / right[2] + d[RIGHT_K + 2],
                 d[RIGHT_K + 4] * right[1] / right[2] + d[RIGHT_K + 5], 1]
            line = [sum(F[i][k] * p[k] for k in range(3)) for i in range(3)]
            distance = sum(a * b for a, b in zip(line, q)) / (line[0] ** 2 + line[1] ** 2) ** 0.5
            self.assertLess(abs(distance), 1e-9)

    def test_import_reads_separate_files_and_writes_json(self):
        self.succeed("calibration", "import", INTRINSICS, EXTRINSICS, "--unit", "m",
                     "-o", "two.bin", "-o", "two.json")
        self.assertEqual(self.doubles("two.bin"), self.import_rig())
        with open(self.path("two.json")) as file:
            data = json.load(file)
        self.assertEqual(data["unit"], "mm")
        self.assertEqual(data["left"]["cameraMatrix"][0], [381.2, 0, 321.5])
        self.succeed("calibration", "import", "two.json", "-o", "again.bin")
        self.assertEqual(self.doubles("again.bin"), self.doubles("two.bin"))

    def test_import_settles_the_unit(self):
        self.assertIn("say --unit",
                      self.fail_in_one_line("calibration", "import", STEREO, "-o", "x"))
        out = self.succeed("calibration", "import", STEREO, "--unit", "m", "--output-unit", "m",
                           "-o", "metres.bin", "-o", "metres.json")
        self.assertIn("translation in m", out)
        self.assertAlmostEqual(self.doubles("metres.bin")[TRANSLATION], -0.1003, places=12)
        with open(self.path("metres.json")) as file:
            self.assertEqual(json.load(file)["unit"], "m")
        self.succeed("calibration", "import", "metres.json", "-o", "back.bin")
        self.assertAlmostEqual(self.doubles("back.bin")[TRANSLATION], -100.3, places=9)

    def test_import_keeps_existing_files_and_its_input(self):
        self.import_rig()
        before = self.doubles("rig.bin")
        self.fail_in_one_line("calibration", "import", RADTAN, EXTRINSICS, "--unit", "m",
                              "-o", "rig.bin", "--force")
        self.fail_in_one_line("calibration", "import", STEREO, "--unit", "m", "-o", "rig.bin")
        self.fail_in_one_line("calibration", "import", "rig.bin", "-o", "rig.bin", "--force")
        self.fail_in_one_line("calibration", "import", STEREO, "--unit", "m", "-o", "a", "-o", "a")
        self.fail_in_one_line("calibration", "import", STEREO, "--unit", "m",
                              "-o", "no/such/folder.bin")
        self.assertEqual(self.doubles("rig.bin"), before)
        self.assertEqual(os.listdir(self.folder), ["rig.bin"])
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.bin", "--force")

    def test_swapping_twice_changes_nothing(self):
        d = self.import_rig()
        self.succeed("calibration", "import", "rig.bin", "--swap-cameras", "-o", "swapped.bin")
        swapped = self.doubles("swapped.bin")
        self.assertEqual(swapped[LEFT_K:LEFT_K + 9], d[RIGHT_K:RIGHT_K + 9])
        self.succeed("calibration", "import", "swapped.bin", "--swap-cameras", "-o", "back.bin")
        for a, b in zip(self.doubles("back.bin"), d):
            self.assertAlmostEqual(a, b, places=9)

    def test_show_prints_what_is_in_a_file_or_recording(self):
        self.import_rig()
        self.assertIn("381.2", self.succeed("calibration", "show", "rig.bin"))
        shown = json.loads(self.succeed("calibration", "show", "rig.bin", "--json"))
        self.assertEqual(shown["translation"], self.doubles("rig.bin")[TRANSLATION:TRANSLATION + 3])
        self.simulate("a", "--seconds", 1, "--calibration", "rig.bin")
        recorded = json.loads(self.succeed("calibration", "show", "--recording", "a", "--json"))
        self.assertEqual(recorded["fundamental"], shown["fundamental"])

    def test_check_names_the_mistake_with_and_without_a_recording(self):
        d = self.import_rig()
        self.simulate("a", "--seconds", 5, "--calibration", "rig.bin", "--noise", 0.1,
                      "--strays", 0.1, "--dropouts", 0.02, "--product-type", 2)
        recording = ("--recording", "a")
        self.assertEqual(self.findings("rig.bin"), [])
        self.assertEqual(self.findings("rig.bin", *recording), [])
        self.assertEqual(self.findings(*recording), [])

        at = slice(TRANSLATION, TRANSLATION + 3)
        inverted = d[:]
        inverted[at] = [-t for t in d[at]]
        self.write_doubles("inverted.bin", inverted)
        self.assertEqual(self.findings("inverted.bin"), ["translation-inverted"])
        self.assertEqual(self.findings("inverted.bin", *recording), ["translation-inverted"])

        metres = d[:]
        metres[at] = [t / 1000 for t in d[at]]
        self.write_doubles("metres.bin", metres)
        self.assertEqual(self.findings("metres.bin"), ["unit-metres"])
        self.assertEqual(self.findings("metres.bin", *recording), ["unit-metres"])
        self.assertEqual(self.findings(STEREO), ["unit-metres"])

        self.succeed("calibration", "import", "rig.bin", "--swap-cameras", "-o", "swapped.bin")
        self.assertEqual(self.findings("swapped.bin"), ["cameras-swapped"])
        self.assertEqual(self.findings("swapped.bin", *recording), ["cameras-swapped"])

        self.assertEqual(self.findings(RADTAN, EXTRINSICS, "--unit", "m"),
                         ["distortion-model", "distortion-model"])

        broken = d[:]
        broken[FUNDAMENTAL + 8] *= 1.5
        self.write_doubles("broken.bin", broken)
        self.assertEqual(self.findings("broken.bin"), ["fundamental"])

    def test_check_says_it_in_plain_words(self):
        self.import_rig()
        self.assertIn("Nothing seems wrong", self.succeed("calibration", "check", "rig.bin"))
        result = self.run_algtrack("calibration", "check", STEREO)
        self.assertIn("The unit of the translation seems to be metres", result.stdout)
        result = self.run_algtrack("calibration", "check", RADTAN, EXTRINSICS, "--unit", "m")
        self.assertIn("distortion model of the left camera is wrong", result.stdout)

    def test_metres_taken_for_millimetres_are_said_wherever_a_calibration_is_used(self):
        self.import_rig()
        metres = self.doubles("rig.bin")
        for i in range(TRANSLATION, TRANSLATION + 3):
            metres[i] /= 1000
        self.write_doubles("metres.bin", metres)
        said = "The unit of the translation seems to be metres: the baseline is 0.1"
        self.simulate("good", "--seconds", 1)
        receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(receiver.close)
        receiver.bind(("127.0.0.1", 0))
        port = receiver.getsockname()[1]
        for arguments in (("simulate", "--calibration", "metres.bin", "-o", "m", "--seconds", 1),
                          ("replay", "good", "--calibration", "metres.bin", "--csv", "m.csv"),
                          ("tracks", "m", "--csv", "t.csv"), ("export", "m", "--mcap", "m.mcap"),
                          ("inspect", "m"), ("inspect", "m", "--json"),
                          ("inspect", "m", "--object", 0), ("inspect", "m", "--packet", 17),
                          ("stream", "m", "--osc", "127.0.0.1:%d" % port, "--speed", 1000),
                          ("stream", "m", "--osc", "127.0.0.1:%d" % port, "--follow")):
            result = self.run_algtrack(*arguments)
            self.assertEqual(result.returncode, 0, arguments)
            notes = [line for line in result.stderr.splitlines() if said in line]
            self.assertEqual(len(notes), 1, arguments)
            self.assertTrue(notes[0].startswith("Note: m"), arguments)
        notices = json.loads(self.succeed("report", "m", "--json"))["notices"]
        self.assertEqual(len([text for text in notices if said in text]), 1)
        # And of the right one nothing is said.
        for arguments in (("tracks", "good", "--csv", "g.csv"), ("inspect", "good"),
                          ("stream", "good", "--osc", "127.0.0.1:%d" % port, "--follow")):
            self.assertEqual(self.run_algtrack(*arguments).stderr, "", arguments)

    def test_a_recording_made_with_the_wrong_calibration_can_be_judged(self):
        # The device is the rig; the host configured the library with an inverted translation.
        d = self.import_rig()
        self.simulate("a", "--seconds", 3, "--calibration", "rig.bin", "--product-type", 2)
        wrong = d[:]
        wrong[TRANSLATION:TRANSLATION + 3] = [-t for t in d[TRANSLATION:TRANSLATION + 3]]
        self.change("a", "UPDATE calls SET payload = ? WHERE kind = 'Init'",
                    struct.pack("<115d", *wrong))
        self.assertEqual(self.findings("--recording", "a"), ["translation-inverted"])
        # Every pair then lies behind the camera, and the funnel says so.
        result = self.run_algtrack("inspect", "a", "--json")
        ends = json.loads(result.stdout)["funnel"]["ends"]
        self.assertGreater(ends["too_near"]["left"], 1000)
        self.assertEqual(ends["delivered"]["left"], 0)

    def test_import_writes_what_opencv_and_kalibr_read(self):
        d = self.import_rig()
        self.succeed("calibration", "import", "rig.bin", "-o", "stereo.yml", "-o", "chain.yaml",
                     "--image-size", "640,480")
        for name in ("stereo.yml", "chain.yaml"):
            self.succeed("calibration", "import", name, "-o", "back.bin", "--force")
            self.assertEqual(self.doubles("back.bin"), d, name)
        with open(self.path("stereo.yml")) as file:
            self.assertTrue(file.read().startswith("%YAML:1.0\n---\nimage_width: 640\n"))

    def test_import_refuses_endings_and_sizes_that_it_cannot_write(self):
        self.import_rig()
        for output in ("x.yml.gz", "x.xml", "x.txt"):
            line = self.fail_in_one_line("calibration", "import", "rig.bin", "-o", output)
            self.assertIn("ending", line)
        self.assertIn("--image-size", self.fail_in_one_line(
            "calibration", "import", "rig.bin", "-o", "x.yaml"))
        for size in ("640", "0,480", "640.5,480", "1,2,3", "x"):
            self.fail_in_one_line("calibration", "import", "rig.bin", "-o", "x.yaml",
                                  "--image-size", size)
        self.assertEqual(os.listdir(self.folder), ["rig.bin"])

    def test_compressed_files_are_named_as_such(self):
        with open(self.path("stereo.yml.gz"), "wb") as file:
            file.write(gzip.compress(b"K1: 1"))
        self.assertIn("gzip", self.fail_in_one_line("calibration", "check", "stereo.yml.gz"))

    def test_a_mirroring_matrix_is_refused_and_judged_without_nan(self):
        d = self.import_rig()
        for i in range(3):
            d[ROTATION + i] = -d[ROTATION + i]
        self.write_doubles("mirrored.bin", d)
        self.assertIn("mirrors", self.fail_in_one_line("calibration", "import", "mirrored.bin",
                                                       "-o", "x.bin"))
        result = self.run_algtrack("calibration", "check", "mirrored.bin")
        self.assertIn("determinant is -1", result.stdout)
        self.assertNotIn("nan px on average", result.stdout)

    def test_the_unit_of_the_file_is_named_in_both_directions(self):
        self.import_rig()
        self.assertIn("mm (of this format)", self.succeed("calibration", "show", "rig.bin"))
        self.assertIn("mm (of this format)", self.succeed("calibration", "check", "rig.bin"))
        out = self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "again.bin")
        self.assertIn("converted from m (as given) to mm", out)
        # Millimetres read as metres: a baseline of 100 m.
        self.assertEqual(self.findings("rig.bin", "--unit", "m"), ["unit-too-large"])
        result = self.run_algtrack("calibration", "check", "rig.bin", "--unit", "m")
        self.assertIn("(100.3 m)", result.stdout)
        self.assertIn("import it with --unit mm", result.stdout)
        out = self.succeed("calibration", "import", "rig.bin", "--unit", "m", "-o", "wide.bin")
        self.assertIn("too large", out)

    def test_one_cause_is_named_once(self):
        result = self.run_algtrack("calibration", "check", RADTAN, EXTRINSICS, "--unit", "m")
        self.assertEqual(result.stderr.count("distortion-model"), 1)

    def test_toe_in_of_two_degrees_is_seen_although_residuals_are_small(self):
        self.import_rig()
        self.simulate("a", "--seconds", 20, "--calibration", "rig.bin", "--product-type", 2,
                      "--noise", 0.05, "--bend", "0,2,0")
        self.assertEqual(self.findings("rig.bin", "--recording", "a"), ["stale"])
        result = self.run_algtrack("calibration", "check", "rig.bin", "--recording", "a")
        self.assertIn("stale: about 2", result.stdout)
        self.assertIn("What this recording cannot tell", result.stdout)
        self.assertIn("baseline", result.stdout)

    def test_a_drifting_rig_shows_as_a_curve(self):
        self.import_rig()
        self.simulate("a", "--seconds", 30, "--calibration", "rig.bin", "--product-type", 2,
                      "--noise", 0.05, "--drift", "0.5,0,0")
        result = self.run_algtrack("calibration", "check", "--recording", "a", "--json")
        data = json.loads(result.stdout)
        self.assertEqual([f["code"] for f in data["findings"]], ["drifts"])
        rotations = [point["rotation_deg"] for point in data["health"]["trend"]]
        self.assertEqual(len(rotations), 10)
        # Three seconds of one stretch tell it to a quarter of a degree; the curve rises.
        for i, rotation in enumerate(rotations):
            self.assertAlmostEqual(rotation, 0.5 * (i + 0.5) / 10, delta=0.25)
        self.assertAlmostEqual(sum(rotations[7:]) / 3 - sum(rotations[:3]) / 3, 0.35, delta=0.12)

    def test_a_calibration_of_another_rig_is_said_not_to_belong(self):
        self.simulate("a", "--seconds", 10, "--product-type", 2)
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "other.bin")
        codes = self.findings("other.bin", "--recording", "a")
        self.assertIn(codes[-1], ("recording-unexplained", "stale"))

    def test_a_recorded_calibration_beyond_all_limits_is_refused(self):
        self.simulate("walk", "--seconds", 0.5)
        (payload,), = self.query("walk", "SELECT payload FROM calls WHERE kind = 'Init'")
        values = list(struct.unpack("<115d", payload))
        values[TRANSLATION] = 1e307
        self.change("walk", "UPDATE calls SET payload = ? WHERE kind = 'Init'",
                    struct.pack("<115d", *values))
        for command in ("show", "check"):
            self.assertIn("expected numbers of at most 1e9 in the translation",
                          self.fail_in_one_line("calibration", command, "--recording", "walk"))
        for command in ("inspect", "report"):
            found = json.loads(self.run_algtrack(command, "walk", "--json").stdout)
            json.dumps(found, allow_nan=False)

    def test_what_contradicts_the_file_or_has_none_is_refused(self):
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.json",
                     "--image-size", "640,480")
        self.assertIn("--image-size: expected 640,480, as the file states, found '100,100'",
                      self.fail_in_one_line("calibration", "import", "rig.json", "-o", "x.json",
                                            "--image-size", "100,100"))
        self.succeed("calibration", "import", "rig.json", "-o", "x.json", "--image-size", "640,480")
        self.simulate("r", "--seconds", 0.1)
        for command in ("show", "check"):
            self.assertIn("--unit: expected a calibration file with it, found none",
                          self.fail_in_one_line("calibration", command, "--recording", "r",
                                                "--unit", "m"))
        self.assertIn("files: expected at most 2, found 3",
                      self.fail_in_one_line("calibration", "show", *["rig.json"] * 3))

    def test_refuses_bad_input_in_one_line(self):
        self.import_rig()
        self.simulate("a", "--seconds", 1)
        with open(self.path("text"), "w") as file:
            file.write("hello: world\n")
        open(self.path("empty"), "w").close()
        with open(self.path("short.bin"), "wb") as file:
            file.write(b"\0" * 919)
        self.write_doubles("nan.bin", [float("nan")] * 115)
        for name in ("nowhere", ".", "text", "empty", "short.bin", "nan.bin", "a"):
            for command in (["show"], ["check"], ["import", "-o", "x"]):
                self.fail_in_one_line("calibration", command[0], name, *command[1:])
        for arguments in ([], ["check"], ["show"], ["import"], ["import", "rig.bin"], ["fly"],
                          ["check", "rig.bin", "--recording", "text"],
                          ["check", "rig.bin", "--recording", "nowhere"],
                          ["check", "rig.bin", "--unit", "furlong"],
                          ["import", "rig.bin", "-o", "x", "--unit", "nan"],
                          ["show", "rig.bin", "rig.bin"],
                          ["show", "rig.bin", "rig.bin", "rig.bin"]):
            self.fail_in_one_line("calibration", *arguments)
        self.assertFalse(os.path.exists(self.path("x")))


if __name__ == "__main__":
    unittest.main()
