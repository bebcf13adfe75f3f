"""What is found in a recording: the funnel, explanations, differences."""
from dataclasses import dataclass

import numpy as np

from . import _core
from .columns import with_names


class Difference(_core.Error):
    """A recording and the library that runs now do not say the same.

    Attributes (None where they do not apply)
    ----------
    call, packet : int, time : float (s)
        Where they part first.
    field : str
        "block 0, record 2, y"
    recorded, replayed : str
        Both values.
    """

    __module__ = "alg_factory"

    def __init__(self, text, call=None, packet=None, time=None, field=None, recorded=None,
                 replayed=None):
        super().__init__(text)
        self.call, self.packet, self.time = call, packet, time
        self.field, self.recorded, self.replayed = field, recorded, replayed

    def __reduce__(self):
        return Difference, (str(self), self.call, self.packet, self.time, self.field,
                            self.recorded, self.replayed)


def require_agreement(problem):
    """Raises what the trace of the stages found different from the recorded blocks."""
    if problem is not None:
        raise Difference(problem)


@dataclass(frozen=True)
class Funnel:
    """Where the blobs of many packets ended. Every blob ends in exactly one place."""
    records: tuple  #: (left, right) blobs decoded
    ends: dict      #: end -> (left, right), in the order of the stages; "delivered" is the last

    @property
    def delivered(self):
        """Blobs of both cameras that are part of a delivered position."""
        return sum(self.ends["delivered"])

    def to_dict(self):
        """{"records": {"left": n, "right": n}, "ends": {"epipolar": {"left": n, ...}, ...}}"""
        sides = lambda pair: {"left": pair[0], "right": pair[1]}
        return {"records": sides(self.records),
                "ends": {end: sides(pair) for end, pair in self.ends.items()}}

    def __str__(self):
        texts = dict(zip(_core.BLOB_ENDS, _core.BLOB_END_TEXTS))
        rows = [("records decoded", *self.records)]
        rows += [(texts[end], *pair) for end, pair in self.ends.items() if sum(pair)]
        width = max(len(row[0]) for row in rows)
        return "\n".join(f"{text:{width}}  {left:>9}  {right:>9}" for text, left, right in
                         [("", "left", "right"), *rows])


@dataclass(frozen=True)
class Explanation:
    """One packet: what became of every object, and of every blob."""
    packet: int
    call: int
    time: float          #: s
    decoder_report: object  #: the decoder's message; None = nothing to report
    objects: list        #: dicts: object, delivered, held, reason (a short word), text
    blobs: np.ndarray    #: as Recording.blobs, those of this packet
    reasons: list        #: of every blob, why it ended there, with the value and the limit
    text: str            #: all of it, for people

    def to_dict(self):
        """Numbers, texts, lists and dicts only: fit for json.dumps."""
        blobs = [{name: row[name].item() for name in self.blobs.dtype.names} | {"reason": reason}
                 for row, reason in zip(self.blobs, self.reasons)]
        return {"packet": self.packet, "call": self.call, "time": self.time,
                "decoder_report": self.decoder_report, "objects": self.objects, "blobs": blobs}

    def __str__(self):
        return self.text


def with_ends(rows):
    """Blob rows with their end as a word."""
    return with_names(rows, "end", _core.BLOB_ENDS)


def funnel_of(file, object, first, last):
    records, ends, closes, problem = _core.funnel(file, object, first, last)
    require_agreement(problem)
    if not closes:
        raise RuntimeError("the funnel's sums do not close")
    return Funnel(records, dict(zip(_core.BLOB_ENDS, ends)))


def explanation_of(file, time, call, packet, object):
    if sum(name is not None for name in (time, call, packet)) != 1:
        raise ValueError("explain: expected one of time, call and packet")
    found = _core.explain(file, time, call, packet, object)
    require_agreement(found["problem"])
    lines = [found["moment"]]
    lines += [f"object {row['object']}  {row['text']}" for row in found["objects"]]
    for row, reason in zip(found["blobs"], found["reasons"]):
        if object is None or row["id"] == object:
            side = "left" if row["camera"] == 0 else "right"
            lines.append(f"blob {row['blob']}  {side} id {row['id']} at {row['x']:.2f} "
                         f"{row['y']:.2f}  {reason}")
    return Explanation(found["packet"], found["call"], found["time"], found["decoder_report"],
                       found["objects"], with_ends(found["blobs"]), found["reasons"],
                       "\n".join(lines))
