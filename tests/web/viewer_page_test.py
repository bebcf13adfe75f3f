#!/usr/bin/env python3
"""The page of algtrack view, in headless Chromium. Skipped where chromium or node is missing."""
import csv
import http.server
import json
import math
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "algtrack"))
from algtrack_case import ALGTRACK
from body_case import BodyCase

NODE = shutil.which("node")
CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")
SKIPPED = 77
TOKEN = "a-token-of-this-test"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class ViewerPageTest(BodyCase):
    def serve(self, *arguments):
        """Starts a server; returns its address."""
        server = subprocess.Popen([ALGTRACK, "view", "--no-browser", *map(str, arguments)],
                                  cwd=self.folder, text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE)
        self.server = server
        self.addCleanup(self.end, server)
        address = server.stdout.readline().strip()
        self.assertRegex(address, r"^http://127\.0\.0\.1:\d+/\?token=")
        return address

    def end(self, server):
        """Ctrl-C ends it in order."""
        if server.poll() is None:
            server.send_signal(signal.SIGINT)
        _, said = server.communicate(timeout=30)
        self.assertEqual((server.returncode, said), (0, ""))

    def begin_check(self, name, **facts):
        check = subprocess.Popen([NODE, os.path.join(HERE, "check_viewer.mjs"), name, CHROMIUM],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, text=True)
        check.stdin.write(json.dumps(facts) + "\n")
        check.stdin.flush()
        check.stdin.close()
        check.stdin = None
        return check

    def finish_check(self, check):
        out, said = check.communicate(timeout=240)
        self.assertEqual(check.returncode, 0, out + said)

    def check(self, name, **facts):
        self.finish_check(self.begin_check(name, **facts))

    def wait_for(self, check, word):
        line = check.stdout.readline().strip()
        if line != word:
            self.finish_check(check)
        self.assertEqual(line, word)

    def block_of(self, name, packet):
        """The call and the positions of a packet, from the file itself."""
        calls = self.query(name, "SELECT id FROM calls WHERE kind = 'InputStream' ORDER BY id")
        call = calls[packet][0]
        block = self.query(name, "SELECT block FROM blocks WHERE call = ?", call)[0][0]
        return call, self.positions(block)

    def walk(self, name="walk.algrec", *more):
        self.simulate(name, "--seconds", 10, "--noise", 0.05, "--product-type", 2, "--strays", 0.3,
                      "--corrupt", 0.01, "--occlude", "1:4-5.5", *more)

    def test_a_markers_pixel_is_where_the_projection_of_its_position_says(self):
        self.simulate("walk.algrec", "--seconds", 6, "--product-type", 2)
        _, positions = self.block_of("walk.algrec", 300)
        address = self.serve("walk.algrec")
        # Objects that hide each other in this view are left to the nearer one.
        shown = {}
        for i, (x, y, z) in sorted(positions.items(), key=lambda item: -item[1][2]):
            if all((x / z - a / c) ** 2 + (y / z - b / c) ** 2 > (60 / 1000) ** 2
                   for a, b, c in shown.values()):
                shown[i] = (x, y, z)
        self.check("marker", address=address + "#t=3.334", packet=300, positions=shown)

    def test_a_bodys_pixels_are_where_the_truth_of_its_markers_says(self):
        # Its origin is the middle of markers 0 and 1.
        self.write_body("tool.json", {0: (70, 0, 0), 1: (-70, 0, 0), 2: (0, 90, 0), 3: (0, 20, 60)},
                        title="<b>tool</b>")
        self.write_motion("motion.tum")
        self.simulate_body("r.algrec", "tool.json", "motion.tum")
        self.check_body("tool.json", r"^<b>tool</b> -?\d.*°.* 4 of 4 markers")

    def test_the_two_point_objects_pixels_are_where_its_markers_are(self):
        with open(self.path("stick.json"), "w", encoding="utf-8") as file:
            json.dump({"format": "alg_factory body", "version": 1, "name": "stick", "unit": "mm",
                       "markers": [{"id": 2, "position": (x, 0, 0)} for x in (-60, 60)]}, file)
        self.write_motion("motion.tum")
        self.succeed("simulate", "-o", "r.algrec", "--product-type", 1, "--trajectory", "motion.tum",
                     "--body", "stick.json", "--seconds", 6, "--noise", 0.05, "--distance", 1500,
                     "--marker-size", 10)
        self.check_body("stick.json", r"^stick -?\d.* mm, its line \d\.\d\d° · 2 of 2 markers")

    def check_body(self, name, says):
        """Of a body whose first two markers have its origin between them."""
        truth = {}
        for time_ns, *_, x, y, z in self.query(
                "r.algrec", "SELECT time_ns, object, marker, x, y, z FROM truth ORDER BY object, marker"):
            truth.setdefault(time_ns, []).append((x, -y, -z))  # as delivered

        def places(packet):
            calls = self.query("r.algrec",
                               "SELECT start_ns FROM calls WHERE kind = 'InputStream' ORDER BY id")
            markers = truth[calls[packet][0]]
            return markers, [(a + b) / 2 for a, b in zip(*markers[:2])]

        markers, origin = places(400)
        address = self.serve("r.algrec", "--body", name)
        self.check("body", address=address + "#t=4.4501", packet=400, markers=markers,
                   origin=origin, earlier=places(355)[1], says=says)

    def test_estimated_positions_are_those_of_the_tracks_command(self):
        self.simulate("walk.algrec", "--seconds", 6, "--product-type", 0, "--noise", 0.05)
        text = self.succeed("tracks", "walk.algrec", "--csv", "-")
        rows = list(csv.DictReader(line for line in text.splitlines() if line[0] != "#"))
        times = sorted({float(row["time_s"]) for row in rows})
        time = min(times, key=lambda t: abs(t - 3.3333))
        found = {}
        for row in rows:
            if float(row["time_s"]) == time:
                found[row["object"]] = {
                    "position": [float(row[axis]) for axis in "xyz"],
                    "sd": math.hypot(*(float(row["sd_" + axis]) for axis in "xyz")),
                    "speed": math.hypot(*(float(row["rate_" + axis]) for axis in "xyz"))}
        self.assertEqual(len(found), 3)
        self.check("estimated", address=self.serve("walk.algrec") + "#t=3.334", packet=300,
                   objects=found)

    def test_a_line_says_what_the_cameras_saw_of_the_calibration(self):
        told = []
        for name, more in (("bent", ["--bend", "0.3,-0.4,0.25"]), ("loose", ["--drift", "0.5,0,0"])):
            self.simulate(name, "--seconds", 20, "--product-type", 2, "--noise", 0.05, *more)
            numbers = json.loads(self.succeed("report", name, "--json"))
            told.append(numbers["recording"]["calibration_health"])
        self.assertEqual([health["verdict"] for health in told], ["stale", "drifts"])
        self.check("health", address=self.serve("bent", "loose"), told=told)

    def test_a_browser_without_webgl_shows_the_scene(self):
        self.simulate("walk.algrec", "--seconds", 6, "--product-type", 2)
        self.check("plain", address=self.serve("walk.algrec") + "#t=5")

    def test_blobs_their_ends_and_the_missing_object_are_those_that_the_command_lists(self):
        self.walk()
        told = json.loads(self.succeed("inspect", "walk.algrec", "--explain", "450", "--json"))
        address = self.serve("walk.algrec")
        blobs = [b for b in told["blobs"] if b["end"] == "delivered"]
        moment = self.query("walk.algrec", "SELECT start_ns FROM calls WHERE id = ?", told["call"])
        first = self.query("walk.algrec", "SELECT min(start_ns) FROM calls")
        seconds = (moment[0][0] - first[0][0]) / 1e9
        self.check("images", address=f"{address}#t={seconds + 1e-4}", packet=450, width=self.width(),
                   rows=len(told["blobs"]), missing=["Object 1 missing: no camera saw id 1"],
                   blobs=[{"camera": int(b["camera"] == "right"), "id": b["id"], "x": b["x_px"],
                           "y": b["y_px"]} for b in blobs])

    def width(self):
        """Of the images, as the page guesses it from the principal points."""
        (payload,) = self.query("walk.algrec", "SELECT payload FROM calls WHERE kind = 'Init'")[0]
        numbers = struct.unpack("<115d", payload)
        return -(-(numbers[3] + numbers[20]) // 1)

    def test_time_by_mouse_keys_events_and_address(self):
        self.walk()
        packets = self.query("walk.algrec", "SELECT id FROM calls WHERE kind = 'InputStream'")
        listed = self.succeed("inspect", "walk.algrec").split("check byte is wrong")[1]
        corrupt = [int(found) for found in re.findall(r"^ +(\d+) +\d+ +[\d.]+$",
                                                      listed.split("Packets, byte")[0], re.M)]
        self.assertGreater(len(corrupt), 3)
        self.check("time", address=self.serve("walk.algrec"), packets=len(packets), seconds=10,
                   corrupt=corrupt)

    def test_playing_slow_and_fast_and_in_a_loop(self):
        self.simulate("walk.algrec", "--seconds", 10, "--product-type", 2)
        self.check("playing", address=self.serve("walk.algrec"), packets=900, seconds=10)

    def test_everything_by_keyboard(self):
        self.walk()
        self.check("keys", address=self.serve("walk.algrec") + "#t=2")

    def test_light_and_dark_wide_and_narrow(self):
        self.walk()
        self.check("looks", address=self.serve("walk.algrec") + "#t=5")

    def test_text_from_the_recording_is_only_text(self):
        name = "<b>&amp; \u00fc.algrec"
        self.simulate(name, "--seconds", 1, "--wrong-check", 0.5, "--framing", "plain")
        hostile = "</script><script>document.title = 'taken'</script><img src=x onerror=alert(1)>"
        self.change(name, "UPDATE logs SET text = ?", hostile)
        self.check("texts", address=self.serve(name) + "#t=0.5", text=hostile, file=name)

    def test_a_second_recording_is_laid_over_the_first(self):
        self.simulate("a.algrec", "--seconds", 4, "--product-type", 2)
        self.simulate("b.algrec", "--seconds", 4, "--product-type", 2, "--noise", 0.3,
                      "--occlude", "1:1-3")
        told = json.loads(self.succeed("inspect", "b.algrec", "--explain", "180", "--json"))
        second = {"packet": 180, "delivered": sum(b["end"] == "delivered" for b in told["blobs"]),
                  "blobs": [[b["camera"], b["id"], round(b["x_px"], 2), round(b["y_px"], 2)]
                            for b in told["blobs"]]}
        a, b = (self.block_of(name, 180)[1] for name in ("a.algrec", "b.algrec"))
        apart = [sum((p - q) ** 2 for p, q in zip(a[i], b[i])) ** 0.5 if i in a and i in b else None
                 for i in range(6)]
        self.check("two", address=self.serve("a.algrec", "b.algrec") + "#t=2.0001", apart=apart,
                   second=second)

    def test_a_file_that_another_process_writes_is_followed_from_before_it_exists(self):
        check = self.begin_check("follow", address=self.serve("--follow", "live.algrec"),
                                 packets=900)
        self.wait_for(check, "begin")
        subprocess.run([os.environ["PACED_HOST"], self.path("live.algrec"), "10"], check=True,
                       timeout=120, capture_output=True)
        self.finish_check(check)

    def test_the_page_finds_a_server_that_was_started_anew(self):
        self.walk()
        port = free_port()
        arguments = ("walk.algrec", "--port", port, "--token", TOKEN)
        check = self.begin_check("restart", address=self.serve(*arguments) + "#t=5.0001")
        self.wait_for(check, "stop")
        self.end(self.server)
        self.wait_for(check, "start")
        self.serve(*arguments)
        self.finish_check(check)

    def test_a_page_from_another_origin_cannot_read_it(self):
        self.simulate("walk.algrec", "--seconds", 1)
        stranger = http.server.ThreadingHTTPServer(
            ("127.0.0.1", 0), lambda *a: Quiet(*a, directory=self.folder))
        self.addCleanup(stranger.server_close)
        self.addCleanup(stranger.shutdown)
        threading.Thread(target=stranger.serve_forever, daemon=True).start()
        with open(self.path("stranger.html"), "w", encoding="utf-8") as page:
            page.write("<!doctype html><body>stranger</body>")
        self.check("stranger", address=self.serve("walk.algrec"),
                   stranger=f"http://127.0.0.1:{stranger.server_address[1]}/stranger.html")

    def test_saves_a_picture_a_table_and_a_recording_of_the_window(self):
        self.walk()
        folder = self.path("saved")
        os.mkdir(folder)
        check = self.begin_check("saving", address=self.serve("walk.algrec") + "#t=5&from=4&to=6",
                                 folder=folder)
        self.finish_check(check)
        saved = {os.path.splitext(name)[1]: os.path.join(folder, name)
                 for name in os.listdir(folder)}
        with open(saved[".png"], "rb") as picture:
            self.assertEqual(picture.read(8), b"\x89PNG\r\n\x1a\n")
        with open(saved[".csv"], encoding="utf-8") as table:
            lines = table.read().splitlines()
        times = [float(line.split(",")[0]) for line in lines[1:]]
        self.assertTrue(all(4 <= t <= 6 for t in times))
        self.assertEqual(len(times), 6 * len(set(times)))
        self.assertGreater(len(times), 1000)
        # The part holds what the whole recording holds of this time, behind the calls that set the
        # library up.
        part = os.path.relpath(saved[".algrec"], self.folder)
        self.assertEqual(self.query(part, "PRAGMA integrity_check"), [("ok",)])
        kinds = [kind for (kind,) in self.query(part, "SELECT kind FROM calls ORDER BY id LIMIT 4")]
        self.assertEqual(sorted(kinds), ["Init", "SetDataCallback", "SetFilterMode", "SetLogCallback"])
        (first, last) = self.query(part, "SELECT min(call), max(call) FROM blocks")[0]
        self.assertEqual(
            self.query(part, "SELECT call, block FROM blocks ORDER BY call"),
            self.query("walk.algrec", "SELECT call, block FROM blocks WHERE call BETWEEN ? AND ? "
                       "ORDER BY call", first, last))
        self.assertEqual(self.query(part, "SELECT count(*) FROM blocks"), [(len(set(times)),)])
        self.assertGreater(self.query(part, "SELECT count(*) FROM truth")[0][0], 100)


if __name__ == "__main__":
    if not NODE or not CHROMIUM:
        print(f"skipped: {'node' if not NODE else 'chromium'} is missing")
        sys.exit(SKIPPED)
    unittest.main()
