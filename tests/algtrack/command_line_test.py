#!/usr/bin/env python3
"""What algtrack says to bad input: one clear line, a non-zero exit, and nothing written."""
import os
import unittest

from algtrack_case import AlgtrackCase

GOOD_POSES = "0 0 0 1 0 0 0 1\n1 0.1 0 1 0 0 0 1\n"


class CommandLineTest(AlgtrackCase):
    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return name

    def test_help_teaches_by_example(self):
        for command in ([], ["simulate"], ["replay"]):
            self.assertIn("  algtrack ", self.succeed(*command, "--help"))

    def test_wrong_usage_is_one_line(self):
        for arguments in ([], ["fly"], ["simulate"], ["replay"], ["replay", "--verify"],
                          ["simulate", "-o"], ["simulate", "-o", "x", "--no-such-option"]):
            self.fail_in_one_line(*arguments)

    def test_simulate_refuses_numbers_that_are_none_or_out_of_range(self):
        for option in ("--noise", "--seconds", "--rate", "--dropouts", "--splits", "--strays",
                       "--reflections", "--loss", "--corrupt", "--wrong-check", "--marker-size"):
            for value in ("nan", "inf", "-1", "1e400", "many", "", "1,5", "0x10"):
                message = self.fail_in_one_line("simulate", "-o", "x", f"{option}={value}")
                self.assertIn(option, message)
        for option, value in (("--product-type", "3"), ("--product-type", "1.5"),
                              ("--seed", "-1"), ("--seed", "x"), ("--framing", "both"),
                              ("--scene", "none"), ("--dropouts", "1.01"),
                              ("--filter-mode", "-2")):
            self.fail_in_one_line("simulate", "-o", "x", option, value)
        for occlusion in ("", "1", "1:2", "1:2-1", "9:1-2", "1:1-2:up", "1:-1-2", "1:1-nan",
                          "1:nan-2", "x:1-2", "1:1-2:left:right"):
            self.fail_in_one_line("simulate", "-o", "x", f"--occlude={occlusion}")
        self.fail_in_one_line("simulate", "-o", "x", "--seconds", "1000000", "--rate", "10000")
        self.assertEqual(os.listdir(self.folder), [])

    def test_simulate_refuses_options_that_exclude_each_other(self):
        self.write("motion.tum", GOOD_POSES)
        for arguments in (["--scene", "still", "--trajectory", "motion.tum"], ["--start", "1"],
                          ["--distance", "1000"], ["--unit", "mm"],
                          ["--trajectory", "motion.tum", "--start", "1"]):
            self.fail_in_one_line("simulate", "-o", "x", *arguments)
        self.assertFalse(os.path.exists(self.path("x")))

    def test_simulate_refuses_bad_trajectories_and_names_the_line(self):
        bad = {
            "": "empty", "# only a comment\n": "", "0 0 0 1 0 0 0\n": ":1:",
            GOOD_POSES + "0.5 0 0 1 0 0 0 1\n": ":3:", GOOD_POSES + "2 nan 0 1 0 0 0 1\n": ":3:",
            GOOD_POSES + "2 inf 0 1 0 0 0 1\n": ":3:", GOOD_POSES + "x 0 0 1 0 0 0 1\n": ":3:",
            GOOD_POSES + "2 0 0 1 0 0 0 0\n": ":3:", b"\x00\x01\x02\xff" * 100: ":1:",
        }
        for content, expected in bad.items():
            name = self.write("motion.tum", content)
            message = self.fail_in_one_line("simulate", "-o", "x", "--trajectory", name)
            self.assertIn("motion.tum" + (expected if expected.startswith(":") else ""), message)
            self.assertIn("expected", message)
        for name in ("absent", "."):
            self.fail_in_one_line("simulate", "-o", "x", "--trajectory", name)

    def test_simulate_and_replay_refuse_bad_calibrations(self):
        self.simulate("r", "--seconds", 0.1)
        for content in ("", "hello: world\n", "[1, 2", b"\x00" * 919, b"\x00" * 920, b"\x00" * 921,
                        b"\xff" * 920):
            name = self.write("c.yaml", content)
            for command in (["simulate", "-o", "x"], ["replay", "r"]):
                message = self.fail_in_one_line(*command, "--calibration", name)
                self.assertIn("c.yaml", message)
        for name in ("absent", "."):
            for command in (["simulate", "-o", "x"], ["replay", "r"]):
                self.fail_in_one_line(*command, "--calibration", name)

    def test_replay_refuses_what_is_no_recording(self):
        self.simulate("good", "--seconds", 0.5)
        with open(self.path("good"), "rb") as file:
            content = file.read()
        self.write("empty", b"")
        self.write("text", "certainly no database\n" * 100)
        for part in (50, 100, 1000, 4096, 8000, len(content) // 2, len(content) - 1):
            self.write(f"cut{part}", content[:part])
        self.write("foreign", b"")
        self.change("foreign", "CREATE TABLE calls (id INTEGER)")
        self.write("newer", content)
        self.change("newer", "PRAGMA user_version = 3")
        self.write("incomplete", content)
        self.change("incomplete", "DROP TABLE logs")
        names = [name for name in os.listdir(self.folder) if name != "good"] + ["absent", "."]
        self.assertEqual(len(names), 14)
        for name in names:
            for arguments in (["replay", name], ["replay", name, "--verify", "--json"],
                              ["replay", "good", "--against", name]):
                message = self.fail_in_one_line(*arguments)
                self.assertTrue(message.startswith(f"algtrack: {name}: expected "), message)
        self.assertIn("made by a newer program", self.fail_in_one_line("replay", "newer"))

    def test_damage_in_the_middle_of_a_recording_does_not_crash(self):
        import random
        self.simulate("good", "--seconds", 0.5)
        with open(self.path("good"), "rb") as file:
            content = file.read()
        draw = random.Random(7)
        for _ in range(40):
            damaged = bytearray(content)
            for _ in range(draw.choice((1, 10, 300))):
                damaged[draw.randrange(len(damaged))] = draw.randrange(256)
            self.write("damaged", bytes(damaged))
            result = self.run_algtrack("replay", "damaged", "--verify")
            self.assertIn(result.returncode, (0, 1, 2), result.stderr)
            self.assertLessEqual(result.stderr.count("\n"), 1)

    def test_replay_refuses_options_that_contradict_each_other(self):
        self.simulate("r", "--seconds", 0.1)
        for arguments in (["--verify", "--product-type", "1"], ["--verify", "--filter-mode", "0"],
                          ["--verify", "--against", "r"], ["--axes", "camera"], ["--unit", "mm"],
                          ["--product-type", "3"], ["--filter-mode", "nan"]):
            self.fail_in_one_line("replay", "r", *arguments)

    def test_no_file_is_overwritten_without_force(self):
        self.simulate("r", "--seconds", 0.2)
        outputs = {"out": (["simulate", "--seconds", "0.1", "-o", "out"], "out"),
                   "csv": (["replay", "r", "--csv", "out"], "out"),
                   "jsonl": (["replay", "r", "--jsonl", "out"], "out"),
                   "record": (["replay", "r", "--record", "out"], "out"),
                   "tum": (["replay", "r", "--tum", "out"], "out-object1.tum")}
        for arguments, name in outputs.values():
            self.write(name, "precious")
            message = self.fail_in_one_line(*arguments)
            self.assertIn("--force", message)
            with open(self.path(name), "rb") as file:
                self.assertEqual(file.read(), b"precious")
            self.succeed(*arguments, "--force")
            with open(self.path(name), "rb") as file:
                self.assertNotEqual(file.read(), b"precious")

    def test_an_input_is_never_overwritten(self):
        self.simulate("r", "--seconds", 0.2)
        self.write("motion.tum", GOOD_POSES)
        before = self.dump("r")
        for arguments in (["replay", "r", "--record", "r"], ["replay", "r", "--csv", "./r"],
                          ["replay", "r", "--jsonl", self.path("r")]):
            self.fail_in_one_line(*arguments, "--force")
        self.fail_in_one_line("simulate", "--trajectory", "motion.tum", "-o", "motion.tum",
                              "--force")
        self.assertEqual(self.dump("r"), before)

    def test_outputs_that_cannot_be_written_are_refused(self):
        self.simulate("r", "--seconds", 0.2)
        os.mkdir(self.path("folder"))
        for name in ("folder", "no/such/folder/out", "folder/"):
            self.fail_in_one_line("simulate", "-o", name, "--seconds", "0.1")
            for option in ("--csv", "--jsonl", "--record"):
                self.fail_in_one_line("replay", "r", option, name)

    def test_a_failed_command_leaves_nothing_behind(self):
        self.simulate("r", "--seconds", 0.2)
        self.change("r", "UPDATE calls SET payload = zeroblob(3) WHERE id = 20")
        self.fail_in_one_line("replay", "r", "--csv", "c", "--jsonl", "j", "--tum", "t",
                              "--record", "again")
        self.assertEqual(os.listdir(self.folder), ["r"])


if __name__ == "__main__":
    unittest.main()
