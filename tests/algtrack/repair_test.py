#!/usr/bin/env python3
"""algtrack repair, and what an interrupted command leaves behind."""
import json
import os
import signal
import sqlite3
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
        self.assertEqual(result.stdout.split("; lost: ")[0], f"saved: {saved} of {calls} calls")
        self.succeed("inspect", "saved")
        with open(self.path("cut"), "rb") as file:
            self.assertEqual(file.read(), content[:len(content) * 2 // 3])

    def test_one_line_says_which_calls_are_lost_and_why(self):
        self.simulate("walk", "--seconds", 20)
        calls, truth = (self.query("walk", f"SELECT count(*) FROM {table}")[0][0]
                        for table in ("calls", "truth"))
        size = os.path.getsize(self.path("walk"))
        os.truncate(self.path("walk"), 900000)
        result = self.run_algtrack("repair", "walk", "-o", "saved.algrec")
        self.assertEqual(result.returncode, 1, result.stderr)
        saved = {index for index, in self.query("saved.algrec", "SELECT id FROM calls")}
        self.assertGreater(len(saved), 500)
        missing = sorted(set(range(calls)) - saved)
        stretches = []
        for index in missing:
            if stretches and stretches[-1][1] == index - 1:
                stretches[-1][1] = index
            else:
                stretches.append([index, index])
        self.assertLessEqual(len(stretches), 8)
        lost = ", ".join(f"call {first}" if first == last else f"calls {first} to {last}"
                         for first, last in stretches)
        self.assertEqual(result.stdout,
                         f"saved.algrec: {len(saved)} of {calls} calls; lost: {lost} "
                         f"(the file ends at byte 900000 of {size}); "
                         f"lost: {truth} of {truth} rows of truth\n")

    def test_single_damaged_calls_are_named(self):
        self.simulate("walk", "--seconds", 1)
        database = sqlite3.connect(self.path("walk"))
        with database:
            database.execute("UPDATE calls SET start_ns = start_ns + 1 WHERE id IN (7, 20, 21)")
        database.close()
        calls = self.query("walk", "SELECT count(*) FROM calls")[0][0]
        result = self.run_algtrack("repair", "walk", "-o", "saved")
        self.assertEqual(result.stdout, f"saved: {calls - 3} of {calls} calls; lost: call 7, calls "
                                        "20 to 21 (the file is damaged there)\n")

    def test_what_went_with_a_missing_journal_is_not_called_whole(self):
        self.simulate("walk", "--seconds", 1)
        self.lose_journal("walk")
        calls = self.query("walk", "SELECT count(*) FROM calls")[0][0]
        result = self.run_algtrack("repair", "walk", "-o", "saved")
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(result.stdout, f"saved: {calls} of {calls} calls; lost: what came later "
                                        "(its journal walk-wal is not beside it)\n")

    def test_a_whole_recording_stays_whole(self):
        self.simulate("whole", "--seconds", 1)
        calls = self.query("whole", "SELECT count(*) FROM calls")[0][0]
        self.assertEqual(self.succeed("repair", "whole", "-o", "copy"),
                         f"copy: {calls} of {calls} calls; nothing is lost\n")
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


    def write_body(self):
        with open(self.path("body.json"), "w") as file:
            json.dump({"format": "alg_factory body", "version": 1, "name": "tool", "unit": "mm",
                       "markers": [{"id": i, "position": p} for i, p in
                                   enumerate([[40, 0, 0], [-30, 20, 5], [0, -35, 10]])]}, file)

    def interrupt_when_open(self, name, *arguments):
        """(status, errors) of a command that gets Ctrl-C once it reads the recording."""
        process = subprocess.Popen([os.environ["ALGTRACK"], *arguments], cwd=self.folder,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        opened = f"/proc/{process.pid}/fd"
        wanted = os.path.realpath(self.path(name))
        while process.poll() is None:
            try:
                if any(os.path.realpath(os.path.join(opened, fd)) == wanted
                       for fd in os.listdir(opened)):
                    break
            except OSError:
                pass
        process.send_signal(signal.SIGINT)
        errors = process.communicate(timeout=60)[1]
        return process.returncode, errors

    @unittest.skipUnless(os.path.isdir("/proc/self/fd"), "nothing tells when a file is open")
    def test_every_command_that_reckons_for_long_can_be_interrupted(self):
        self.simulate("walk", "--seconds", 400, "--product-type", 2, "--no-queries", "--noise",
                      0.05)
        self.write_body()
        before = sorted(os.listdir(self.folder))
        body = ["--body", "body.json"]
        for arguments in (["replay", "walk", "--verify"], ["replay", "walk", "--record", "o"],
                          ["inspect", "walk"], ["report", "walk", "-o", "o"],
                          ["tracks", "walk", "--csv", "o"],
                          ["tracks", "walk", "--smooth", "--csv", "o"],
                          ["export", "walk", "--mcap", "o"], ["repair", "walk", "-o", "o"],
                          ["body", "learn", "walk", "--ids", "0,1,2", "-o", "o"],
                          ["body", "pose", "walk", *body, "--csv", "o"],
                          ["body", "pivot", "walk", *body, "-o", "o"],
                          ["body", "check", "walk", *body],
                          ["calibration", "check", "--recording", "walk"],
                          ["calibration", "refine", "walk", "-o", "o.json"]):
            self.assertEqual(
                self.interrupt_when_open("walk", *arguments),
                (2, "algtrack: interrupted: nothing was written, files that were there are as "
                    "before\n"), arguments)
            self.assertEqual(sorted(os.listdir(self.folder)), before, arguments)

    def test_what_is_repaired_may_have_the_name_of_an_unfinished_output(self):
        calls = self.query(self.whole(), "SELECT count(*) FROM calls")[0][0]
        for name in ("o.partial", "o.repairing"):
            os.rename(self.path("whole"), self.path(name))
            if name == "o.repairing":
                self.fail_in_one_line("repair", name, "-o", "o", "--force")
            else:
                self.assertIn(f"{calls} of {calls} calls", self.succeed("repair", name, "-o", "o"))
                os.remove(self.path("o"))
            self.assertEqual(os.listdir(self.folder), [name])
            os.rename(self.path(name), self.path("whole"))

    def test_a_repaired_recording_streams_out_whole(self):
        self.whole()
        result = self.run_bytes("repair", "whole", "-o", "-")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        with open(self.path("copy"), "wb") as file:
            file.write(result.stdout)
        self.assertIn("is the same, byte by byte", self.succeed("replay", "copy", "--verify"))

    def whole(self):
        self.simulate("whole", "--seconds", 0.5)
        return "whole"

if __name__ == "__main__":
    unittest.main()
