"""Calibrations of a camera pair."""
import os
from dataclasses import dataclass

import numpy as np

from . import _core
from .files import write_file


@dataclass(frozen=True)
class Check:
    """What a calibration says about itself and, with a recording, what the recording says of it."""
    geometry: dict   #: baseline, angles (degrees), fields of view (degrees), fundamental_error (px)
    findings: list   #: (code, text): what seems wrong, and what to do
    verdict: object = None   #: "good", "stale", "drifts" or "unknown"; None without a recording
    text: object = None      #: the verdict in one sentence

    @property
    def ok(self):
        """Nothing was found, and the recording, if any, does not say stale or drifts."""
        return not self.findings and self.verdict not in ("stale", "drifts")

    def __str__(self):
        lines = [f"{code}: {text}" for code, text in self.findings]
        if self.text:
            lines.append(self.text)
        return "\n".join(lines) or "nothing wrong was found"


def _array(name, shape, doc):
    def get(self):
        return self._record[name].reshape(shape)
    return property(get, doc=doc)


class Calibration:
    """A stereo pair's calibration, as numbers that do not change.

    Arrays are read-only views. `with_changes` gives another calibration.

    Frames: x right, y down, z forward. A point p_L of the left camera's frame is
    p_R = rotation @ p_L + translation in the right camera's.
    """

    def __init__(self, loaded):
        self._loaded = loaded
        self._record = np.frombuffer(loaded.record, _core.STEREO_CALIBRATION)[0]

    @classmethod
    def load(cls, path, *more, unit=None):
        """Reads a Kalibr camera chain, OpenCV FileStorage (one file or two), our JSON, or the
        920-byte record; unit ("mm", "cm", "m", "in") of the translation where the file does not
        say. Raises FileError for what the library cannot work with."""
        return cls(_core.LoadedCalibration.read([os.fspath(p) for p in (path, *more)], unit))

    @classmethod
    def from_bytes(cls, record, unit="mm", width=0, height=0):
        """From the 920 bytes that the library takes. Raises FileError for numbers that no
        calibration has."""
        return cls(_core.LoadedCalibration(bytes(record), unit, width, height))

    @classmethod
    def built_in(cls):
        """The simulator's pair: 640 x 480 px, about 96 degrees wide, 100 mm baseline."""
        record, width, height = _core.built_in_rig()
        return cls.from_bytes(record, "mm", width, height)

    def with_changes(self, **arrays):
        """A copy with other numbers: with_changes(translation=[-101, 0, 0])."""
        record = np.frombuffer(bytearray(self.to_bytes()), _core.STEREO_CALIBRATION)
        for name, value in arrays.items():
            if name not in record.dtype.names:
                raise ValueError(f"expected one of {', '.join(record.dtype.names)}, found {name!r}")
            record[name][0] = np.asarray(value, float).reshape(record[name][0].shape)
        return Calibration.from_bytes(record.tobytes(), self.unit, self.width, self.height)

    left_intrinsics = _array("left_intrinsics", (3, 3), "(3, 3) [fx, s, cx; 0, fy, cy; 0, 0, 1], px")
    right_intrinsics = _array("right_intrinsics", (3, 3), "(3, 3), px")
    left_distortion = _array("left_distortion", (8,), "(8,) k1 to k4 of the equidistant fisheye "
                             "model, four that are not used")
    right_distortion = _array("right_distortion", (8,), "(8,), as left_distortion")
    rotation = _array("rotation", (3, 3), "(3, 3) a direction in the left frame to the right frame")
    translation = _array("translation", (3,), "(3,) the left camera's centre in the right frame")
    fundamental = _array("fundamental", (3, 3), "(3, 3) a left undistorted point p, in homogeneous "
                         "pixels, gives the line F p in the right image")

    @property
    def unit(self):
        """Of the translation; "" = not known."""
        return self._loaded.unit

    @property
    def width(self):
        """Pixels; 0 = not known."""
        return self._loaded.width

    @property
    def height(self):
        """Pixels; 0 = not known."""
        return self._loaded.height

    def to_bytes(self):
        """The 920 bytes that the library takes."""
        return self._loaded.record

    def save(self, path, overwrite=False):
        """Writes a file in the format that its ending names: .json (ours, every number by name),
        .yml (OpenCV), .yaml (Kalibr), .bin or none (the 920-byte record). It appears complete or
        not at all. Raises FileExistsError for a file that is there unless `overwrite`, ValueError
        for another ending and for what a format has no place for."""
        ending = os.path.splitext(os.fspath(path))[1]
        if ending == ".json":
            content = (self._loaded.json() + "\n").encode()
        elif ending == ".yml":
            content = self._loaded.opencv().encode()
        elif ending == ".yaml":
            content = self._loaded.kalibr().encode()
        elif ending in ("", ".bin"):
            content = self.to_bytes()
        else:
            raise ValueError(f"{path}: expected the ending .json, .yml, .yaml or .bin, "
                             f"found {ending!r}")
        write_file(path, content, overwrite)

    def check(self, recording=None):
        """Judges the numbers and, with a Recording or its path, whether they still belong to the
        cameras that recorded it. Returns a Check."""
        file = getattr(recording, "_file", None)
        if recording is not None and file is None:
            file = _core.RecordingFile(os.fspath(recording))
        found = self._loaded.check(file)
        return Check(found["geometry"], found["findings"], found["verdict"], found["verdict_text"])

    def __eq__(self, other):
        return isinstance(other, Calibration) and self.to_bytes() == other.to_bytes()

    def __hash__(self):
        return hash(self.to_bytes())

    def __repr__(self):
        baseline = float(np.linalg.norm(self.translation))
        return f"<alg_factory.Calibration baseline {baseline:.3f} {self.unit or '(unit not known)'}>"


def as_calibration(source):
    """A Calibration from one, from a file's name, or from 920 bytes."""
    if isinstance(source, Calibration):
        return source
    if isinstance(source, (bytes, bytearray, memoryview)):
        return Calibration.from_bytes(source)
    return Calibration.load(source)
