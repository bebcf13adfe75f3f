"""What the tests of the Python module share. Recordings are made by the program algtrack."""
import os
import subprocess
import sys
import textwrap

import pytest

ALGTRACK = os.environ["ALGTRACK"]


def algtrack(*arguments):
    result = subprocess.run([ALGTRACK, *map(str, arguments)], capture_output=True, text=True,
                            timeout=300)
    assert result.returncode == 0, result.stderr
    return result.stdout


@pytest.fixture(scope="session")
def walk(tmp_path_factory):
    """Five seconds of product type 1, with truth and queries, object 0 hidden from 2 to 3 s."""
    path = tmp_path_factory.mktemp("recordings") / "walk.algrec"
    algtrack("simulate", "-o", path, "--seconds", 5, "--noise", 0.05, "--occlude", "0:2-3")
    return str(path)


@pytest.fixture(scope="session")
def six(tmp_path_factory):
    """Three seconds of product type 2, plain packets, some damaged, one camera blind for a while."""
    path = tmp_path_factory.mktemp("recordings") / "six.algrec"
    algtrack("simulate", "-o", path, "--seconds", 3, "--product-type", 2, "--noise", 0.05,
             "--strays", 0.5, "--corrupt", 0.02, "--loss", 0.02, "--occlude", "3:1-2:left")
    return str(path)


@pytest.fixture
def in_process():
    """Runs code in a process of its own, since the pipeline is one per process; returns its
    output."""
    def run(code):
        result = subprocess.run([sys.executable, "-c", SCENE + textwrap.dedent(code)],
                                capture_output=True, text=True, timeout=120)
        assert result.returncode == 0, result.stderr
        return result.stdout
    return run


# The README's scene, by hand: two equal cameras (f = 400 px, centre 320, 240) 100 mm apart see a
# blob at (340, 200) and (300, 200). The disparity is 40 px.
SCENE = """
import gc, struct, sys, threading
import numpy as np
import alg_factory as af

K = [400, 0, 320, 0, 400, 240, 0, 0, 1]
record = np.zeros((), af.STEREO_CALIBRATION)
record["left_intrinsics"] = record["right_intrinsics"] = K
record["rotation"] = np.eye(3).ravel()
record["translation"] = [-100, 0, 0]
record["fundamental"] = [0, 0, 0, 0, 0, 1, 0, -1, 0]
scene = af.Calibration.from_bytes(record.tobytes())

def packet_with(*blobs):
    data = b"\\xAA\\x55"
    for camera, id, x, y, weight in blobs:
        data += weight.to_bytes(3, "little") + bytes([camera << 4 | id])
        data += struct.pack("<II", weight * x, weight * y)
    return data + bytes([sum(data) & 255])

packet = packet_with((0, 0, 340, 200, 11000), (1, 0, 300, 200, 11000))
"""
