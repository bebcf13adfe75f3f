"""Stereo optical tracking: device packets in, smoothed 3D positions out.

Ask a recording
---------------
>>> import alg_factory as af
>>> r = af.Recording("walk.algrec")          # opens, changes nothing on disk
>>> r.product_type, r.duration               # 1, 20.0 (seconds)
>>> p = r.positions(object=0)                # p.time (n,) s, p.xyz (n, 3) mm
>>> r.blobs                                  # every blob, and why it ended where it did
>>> r[12.0:25.0].funnel()                    # a slice by time has the same interface
>>> print(r.explain(time=12.3))              # one packet: what became of every object

Make recordings, and play them again
------------------------------------
>>> af.simulate("s.algrec", product_type=2, seconds=20, noise=0.05, seed=3)
>>> af.verify("s.algrec")                    # True, or raises af.Difference
>>> new = af.replay("s.algrec", filter_mode=1, calibration="healed.json")
>>> af.report("s.algrec", "s.html")

Markers that belong together
----------------------------
>>> body = af.Body.learn("tool.algrec", ids=[0, 1, 2, 3])   # its shape; body.save("tool.json")
>>> poses = body.track(r, smooth=True)       # time_s, x, y, z, qx, qy, qz, qw, deviations, ...
>>> body.pivot("spot.algrec").tip            # the tip of a pointer
>>> body.check("later.algrec").moved         # ids of the markers that moved

Be a host
---------
>>> host = af.Host(product_type=2, calibration=af.Calibration.load("healed.json"))
>>> host.on_block = lambda block: print(block["records"]["x"][0])
>>> host.feed(packet)                        # bytes; host.feed(packet, stamp=microseconds)
>>> host.pose(0).filtered                    # x, y, z

Units and frames
----------------
Positions are in the unit of the calibration's translation, millimetres as a rule. *As delivered*
means the right camera's frame with y and z negated: x right, y up, z towards the viewer. *Camera*
means that frame as it is: x right, y down, z forward. Times are seconds since the recording's first
call, stamps microseconds, rates per second, angles degrees, image positions pixels.

Errors
------
What cannot be done raises an `Error` in one line: which file, what was expected, what was found.
An argument that is wrong raises ValueError or TypeError.

Many recordings in many variants, on one machine or a cluster: ``python3 -m alg_factory.batch``.
"""
from . import _core
from ._core import (Error, FileError, PipelineInUse, RecordingError, Refused, __version__,
                    HEADING_ANSWER, INERTIAL_RECORD, ORIENTATION_SAMPLE, POSE_ANSWER, RESULT_BLOCK,
                    STEREO_CALIBRATION, TRACKED_POINT)
from .analysis import Difference, Explanation, Funnel
from .bodies import Body, Learning, Pivot, ShapeCheck
from .calibration import Calibration, Check
from .host import Host
from .recording import Answers, Path, Recording
from .sessions import replay, report, simulate, verify

#: Where a blob can end, in the order of the stages, with what it means.
BLOB_ENDS = dict(zip(_core.BLOB_ENDS, _core.BLOB_END_TEXTS))

__all__ = [
    "Recording", "Path", "Answers", "Funnel", "Explanation", "Calibration", "Check", "Host",
    "Body", "Learning", "Pivot", "ShapeCheck", "simulate", "replay", "verify", "report", "BLOB_ENDS",
    "Error", "Difference", "FileError", "RecordingError", "PipelineInUse", "Refused",
    "RESULT_BLOCK", "TRACKED_POINT", "POSE_ANSWER", "HEADING_ANSWER", "ORIENTATION_SAMPLE",
    "INERTIAL_RECORD", "STEREO_CALIBRATION", "__version__",
]
