#!/usr/bin/env python3
"""algtrack repair, and what an interrupted command leaves behind."""
import os
import signal
import subprocess
import time
import unittest

from algtrack_case import AlgtrackCase


class RepairTest(AlgtrackCase):
    def test_saves_what_is_left_of_a_file_that_was_cut(self):
        self.simulate("whole", "--seconds", 3)
        calls = self.query("whole", "SELECT count(*) FROM calls")[0][0]
        with open(self.path("whole"), "rb") as file:
            content = file.read()
        with open(self.path("cut"), "wb") as file:
            file.write(content[:len(content) * 2 // 3])
        self.assertIn("algtrack repair", self.fail_in_one_line("inspect", "cut"))
        result = self.run_algtrack("repair", "cut", "-o", "saved")
        self.assertEqual(result.returncode, 1, result.stderr)
        saved = self.query("saved", "SELECT count(*) FROM calls")[0][0]
        self.assertGreater(saved, calls // 4)
        self.assertIn(f"Saved: {saved} calls", result.stdout)
        self.assertIn(f"Lost: {calls - saved} calls", result.stdout)
        self.succeed("inspect", "saved")
        with open(self.path("cut"), "rb") as file:
            self.assertEqual(file.read(), content[:len(content) * 2 // 3])

    def test_a_whole_recording_stays_whole(self):
        self.simulate("whole", "--seconds", 1)
        self.assertIn("(complete)", self.succeed("repair", "whole", "-o", "copy"))
        self.succeed("replay", "copy", "--against", "whole")

    def test_refuses_what_is_no_recording_and_what_is_in_the_way(self):
        self.simulate("whole", "--seconds", 0.2)
        with open(self.path("text"), "w") as file:
            file.write("no database\n" * 500)
        self.fail_in_one_line("repair", "text", "-o", "new")
        self.fail_in_one_line("repair", "absent", "-o", "new")
        self.fail_in_one_line("repair", "whole", "-o", "whole", "--force")
        self.fail_in_one_line("repair", "whole", "-o", "text")
        self.assertEqual(sorted(os.listdir(self.folder)), ["text", "whole"])

    def test_an_interrupted_command_leaves_nothing_and_says_so(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            process = subprocess.Popen(
                [os.environ["ALGTRACK"], "simulate", "-o", "walk", "--seconds", "20000"],
                cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            while not os.path.exists(self.path("walk.partial")):
                time.sleep(0.01)
            time.sleep(0.3)
            process.send_signal(number)
            _, errors = process.communicate(timeout=60)
            self.assertEqual(process.returncode, 2)
            self.assertEqual(errors, "algtrack: interrupted: nothing was written, files that were "
                                     "there are as before\n")
            self.assertEqual(os.listdir(self.folder), [])


if __name__ == "__main__":
    unittest.main()
