"""One run of a batch: a recording replayed in a variant, in a process of its own.

What a cluster's workers do; `alg_factory.batch` asks them to.
"""
import hashlib
import json
import os
import signal
import subprocess
import sys
import threading

import numpy as np

from . import Error, Recording, __version__, _core, replay, report
from .calibration import Calibration


def content_of(path):
    """The hash of a file's content, or in words why there is none."""
    try:
        digest = hashlib.sha256()
        with open(path, "rb") as file:
            while piece := file.read(1 << 20):
                digest.update(piece)
        return {"content": digest.hexdigest()}
    except OSError as error:
        return {"error": f"{path}: {error.strerror or error}"}


def library_identity():
    """Version and build of the library that runs here."""
    return f"{__version__} {content_of(_core.__file__).get('content', '')[:16]}"


def run_in_process(job):
    """Runs a job in a process of its own and returns its row, whatever becomes of that process.

    job : {"recording": path, "calibration": 920 bytes in hexadecimal digits or None, "filter_mode",
        "product_type": int or None, "library": identity, "timeout": s or None}
    """
    command = [sys.executable, "-m", "alg_factory.batch_run", json.dumps(job)]
    try:
        # The process ends with the pipe at its input: it does not outlive a worker that is killed.
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            try:
                output, errors = _communicate(process, job.get("timeout"))
            except subprocess.TimeoutExpired:
                process.kill()
                return failed(f"not done after {job['timeout']:g} s")
    except OSError as error:
        return failed(f"no process could be started: {error}")
    if process.returncode < 0:
        name = signal.Signals(-process.returncode).name
        return failed(f"its process was ended by signal {name}")
    try:
        return json.loads(output)
    except ValueError:
        last = errors.decode(errors="replace").strip().splitlines()[-1:] or ["no message"]
        return failed(f"its process ended with status {process.returncode}: {last[0]}")


def _communicate(process, timeout):
    """As process.communicate, with the input left open."""
    collected = {}
    def collect(name):
        collected[name] = getattr(process, name).read()
    readers = [threading.Thread(target=collect, args=(name,)) for name in ("stdout", "stderr")]
    for reader in readers:
        reader.start()
    process.wait(timeout)
    for reader in readers:
        reader.join()
    return collected["stdout"], collected["stderr"]


def failed(message):
    return {"status": "failed", "message": " ".join(str(message).split())}


def run(job):
    """The row of a run: what the variant delivered, and how that differs from the recorded."""
    if job["library"] != library_identity():
        return failed(f"this worker has another library: {library_identity()}, expected "
                      f"{job['library']}")
    recorded = Recording(job["recording"])
    calibration = job["calibration"] and Calibration.from_bytes(bytes.fromhex(job["calibration"]))
    new = replay(recorded, product_type=job["product_type"], calibration=calibration,
                 filter_mode=job["filter_mode"])
    try:
        numbers = report(new)
    except (Error, RuntimeError) as error:  # of a file in memory, whose name tells nobody anything
        raise RuntimeError(str(error).replace(new._file.path, job["recording"])) from None
    facts = numbers["recording"]
    objects = [_object_row(of_object, recorded, new) for of_object in numbers["objects"]]
    return {"status": "done", "message": "", "packets": len(new.packets), "calls": len(new.calls),
            "blocks": len(new.blocks), "duration_s": new.duration,
            "has_truth": bool(facts.get("has_truth")), "complete": recorded.complete,
            "objects": objects}


def _object_row(numbers, recorded, new):
    """An object's figures of the report, and how far its delivered positions moved."""
    object = numbers["object"]
    presence = numbers["presence"]
    median = lambda distribution: (distribution or {}).get("median")
    row = {"object": object, "packets": presence["packets"], "seen": presence["seen"],
           "gaps": presence["gaps"], "error_median_mm": median(numbers["error_mm"]["raw"]),
           "filtered_error_median_mm": median(numbers["error_mm"]["filtered"]),
           "epipolar_median_px": median(numbers["epipolar_px"]), "jumps": numbers["jumps"],
           "moved_median_mm": None, "moved_most_mm": None, "answers_moved_median_mm": None,
           "answers_moved_most_mm": None, "lost": None, "gained": None,
           "worst_time_s": None, "worst_packet": None, "worst_call": None, "worst": None}
    if object not in recorded.objects:
        return row
    before, after = recorded.positions(object), new.positions(object)
    # A filter mode that the replay adds moves the calls' numbers; packets keep theirs.
    packets_before = _packets_of(recorded, before.call)
    packets_after = _packets_of(new, after.call)
    common, here, there = np.intersect1d(packets_before, packets_after, return_indices=True)
    lost = np.setdiff1d(packets_before, packets_after)
    row["lost"] = len(lost)
    row["gained"] = len(np.setdiff1d(packets_after, packets_before))
    if len(common):
        moved = np.linalg.norm(after.xyz[there].astype(float) - before.xyz[here], axis=1)
        most = int(np.argmax(moved))
        row["moved_median_mm"] = float(np.median(moved))
        row["moved_most_mm"] = float(moved[most])
        if moved[most] > 0:
            row.update(worst="moved", worst_packet=int(common[most]),
                       worst_time_s=float(before.time[here][most]))
    queries, moved = _answers_moved(recorded, new, object)
    if len(moved):
        most = int(np.argmax(moved))
        row["answers_moved_median_mm"] = float(np.median(moved))
        row["answers_moved_most_mm"] = float(moved[most])
        if moved[most] > (row["moved_most_mm"] or 0):
            row.update(worst="answer", worst_packet=int(queries["packet"][most]),
                       worst_time_s=float(queries["time"][most]))
    if len(lost):
        row.update(worst="lost", worst_packet=int(lost[0]),
                   worst_time_s=float(recorded.packets["time"][lost[0]]))
    if row["worst_packet"] is not None:
        row["worst_call"] = int(recorded.packets["call"][row["worst_packet"]])
    return row


def _answers_moved(recorded, new, object):
    """The recorded queries for an object that both answered, and how far the answers are apart."""
    before, after = (queries[queries["event"] == object]
                     for queries in (recorded.queries, new.queries))
    if len(before) != len(after):  # another product type refuses some
        return before[:0], np.empty(0)
    both = (before["id"] == object) & (after["id"] == object)
    moved = after["filtered"][both].astype(float) - before["filtered"][both]
    return before[both], np.linalg.norm(moved, axis=1)


def _packets_of(recording, calls):
    """The numbers of the packets of these calls."""
    packets = recording.packets
    return packets["packet"][np.searchsorted(packets["call"], calls)]


def _end_with_input():
    """Ends this process when nobody holds the other end of its input any more."""
    def wait():
        while os.read(0, 1024):
            pass
        os._exit(1)
    threading.Thread(target=wait, daemon=True).start()


def main():
    _end_with_input()
    try:
        row = run(json.loads(sys.argv[1]))
    except (Error, ValueError, RuntimeError, MemoryError, OSError) as error:
        row = failed(error)
    sys.stdout.write(json.dumps(row))


if __name__ == "__main__":
    main()
