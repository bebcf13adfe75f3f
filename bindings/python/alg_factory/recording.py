"""Recordings as numpy arrays."""
import numbers
import os
import warnings
from dataclasses import dataclass
from functools import cached_property

import numpy as np

from . import _core
from .analysis import explanation_of, funnel_of, require_agreement, with_ends
from .calibration import Calibration
from .columns import with_names
from .files import complete_file

_MIRROR = np.array([1.0, -1.0, -1.0])


@dataclass(frozen=True)
class Path:
    """Where an object was, moment by moment."""
    time: np.ndarray  #: (n,) s since the recording's first call
    xyz: np.ndarray   #: (n, 3) mm as delivered: x right, y up, z towards the viewer
    call: np.ndarray  #: (n,) the packet's call; -1 = the packet was lost

    @property
    def camera(self):
        """(n, 3) mm in the right camera's frame: x right, y down, z forward."""
        return self.xyz * _MIRROR.astype(self.xyz.dtype)

    def __len__(self):
        return len(self.time)


@dataclass(frozen=True)
class Answers:
    """What an object's pose queries were answered."""
    time: np.ndarray      #: (n,) s, of the query
    raw: np.ndarray       #: (n, 3) mm as delivered: the position in the latest block
    filtered: np.ndarray  #: (n, 3) mm as delivered; equals raw where the filter is off
    rate: np.ndarray      #: (n, 3) mm/s; 0 where the filter is off
    call: np.ndarray      #: (n,)

    def __len__(self):
        return len(self.time)


class _Tables:
    """What is read of a recording, once, for it and all its slices."""

    def __init__(self, file):
        self.file = file
        self._track_options = None

    @cached_property
    def columns(self):
        columns = self.file.columns()
        columns["calls"] = with_names(columns["calls"], "kind", _core.CALL_KINDS)
        columns["logs"] = with_names(columns["logs"], "text", columns["texts"])
        return columns

    @cached_property
    def truth(self):
        return self.file.truth()

    @cached_property
    def blobs(self):
        rows, problem = _core.blobs(self.file)
        require_agreement(problem)
        return with_ends(rows)

    def tracks(self, *options):
        if options != self._track_options:
            rows, _ = _core.tracks(self.file, *options)
            self._tracks = with_names(rows, "source", _core.TRACK_SOURCES)
            self._track_options = options
        return self._tracks


class Recording:
    """A recording, by quantity.

    Opening reads nothing but the file's facts and changes nothing on disk; a recording that was cut
    off, or is still being written, opens too (`complete`). Tables are read when they are first
    asked for and kept; they are numpy structured arrays, read only. All have the fields time (s
    since the recording's first call) and call, and, where it applies, packet (its number).

    `recording[12.0:25.0]` is a slice by time, from 12.0 up to and without 25.0 s, with the same
    interface; its times and packet numbers are those of the whole.

    Raises RecordingError, in one line, for what is no recording and, when a table is read, for a
    damaged one.
    """

    def __init__(self, path):
        name = os.fsdecode(path)
        if "\0" in name:
            raise ValueError(f"expected the name of a recording, found {name!r}")
        self._file = _core.RecordingFile(name)
        self._tables = _Tables(self._file)
        self._range = (None, None)

    @classmethod
    def _of(cls, file, tables=None, limits=(None, None)):
        recording = cls.__new__(cls)
        recording._file = file
        recording._tables = tables or _Tables(file)
        recording._range = limits
        return recording

    # Facts

    @property
    def path(self):
        """Of the file; None for a recording in memory."""
        return None if self._file.is_in_memory else self._file.path

    @cached_property
    def metadata(self):
        """library_version, platform, clock, format_version, complete, dropped_calls, and `values`:
        every key of the file."""
        return self._file.metadata()

    @property
    def complete(self):
        """Closed in order; else cut off, or still going on."""
        return self.metadata["complete"]

    @cached_property
    def _inits(self):
        """(call, product type, 920 bytes or None) of every Init."""
        return self._file.configurations()

    def _calibration_of(self, call, record):
        try:
            return record and Calibration.from_bytes(record, "mm")
        except _core.FileError as problem:
            found = str(problem).removeprefix("calibration: ")
            raise _core.FileError(f"{self.path or 'in memory'}: call {call} (Init): {found}") from None

    @cached_property
    def configurations(self):
        """(call, product type, Calibration or None) of every Init. Raises FileError for a
        calibration with numbers that none has, which a host may have passed all the same."""
        return [(call, product_type, self._calibration_of(call, record))
                for call, product_type, record in self._inits]

    @property
    def product_type(self):
        """Of the last Init; None without one."""
        return self._inits[-1][1] if self._inits else None

    @cached_property
    def calibration(self):
        """Of the last Init that got one; None without. Raises FileError as `configurations`."""
        found = [(call, record) for call, _, record in self._inits if record]
        return self._calibration_of(*found[-1]) if found else None

    @property
    def objects(self):
        """range(3) or range(6), by the product type."""
        return range(_core.OBJECTS[self.product_type] if self.product_type in (0, 1, 2) else 0)

    @property
    def duration(self):
        """Seconds from the first call to the last, of a slice those in it."""
        time = self.calls["time"]
        return float(time[-1] - time[0]) if len(time) else 0.0

    # Tables

    def _column(self, name):
        return self._cut(self._tables.columns[name])

    def _cut(self, rows, ahead=0.0):
        first, last = self._range
        if first is None and last is None:
            return rows
        time = np.round(rows["time"] - ahead, 9) if ahead else rows["time"]  # to the nanosecond
        keep = np.ones(len(rows), bool)
        if first is not None:
            keep &= time >= first
        if last is not None:
            keep &= time < last
        return rows[keep]

    @property
    def calls(self):
        """Every call of the host: kind ("InputStream"), type, mode, length, returned (0 or 1;
        -1 = an exception), parent (the call in whose callback it was made; -1 = none), start_ns,
        duration_ns (-1 = not measured)."""
        return self._column("calls")

    @property
    def packets(self):
        """Every device packet: stream_type (0 or 2), stamp (microseconds; 0 for type 0), length
        (bytes), blocks (delivered by it)."""
        return self._column("packets")

    @property
    def blocks(self):
        """Every delivered block: stamp, and records (n, 10): id (-1 = no object), x, y, z (mm as
        delivered), host_position, host_orientation, bearing."""
        return self._column("blocks")

    @property
    def logs(self):
        """The library's messages: level, text (as it came, with its newline)."""
        return self._column("logs")

    @property
    def headings(self):
        """Answers of heading exchanges: orientation (x, y, z, w), yaw, negated_corrected_yaw
        (degrees), score, status."""
        return self._column("headings")

    @property
    def queries(self):
        """Answers of pose queries: event, id (-1 = no object), raw, filtered, rate."""
        return self._column("answers")

    @property
    def markers(self):
        """The truth, marker by marker: frame, call (-1 = its packet was lost), object, marker,
        position (mm, right camera's frame: x right, y down, z forward), in_left, in_right. Empty
        without truth."""
        return self._cut(self._tables.truth)

    def payload(self, call):
        """The bytes that the library read at a call: a packet with its stamp, a calibration, ..."""
        calls = self._tables.columns["calls"]
        found = np.flatnonzero(calls["call"] == call)
        if not len(found):
            raise ValueError(f"expected a call of the recording, found {call}")
        row = calls[found[0]]
        begin = row["payload_begin"]
        return self._tables.columns["payloads"][begin:begin + row["payload_size"]].tobytes()

    @property
    def blobs(self):
        """Every blob of every decoded packet: camera (0 left, 1 right), id, x, y (px, as seen;
        merged blobs at their merged place), diameter (px), end (why it ended there: "delivered",
        "epipolar", ...; `alg_factory.BLOB_ENDS` explains them), value and limit (what decided),
        other (the blob in this packet that it was merged into, or its partner; -1 = none), blob
        (its place in the packet).

        The stages run for it. Raises Difference where they arrive at other blocks than the recorded
        ones (another version of the library recorded them)."""
        return self._cut(self._tables.blobs)

    def funnel(self, object=None):
        """Where the blobs ended: a Funnel; of one blob id with `object`. Raises Difference as
        `blobs`."""
        if object is not None:
            self._check_object(object)
        return funnel_of(self._file, object, *self._range)

    def explain(self, time=None, *, call=None, packet=None, object=None):
        """One packet, by time (s, the nearest), call or packet number: an Explanation of what became
        of every object (or of one) and of every blob. Raises RecordingError if there is no such
        packet, Difference as `blobs`."""
        return explanation_of(self._file, time, call, packet, object)

    def tracks(self, object=None, smooth=False, ahead=0.0, noise=0.0):
        """Better positions than the answers', from the light itself, with their uncertainty.

        smooth : every moment by all that came before and after it; else live, by what came before.
        ahead : s, predict this far ahead of every packet, at most 0.1; not with smooth.
        noise : px, standard deviation of a blob's centre; 0 = from the recording's own light.

        Returns rows by time and object: time, call, object, source ("measured", "bridged",
        "predicted"), age (s since it was seen), position (mm as delivered), velocity (mm/s),
        deviation (mm, standard deviations of position), covariance (9, 9) of position, velocity and
        acceleration. docs/estimation.md has the model. Of a slice, those of its packets, also with
        `ahead`. Raises RuntimeError, with the reason, without packets or with a calibration that
        nothing can be estimated with; warns, with the reason, where all of the recording gives no
        row."""
        if object is not None:
            self._check_object(object)
        check_ahead(ahead, "smooth" if smooth else None)
        check_noise(noise)
        rows = self._tables.tracks(bool(smooth), float(ahead), float(noise))
        if object is not None:
            rows = rows[rows["object"] == object]
        if not len(rows):
            warnings.warn(_core.why_no_track(self._file, object), RuntimeWarning, stacklevel=2)
        return self._cut(rows, float(ahead))

    # Quantities

    def _check_object(self, object):
        if not self.objects:
            raise ValueError("expected an object of product type 0, 1 or 2, found a recording of "
                             f"product type {self.product_type}")
        if object not in self.objects:
            raise ValueError(f"expected an object from 0 to {len(self.objects) - 1} (product type "
                             f"{self.product_type}), found {object}")

    def positions(self, object):
        """Path of an object as delivered, in the packets that delivered it."""
        self._check_object(object)
        blocks = self.blocks
        found, record = np.nonzero(blocks["records"]["id"] == object)
        records = blocks["records"][found, record]
        xyz = np.stack([records["x"], records["y"], records["z"]], axis=-1)
        return Path(blocks["time"][found], xyz, blocks["call"][found])

    def answers(self, object):
        """Answers to an object's pose queries, where they found it."""
        self._check_object(object)
        queries = self.queries
        queries = queries[(queries["event"] == object) & (queries["id"] == object)]
        return Answers(queries["time"], queries["raw"], queries["filtered"], queries["rate"],
                       queries["call"])

    def truth(self, object):
        """Path of an object as it really was: the middle of its markers, frame by frame. Empty
        without truth."""
        self._check_object(object)
        rows = self.markers
        rows = rows[rows["object"] == object]
        _, first, inverse, count = np.unique(rows["frame"], return_index=True, return_inverse=True,
                                             return_counts=True)
        xyz = np.zeros((len(first), 3))
        np.add.at(xyz, inverse, rows["position"])
        xyz = xyz / count[:, None] * _MIRROR
        return Path(rows["time"][first], xyz, rows["call"][first])

    def errors(self, object):
        """(time (n,) s, error (n, 3) mm): delivered position minus truth, packet by packet."""
        found, true = self.positions(object), self.truth(object)
        _, here, there = np.intersect1d(found.call, true.call, return_indices=True)
        return found.time[here], found.xyz[here] - true.xyz[there]

    def to_pandas(self, table=None):
        """A table as a pandas.DataFrame ("calls", "packets", "blocks", "queries", "headings",
        "logs", "markers"), or a dict of all. Fields with several values become columns: raw_0,
        records_3_x. Raises ImportError without pandas."""
        import pandas
        names = ("calls", "packets", "blocks", "queries", "headings", "logs", "markers")
        if table is None:
            return {name: self.to_pandas(name) for name in names}
        if table not in names + ("blobs",):
            raise ValueError(f"expected one of {', '.join(names)}, blobs, found {table!r}")
        return pandas.DataFrame(dict(_flat(getattr(self, table))))

    # In all

    def __getitem__(self, limits):
        if not isinstance(limits, slice) or limits.step is not None:
            raise TypeError("expected a slice by time: recording[12.0:25.0]")
        for seconds in (limits.start, limits.stop):
            if seconds is not None and not (isinstance(seconds, numbers.Real) and seconds >= 0):
                raise ValueError("expected seconds since the recording's first call, 0 or more, "
                                 f"found {seconds!r}")
        inside = lambda value, other, choose: (
            value if other is None else other if value is None else choose(value, other))
        first = inside(limits.start, self._range[0], max)
        last = inside(limits.stop, self._range[1], min)
        return Recording._of(self._file, self._tables, (first, last))

    def _whole(self, what):
        if self._range != (None, None):
            raise ValueError(f"{what}: expected a whole recording, found a slice: what came before "
                             "decides too")

    def save(self, path, overwrite=False):
        """Writes a recording in memory to a file, which `algtrack` reads as any other."""
        self._whole("save")
        if self.path and os.path.exists(self.path + "-wal"):
            raise _core.RecordingError(f"{self.path}: expected a finished recording, found a journal "
                                       "beside it (algtrack repair)")
        path = os.fspath(path)
        if not overwrite and os.path.lexists(path):
            raise _core.RecordingError(f"{path}: expected a new name, found a file (overwrite=True)")
        with complete_file(path, overwrite) as partial:
            self._file.save(partial, path)

    def __repr__(self):
        name = self.path or "in memory"
        first, last = self._range
        cut = "" if self._range == (None, None) else (
            f" from {first or 0:g} s" + ("" if last is None else f" to {last:g} s"))
        return f"<alg_factory.Recording {name}{cut}: product type {self.product_type}>"


def _flat(rows, prefix=""):
    for name in rows.dtype.names:
        values, label = rows[name], prefix + name
        places = [()] if values.ndim == 1 else np.ndindex(values.shape[1:])
        for place in places:
            cell = values[(slice(None), *place)]
            at = "_".join([label, *map(str, place)])
            if cell.dtype.names:
                yield from _flat(cell, at + "_")
            else:
                yield at, cell


def require_number(name, value):
    if not isinstance(value, numbers.Real):
        raise ValueError(f"{name}: expected a number, found {value!r}")


def check_ahead(ahead, other):
    """`other`: what asks for something else than a live estimate, or None."""
    require_number("ahead", ahead)
    if not 0 <= ahead <= 0.1 or (other and ahead):
        raise ValueError(f"ahead: expected 0 to 0.1 s of a live estimate, found {ahead:g}"
                         + (f" with {other}" if other else ""))


def check_noise(noise):
    require_number("noise", noise)
    if not (noise == 0 or 0.001 <= noise <= 100):
        raise ValueError(f"noise: expected 0, or 0.001 to 100 px, found {noise:g}")


def as_recording(source):
    """A Recording from one, or from a file's name."""
    return source if isinstance(source, Recording) else Recording(source)
