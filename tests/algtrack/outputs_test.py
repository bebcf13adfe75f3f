#!/usr/bin/env python3
"""Where algtrack writes to: files, links, pipes, devices and the standard output."""
import os
import signal
import stat
import subprocess
import threading
import time
import unittest

from algtrack_case import ALGTRACK, AlgtrackCase

STEREO = os.path.join(os.environ["ALG_SOURCE"],
                      "tests/kit/calibration/data/opencv/stereo_fisheye.yml")


class OutputsTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        self.simulate("r", "--seconds", 0.3)

    def raw(self, *arguments, **options):
        return subprocess.run([ALGTRACK, *arguments], cwd=self.folder, timeout=120,
                              stderr=subprocess.PIPE, **options)

    def content(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def files(self):
        return sorted(os.listdir(self.folder))

    def test_a_dash_is_the_standard_output_for_every_export(self):
        self.succeed("replay", "r", "--csv", "c", "--jsonl", "j")
        self.assertEqual(self.succeed("replay", "r", "--csv", "-").encode(), self.content("c"))
        self.assertEqual(self.succeed("replay", "r", "--jsonl", "-").encode(), self.content("j"))
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.bin")
        self.assertEqual(
            self.raw("calibration", "import", STEREO, "--unit", "m", "-o", "-",
                     stdout=subprocess.PIPE).stdout, self.content("rig.bin"))
        self.assertNotIn("-", self.files())

    def test_a_recording_streams_out_whole(self):
        for arguments in (["simulate", "--seconds", "0.3", "-o", "-"],
                          ["replay", "r", "--record", "-"]):
            result = self.raw(*arguments, stdout=subprocess.PIPE)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            with open(self.path("copy"), "wb") as file:
                file.write(result.stdout)
            self.assertIn("is the same, byte by byte", self.succeed("replay", "copy", "--verify"))

    def test_a_page_streams_out_whole(self):
        page = self.succeed("report", "r", "-o", "-")
        self.assertTrue(page.startswith("<!doctype html>"))
        self.assertTrue(page.endswith("</html>\n"))

    def test_other_names_of_the_standard_output_mean_it_too(self):
        expected = self.succeed("replay", "r", "--csv", "-")
        self.assertEqual(self.succeed("replay", "r", "--csv", "/dev/stdout"), expected)
        with open(self.path("out"), "wb") as file:
            self.raw("replay", "r", "--csv", "/dev/stdout", stdout=file)
        self.assertEqual(self.content("out").decode(), expected)
        self.assertTrue(os.path.islink("/dev/stdout"))

    def test_a_device_is_written_to_and_stays_a_device(self):
        null = self.path("null")
        try:
            os.mknod(null, stat.S_IFCHR | 0o666, os.makedev(1, 3))
            open(null, "wb").close()
        except OSError:
            null = "/dev/null"
            if os.geteuid() == 0:
                self.skipTest("no device to try this on")
        for arguments in (["simulate", "--seconds", 0.1, "-o", null], ["report", "r", "-o", null],
                          ["replay", "r", "--csv", null], ["replay", "r", "--jsonl", null],
                          ["replay", "r", "--record", null],
                          ["calibration", "import", STEREO, "--unit", "m", "-o", null]):
            for force in ([], ["--force"]):
                self.succeed(*arguments, *force)
                self.assertTrue(stat.S_ISCHR(os.stat(null).st_mode), arguments)

    def test_a_pipe_gets_the_bytes_and_stays_a_pipe(self):
        os.mkfifo(self.path("pipe"))
        found = []
        reader = threading.Thread(target=lambda: found.append(self.content("pipe")), daemon=True)
        reader.start()
        self.succeed("replay", "r", "--csv", "pipe", "--force")
        reader.join()
        self.assertEqual(found[0].decode(), self.succeed("replay", "r", "--csv", "-"))
        self.assertTrue(stat.S_ISFIFO(os.stat(self.path("pipe")).st_mode))

    def test_a_link_stays_and_its_target_is_written(self):
        os.mkdir(self.path("kept"))
        for name, arguments in (
                ("r.html", ["report", "r", "-o"]), ("r.csv", ["replay", "r", "--csv"]),
                ("again", ["replay", "r", "--record"]),
                ("new", ["simulate", "--seconds", "0.1", "-o"])):
            target = os.path.join("kept", name)
            os.symlink(target, self.path(name))
            self.succeed(*arguments, name)  # the target is not there yet
            os.utime(self.path(target), (0, 0))
            self.assertIn("--force", self.fail_in_one_line(*arguments, name))
            self.succeed(*arguments, name, "--force")
            self.assertTrue(os.path.islink(self.path(name)))
            self.assertGreater(os.stat(self.path(target)).st_mtime, 0)
        os.symlink("round", self.path("round"))
        self.assertIn("a link that leads nowhere",
                      self.fail_in_one_line("replay", "r", "--csv", "round", "--force"))

    def test_two_outputs_that_are_one_file_are_refused_before_anything_is_written(self):
        os.symlink("x", self.path("y"))
        os.mkdir(self.path("d"))
        before = self.files()
        for outputs in (["--csv", "x", "--jsonl", "x"], ["--csv", "x", "--record", "x"],
                        ["--csv", "x", "--jsonl", "y"], ["--csv", "x", "--jsonl", "d/../x"],
                        ["--csv", "-", "--jsonl", "-"], ["--csv", "-", "--json"],
                        ["--tum", "t", "--csv", "t-object2.tum"]):
            for force in ([], ["--force"]):
                message = self.fail_in_one_line("replay", "r", *outputs, *force)
                self.assertIn("expected different outputs, found the same file as", message)
                self.assertEqual(self.files(), before)
        for name in ("x", "z"):
            with open(self.path(name), "w") as file:
                file.write("precious")
        os.remove(self.path("z"))
        os.link(self.path("x"), self.path("z"))
        self.fail_in_one_line("replay", "r", "--csv", "x", "--jsonl", "z", "--force")
        self.assertEqual(self.content("x"), b"precious")
        self.fail_in_one_line("calibration", "import", STEREO, "--unit", "m", "-o", "a", "-o",
                              "./a")

    def test_what_another_run_left_beside_the_output_is_not_replaced_unasked(self):
        for name, arguments in (("o.csv", ["replay", "r", "--csv", "o.csv"]),
                                ("o.rec", ["simulate", "--seconds", "0.1", "-o", "o.rec"])):
            with open(self.path("precious"), "w") as file:
                file.write("precious")
            os.symlink("precious", self.path(name + ".partial"))
            self.assertIn(".partial", self.fail_in_one_line(*arguments))
            self.succeed(*arguments, "--force")
            self.assertEqual(self.content("precious"), b"precious")
            self.assertNotIn(name + ".partial", self.files())

    def test_permission_trouble_is_named_as_such(self):
        if os.geteuid() == 0:
            self.skipTest("root may write everywhere")
        os.mkdir(self.path("locked"), 0o500)
        self.assertIn("Permission denied",
                      self.fail_in_one_line("replay", "r", "--csv", "locked/x"))

    def test_nothing_is_left_among_the_temporary_files(self):
        os.mkdir(self.path("temporary"))
        self.raw("simulate", "--seconds", "0.1", "-o", "-", stdout=subprocess.DEVNULL,
                 env={**os.environ, "TMPDIR": self.path("temporary")})
        self.assertEqual(os.listdir(self.path("temporary")), [])

    def begin(self, *arguments, wait_for=None, **options):
        process = subprocess.Popen([ALGTRACK, *arguments], cwd=self.folder, text=True,
                                   stderr=subprocess.PIPE, **options)
        self.addCleanup(lambda: process.poll() is None and process.kill())
        while wait_for and not os.path.exists(self.path(wait_for)):
            self.assertIsNone(process.poll())
            time.sleep(0.01)
        return process

    def test_a_second_interrupt_leaves_nothing_unfinished(self):
        os.mkfifo(self.path("pipe"))
        before = self.files()
        # It waits for a reader of the pipe, however often it is told to end in order.
        process = self.begin("replay", "r", "--csv", "o", "--jsonl", "pipe",
                             wait_for="o.partial", stdout=subprocess.DEVNULL)
        process.send_signal(signal.SIGINT)
        with self.assertRaises(subprocess.TimeoutExpired):
            process.wait(0.5)
        process.send_signal(signal.SIGINT)
        self.assertEqual((process.communicate(timeout=30)[1], process.returncode),
                         ("", -signal.SIGINT))
        self.assertEqual(self.files(), before)

    def test_who_stops_reading_leaves_nothing_unfinished(self):
        before = self.files()
        process = self.begin("replay", "r", "--csv", "-", "--record", "o", stdout=subprocess.PIPE)
        process.stdout.close()
        self.assertEqual((process.wait(30), process.stderr.read()), (-signal.SIGPIPE, ""))
        self.assertEqual(self.files(), before)
        process.stderr.close()

    def test_what_kills_at_once_leaves_nothing_among_the_temporary_files(self):
        os.mkdir(self.path("temporary"))
        process = self.begin("simulate", "--seconds", "20000", "-o", "-", stdout=subprocess.DEVNULL,
                             env={**os.environ, "TMPDIR": self.path("temporary")})
        while not os.listdir(self.path("temporary")):
            time.sleep(0.01)
        time.sleep(0.2)
        process.send_signal(signal.SIGPIPE)
        process.communicate(timeout=30)
        self.assertEqual(process.returncode, -signal.SIGPIPE)
        self.assertEqual(os.listdir(self.path("temporary")), [])

    def test_a_terminal_that_is_closed_ends_a_command_in_order_unless_it_is_to_stay(self):
        before = self.files()
        process = self.begin("simulate", "--seconds", "20000", "-o", "o", wait_for="o.partial-wal",
                             stdout=subprocess.DEVNULL)
        process.send_signal(signal.SIGHUP)
        self.assertEqual((process.communicate(timeout=30)[1], process.returncode),
                         ("algtrack: interrupted: nothing was written, files that were there are "
                          "as before\n", 2))
        self.assertEqual(self.files(), before)
        process = self.begin("replay", "r", "--realtime", "--csv", "o", wait_for="o.partial",
                             stdout=subprocess.DEVNULL,
                             preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        process.send_signal(signal.SIGHUP)
        self.assertEqual((process.communicate(timeout=30)[1], process.returncode), ("", 0))

    def test_an_interrupt_names_what_went_out_in_part(self):
        self.simulate("long", "--seconds", 60)
        process = self.begin("replay", "long", "--realtime", "--csv", "-", stdout=subprocess.PIPE)
        self.assertTrue(process.stdout.readline().startswith("# algtrack replay"))
        process.send_signal(signal.SIGINT)
        self.assertEqual((process.communicate(timeout=30)[1], process.returncode),
                         ("algtrack: interrupted: written in part: -; nothing else was\n", 2))

    def test_the_beginning_of_several_names_is_not_the_standard_output(self):
        before = self.files()
        for command in ("replay", "tracks"):
            self.assertIn("--tum: expected what the names of several files begin with, found -",
                          self.fail_in_one_line(command, "r", "--tum", "-"))
        self.assertEqual(self.files(), before)

    def test_a_recording_that_may_not_be_read_is_named_as_such(self):
        nobody = dict(user=65534, group=65534, extra_groups=[]) if os.geteuid() == 0 else {}
        os.chmod(self.folder, 0o755)
        os.chmod(self.path("r"), 0)
        for arguments in (["inspect", "r"], ["replay", "r"], ["tracks", "r", "--csv", "-"],
                          ["repair", "r", "-o", "/dev/null"]):
            try:
                result = self.raw(*arguments, stdout=subprocess.DEVNULL, **nobody)
            except PermissionError:
                self.skipTest("nobody may not run the program")
            self.assertEqual((result.returncode, result.stderr.decode()), (
                2, "algtrack: r: expected a recording, found a file that cannot be opened: "
                   "Permission denied\n"), arguments)

    def test_beside_an_output_on_the_standard_output_nothing_is_said(self):
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.json")
        for arguments in (["calibration", "import", "rig.json", "-o", "-"],
                          ["rig", "map", "--calibration", "rig.json", "--csv", "-"],
                          ["rig", "map", "--calibration", "rig.json", "-o", "-"],
                          ["tracks", "r", "--csv", "-"], ["export", "r", "--mcap", "-"],
                          ["repair", "r", "-o", "-"]):
            result = self.raw(*arguments, stdout=subprocess.PIPE)
            self.assertEqual((result.returncode, result.stderr), (0, b""), arguments)
            self.assertNotEqual(result.stdout, b"")

    def test_newer_outputs_leave_a_device_a_device(self):
        null = self.path("null")
        try:
            os.mknod(null, stat.S_IFCHR | 0o666, os.makedev(1, 3))
            open(null, "wb").close()
        except OSError:
            self.skipTest("no device to try this on")
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.json")
        for arguments in (["tracks", "r", "--csv", null], ["tracks", "r", "--jsonl", null],
                          ["export", "r", "--mcap", null], ["repair", "r", "-o", null],
                          ["rig", "map", "--calibration", "rig.json", "-o", null],
                          ["rig", "map", "--calibration", "rig.json", "--csv", null]):
            for force in ([], ["--force"]):
                self.succeed(*arguments, *force)
                self.assertTrue(stat.S_ISCHR(os.stat(null).st_mode), arguments)

    def test_no_name_of_a_file_steers_the_terminal(self):
        name = "e\x1b[31m\nforged"
        self.simulate(name, "--seconds", 1, "--product-type", 2, "--noise", 0.05)
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", name + ".json")
        for arguments in (["inspect", name], ["replay", name, "--csv", "-"],
                          ["replay", name, "--tum", name], ["tracks", name, "--csv", "-"],
                          ["report", name, "-o", name + ".html"], ["export", name, "--mcap", "m"],
                          ["repair", name, "-o", name + ".saved"],
                          ["rig", "map", "--calibration", name + ".json"],
                          ["calibration", "check", name + ".json", "--recording", name],
                          ["calibration", "show", name + ".json"],
                          ["calibration", "import", name + ".json", "-o", name + ".bin"],
                          ["body", "pose", name + ".none", "--body", "b", "--csv", "-"]):
            result = self.run_algtrack(*arguments)
            for output in (result.stdout, result.stderr):
                self.assertFalse("\x1b" in output or "\nforged" in output, arguments)
        with open(self.path(name + "-object0.tum")) as file:
            self.assertNotIn("\x1b", file.read())

if __name__ == "__main__":
    unittest.main()
