#!/usr/bin/env python3
"""The page of algtrack rig map, in headless Chromium. Skipped where chromium or node is missing."""
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
STEREO = os.path.join(HERE, "..", "kit", "calibration", "data", "opencv", "stereo_fisheye.yml")


class RigMapPageTest(AlgtrackCase):
    def test_the_map_of_a_wide_pair_is_readable_in_every_width_and_theme(self):
        self.succeed("calibration", "import", STEREO, "--unit", "m", "-o", "rig.json",
                     "--image-size", "640,480")
        self.succeed("rig", "map", "--calibration", "rig.json", "-o", "map.html")
        result = subprocess.run(
            [NODE, os.path.join(HERE, "check_rig_map.mjs"), CHROMIUM, self.path("map.html")],
            text=True, capture_output=True, timeout=240)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


if __name__ == "__main__":
    if not NODE or not CHROMIUM:
        print(f"skipped: {'node' if not NODE else 'chromium'} is missing")
        sys.exit(SKIPPED)
    unittest.main()
