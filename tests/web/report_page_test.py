#!/usr/bin/env python3
"""The page of algtrack report, in headless Chromium. Skipped where chromium or node is missing."""
import json
import math
import os
import shutil
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "algtrack"))
from algtrack_case import AlgtrackCase

NODE = shutil.which("node")
CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")
SKIPPED = 77


class ReportPageTest(AlgtrackCase):
    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    def check_page(self, name, *arguments, **expected):
        """Makes the page of a recording and lets the browser check it."""
        self.succeed("report", name, "-o", f"{name}.html", *arguments)
        expected["numbers"] = json.loads(self.succeed("report", name, "--json", *arguments))
        health = expected["numbers"]["recording"]["calibration_health"]
        if health and len(health["trend"]) > 1:  # residuals
            expected["canvases"] += 1
        result = subprocess.run(
            [NODE, os.path.join(HERE, "check_page.mjs"), CHROMIUM, self.path(f"{name}.html")],
            input=json.dumps(expected), text=True, capture_output=True, timeout=240)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_a_simulated_recording_with_everything(self):
        self.simulate("walk.algrec", "--seconds", 12, "--noise", 0.05, "--dropouts", 0.02,
                      "--strays", 0.5, "--splits", 0.05, "--loss", 0.01, "--corrupt", 0.01,
                      "--occlude", "1:4-5.5")
        # Per object x, y, z, error, residual and ray gap; three paths, presence, histogram.
        self.check_page("walk.algrec", canvases=3 * 6 + 5,
                        says=["What the same light could give", "Object 2, smoothed"])

    def test_a_long_recording_of_six_objects_at_rest(self):
        self.simulate("still.algrec", "--seconds", 60, "--noise", 0.05, "--scene", "still",
                      "--product-type", 2)
        self.check_page("still.algrec", canvases=6 * 6 + 5, says=["Jitter at rest", "Total"])

    def test_a_rig_that_moves_is_drawn_over_time(self):
        self.simulate("loose.algrec", "--seconds", 20, "--noise", 0.05, "--drift", "0.5,0,0",
                      "--product-type", 2)
        self.check_page("loose.algrec", canvases=6 * 6 + 5, says=["Calibration over time", "cameras moved"])

    def test_without_truth_or_answers_and_with_an_object_that_never_came(self):
        self.simulate("bare.algrec", "--seconds", 3, "--product-type", 0, "--no-queries",
                      "--occlude", "2:0-99")
        self.change("bare.algrec", "DELETE FROM truth")
        self.check_page("bare.algrec", canvases=2 * 5 + 5,
                        says=["Never seen in this recording", "holds no truth",
                              "asked for no poses"])

    def test_queries_without_an_answer_are_not_called_silence(self):
        self.simulate("asked.algrec", "--seconds", 2, "--product-type", 0,
                      "--occlude", "0:0-99", "--occlude", "1:0-99", "--occlude", "2:0-99")
        # Nothing was seen: no chart has anything to draw.
        self.check_page("asked.algrec", canvases=3 * 3 + 5, few=True, least=0,
                        says=["no answer held an object"])

    def test_bodies_have_a_card_with_charts_each(self):
        hostile = "</script><script>document.title = 'taken'</script>"
        places = {"tool.json": {0: (40, 0, 0), 1: (-30, 20, 5), 2: (0, -35, 10)},
                  "six.json": {3: (10, 30, -20), 4: (-45, -20, -25), 5: (30, 30, 40)}}
        places["all.json"] = {**places["tool.json"], **places["six.json"]}
        for file, markers in places.items():
            self.write(file, json.dumps({
                "format": "alg_factory body", "version": 1, "unit": "mm",
                "name": hostile if file == "six.json" else file[:-5],
                "markers": [{"id": i, "position": p} for i, p in markers.items()]}))
        self.write("motion.tum", "".join(
            f"{n / 10} {0.02 * math.sin(n / 9)} {0.03 * math.cos(n / 7)} 0 0 "
            f"{math.sin(n / 40)} 0 {math.cos(n / 40)}\n" for n in range(61)))
        self.simulate("body.algrec", "--seconds", 6, "--product-type", 2, "--noise", 0.05, "--body",
                      "all.json", "--trajectory", "motion.tum", "--marker-size", 10, "--occlude",
                      "1:2-3", "--occlude", "4:4-5")
        # Per body errors of position and orientation, residual, visible markers.
        self.check_page("body.algrec", "--body", "tool.json", "--body", "six.json",
                        canvases=6 * 6 + 5 + 2 * 4, says=["Bodies", "Orientation error", hostile])

    def test_text_from_the_recording_is_only_text(self):
        name = "<b>&amp; \u00fc.algrec"
        self.simulate(name, "--seconds", 1, "--wrong-check", 0.5, "--framing", "plain")
        hostile = "</script><script>document.title = 'taken'</script><img src=x onerror=alert(1)>"
        self.change(name, "UPDATE logs SET text = ?", hostile)
        self.change(name, "UPDATE meta SET value = ? WHERE key = 'platform'", hostile)
        self.check_page(name, canvases=3 * 6 + 5, says=[hostile, name])

    def test_one_packet_is_enough(self):
        self.simulate("one.algrec", "--seconds", 0.001, "--product-type", 0)
        self.check_page("one.algrec", canvases=3 * 6 + 5, few=True)


if __name__ == "__main__":
    if not NODE or not CHROMIUM:
        print(f"skipped: {'node' if not NODE else 'chromium'} is missing")
        sys.exit(SKIPPED)
    unittest.main()
