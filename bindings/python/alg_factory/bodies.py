"""Markers that belong together: their shape, and where they are and how they are turned."""
import json
import math
import operator
import os
import warnings
from dataclasses import dataclass

import numpy as np

from . import _core
from .columns import with_names
from .files import write_file
from .recording import as_recording, check_ahead, check_noise, require_number


@dataclass(frozen=True)
class Learning:
    """How a body was learned."""
    frames: int             #: that took part
    noise: float            #: px, of blob centres, as assumed
    misfit: float           #: 1 where the body is rigid and the noise is that; larger is worse
    distances: np.ndarray   #: of two markers each: first, second (ids), distance, deviation (mm), frames
    loose: list             #: ids left out since they do not hold still relative to the rest
    not_linked: list        #: ids left out since they were never seen with three of the others
    never_together: list    #: (id, id) that no frame saw both


@dataclass(frozen=True)
class Pivot:
    """The tip of a pointer."""
    tip: np.ndarray         #: (3,) mm, body's frame
    covariance: np.ndarray  #: (3, 3) mm^2, of the tip
    spot: np.ndarray        #: (3,) mm as delivered: where it stood
    residual: float         #: mm, root mean square of the tip's distance from the spot
    turned: float           #: degrees, how far the body turned
    poses: int              #: that took part

    @property
    def deviation(self):
        """(3,) mm, standard deviations of the tip."""
        return np.sqrt(np.diagonal(self.covariance))


@dataclass(frozen=True)
class ShapeCheck:
    """Whether a body still has its shape."""
    same: bool           #: no marker moved
    which_known: bool    #: False: the shape is another, and three markers do not tell which moved
    markers: np.ndarray  #: id, seen, shift (mm), deviation (mm, of a shift by noise alone), moved

    @property
    def moved(self):
        """Ids of the markers that moved."""
        return self.markers["id"][self.markers["moved"]].tolist()

    def __str__(self):
        if self.same:
            return "the same shape"
        return "the shape is another now: " + (
            f"moved: {', '.join(map(str, self.moved))}" if self.which_known
            else "three markers do not tell which one moved")


class Body:
    """A rigid body: where its markers are, in a frame of its own. Does not change.

    markers : {blob id: (x, y, z)}, mm, 3 to 16 of them. Product type 1's two-point object is
        {2: ((x, y, z), (x, y, z))}, with the origin on the line of both.
    facings : {blob id: (x, y, z)}, the directions along which they radiate; ids may be missing. Of
        the two-point object as its markers.
    tip : (x, y, z), mm, of a pointer.

    Raises FileError for what is no body: two markers in one place, numbers beyond 100 m; ValueError
    for ids that are no whole numbers and for numbers that are not finite.
    docs/bodies.md has frames and conventions.
    """

    def __init__(self, markers, name="body", tip=None, facings=None):
        facings = facings or {}
        rows = []
        for id in sorted(markers):
            places, directions = _both(markers[id]), _both(facings.get(id))
            if directions and len(directions) != len(places):
                raise ValueError(f"facings: expected as many as markers of id {id}, "
                                 f"{len(places)}, found {len(directions)}")
            for n, place in enumerate(places):
                rows.append({"id": _index(id), "position": _three("markers", place)})
                if directions:
                    rows[-1]["facing"] = _three("facings", directions[n])
        self._set(_shape_of({"name": _text(name), "markers": rows}, tip))

    def _set(self, shape, learning=None):
        self._shape, self._learning = shape, learning

    @classmethod
    def _of(cls, shape, learning=None):
        body = cls.__new__(cls)
        body._set(shape, learning)
        return body

    @classmethod
    def load(cls, path):
        """Reads a file that `save` or `algtrack body learn` wrote. Raises FileError."""
        return cls._of(_core.BodyShape.read(os.fspath(path)))

    @classmethod
    def learn(cls, recording, ids=(0, 1, 2, 3, 4, 5), name="body", noise=0.0):
        """Finds a body's shape from an ordinary recording: any markers visible at a time.

        recording : a Recording, or a file's name.
        ids : the body's blob ids, three or more.
        noise : px, standard deviation of a blob's centre; 0 = from the recording's own light.

        Origin: the markers' mean; x towards the marker of the lowest id, the next marker at positive
        y and z = 0. `learning` says how good it is, `findings` what seems wrong. Raises
        RecordingError where fewer than three markers hold still together.
        """
        ids = sorted(_index(id) for id in ids)
        if len(set(ids)) != len(ids) or len(ids) < 3 or not all(id in range(6) for id in ids):
            raise ValueError(f"ids: expected three or more of 0 to 5, each once, found {ids}")
        found = _core.body_learn(_file_of(recording, "learn", noise), ids, _text(name), float(noise))
        return cls._of(found.pop("body"), Learning(**found))

    @property
    def name(self):
        """What it is called."""
        return self._shape.name

    @property
    def markers(self):
        """Structured array by id: id, position (3) mm in the body's frame, deviation (3) mm,
        standard deviations (0 = not known), facing (3), a unit vector (0 = not known)."""
        return self._shape.markers()

    @property
    def ids(self):
        """The blob ids, in order."""
        return self.markers["id"].tolist()

    @property
    def tip(self):
        """(3,) mm, the tip of a pointer, body's frame; None where there is none."""
        tip = self._shape.tip
        return None if tip is None else np.array(tip)

    @property
    def learning(self):
        """A Learning: how it was learned; None for a body that was not."""
        return self._learning

    @property
    def findings(self):
        """What seems wrong with how it was learned: (code, text) of each."""
        if self._learning is None:
            return []
        found = [("never_together", f"markers {a} and {b} were never seen together")
                 for a, b in self._learning.never_together]
        found += [("not_linked", f"marker {id} is left out: never seen with three of the others")
                  for id in self._learning.not_linked]
        found += [("loose", f"marker {id} is left out: not still relative to the rest")
                  for id in self._learning.loose]
        return found

    def with_tip(self, tip):
        """A copy with another tip, (x, y, z) in mm, or with none."""
        return Body._of(_shape_of(json.loads(self._shape.text()), tip), self._learning)

    def save(self, path, overwrite=False):
        """Writes the file that `algtrack body` reads. It appears complete or not at all. Raises
        FileExistsError for a file that is there unless `overwrite`."""
        write_file(path, self._shape.text().encode(), overwrite)

    def track(self, recording, smooth=False, ahead=0.0, single=False, noise=0.0):
        """Where the body was: live, by what came before every packet.

        recording : a Recording, a slice of one, or a file's name.
        smooth : every moment by all that came before and after it.    single : every packet alone.
        ahead : s, predict this far ahead of every packet, at most 0.1; of live poses only.
        noise : px, standard deviation of a blob's centre; 0 = from the recording's own light.

        Returns a structured array in order of time, as `algtrack body pose --csv`: time_s, call,
        x, y, z (the body's origin, mm as delivered), qx, qy, qz, qw (turns the body's axes into
        these), sd_x, sd_y, sd_z (standard deviations, mm), sd_rx, sd_ry, sd_rz (degrees, about the
        delivered axes), markers (used of the packet's), residual_px (their root mean square),
        source ("measured", "bridged", "predicted"), age_s (since a marker was seen). Of the two-point
        object sd_rx, sd_ry and sd_rz are infinite, since nobody sees how far it is turned about its
        line, and sd_direction (degrees, per axis across the line) says how well that is known. Raises
        RuntimeError without a calibration in the recording; warns, with the reason, where all of it
        has no pose of the body.
        """
        if smooth and single:
            raise ValueError("single: expected one of smooth and single, found both")
        manner = "smooth" if smooth else "single" if single else "live"
        check_ahead(ahead, None if manner == "live" else manner)
        check_noise(noise)
        source = as_recording(recording)
        rows = _core.body_track(source._file, self._shape, manner, float(ahead), float(noise))
        first, last = source._range
        if not len(rows):
            reason = _core.why_no_pose(source._file, self._shape, float(noise))
            warnings.warn(f"{self.name}: no pose in {reason}", RuntimeWarning, stacklevel=2)
        at = np.round(rows["time_s"] - ahead, 9)  # of the packet, to the nanosecond
        keep = (at >= (-np.inf if first is None else first)) & (at < (np.inf if last is None else last))
        names = [name for name in rows.dtype.names
                 if name != "sd_direction" or self._shape.is_pair]
        return with_names(rows[keep][names], "source", _core.TRACK_SOURCES)

    def pivot(self, recording, noise=0.0):
        """The tip of a pointer, from a recording in which it turns about its tip: a Pivot.
        `with_tip(found.tip)` keeps it. Raises RecordingError where it turned too little."""
        self._three_or_more("pivot")
        found = _core.body_pivot(_file_of(recording, "pivot", noise), self._shape, float(noise))
        for name in ("tip", "covariance", "spot"):
            found[name] = np.array(found[name])
        return Pivot(**found)

    def check(self, recording, tolerance=1.0, noise=0.0):
        """Is it still the same shape? A ShapeCheck names the markers that moved by more than
        `tolerance` mm. Raises RecordingError where fewer than three markers hold still together."""
        require_number("tolerance", tolerance)
        if not 0.01 <= tolerance <= 1000:
            raise ValueError(f"tolerance: expected 0.01 to 1000 mm, found {tolerance:g}")
        self._three_or_more("check")
        file = _file_of(recording, "check", noise)
        return ShapeCheck(*_core.body_check(file, self._shape, float(tolerance), float(noise)))

    def _three_or_more(self, what):
        if self._shape.is_pair:
            raise ValueError(f"{what}: expected a body of three markers or more, found {self.name}, "
                             "which has two")

    def __eq__(self, other):
        return isinstance(other, Body) and self._shape.text() == other._shape.text()

    def __hash__(self):
        return hash(self._shape.text())

    def __repr__(self):
        return f"<alg_factory.Body {self.name!r}: markers {', '.join(map(str, self.ids))}>"


def _index(id):
    try:
        return operator.index(id)
    except TypeError:
        raise ValueError(f"ids: expected whole numbers, found {id!r}") from None


def _text(name):
    if not isinstance(name, str):
        raise ValueError(f"name: expected a text, found {name!r}")
    return name


def _both(value):
    """What is given of an id: of the two-point object's two, of any other one; of None none."""
    if value is None:
        return []
    return list(value) if np.ndim(value[0]) == 1 else [value]


def _three(name, values):
    x, y, z = (float(value) for value in values)
    if not all(map(math.isfinite, (x, y, z))):
        raise ValueError(f"{name}: expected finite numbers, found {x:g}, {y:g}, {z:g}")
    return [x, y, z]


def _shape_of(content, tip):
    """From a file's content, with this tip."""
    content = {**content, "format": "alg_factory body", "version": 1, "unit": "mm"}
    content.pop("pivot", None)
    if tip is not None:
        content["pivot"] = _three("tip", tip)
    return _core.BodyShape.from_text(json.dumps(content, allow_nan=False), "body")


def _file_of(recording, what, noise):
    check_noise(noise)
    source = as_recording(recording)
    source._whole(what)
    return source._file


def as_body(source):
    """A Body from one, or from a file's name."""
    return source if isinstance(source, Body) else Body.load(source)
