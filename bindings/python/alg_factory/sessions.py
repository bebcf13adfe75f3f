"""Sessions made, played again and reported. Each runs a library of its own, which was not used
before: the process's pipeline (Host) knows nothing of it."""
import json
import os
import shutil
import tempfile

from . import _core
from .analysis import Difference
from .bodies import Body, as_body
from .calibration import as_calibration
from .files import complete_file
from .recording import Recording, as_recording


def _in_range(name, value, low, high):
    value = float(value)
    if not low <= value <= high:
        raise ValueError(f"{name}: expected a number from {low:g} to {high:g}, found {value:g}")
    return value


def _one_of(name, value, values):
    if value not in values:
        raise ValueError(f"{name}: expected one of {', '.join(map(repr, values))}, found {value!r}")
    return value


def _numbers(name, values, counts, limit):
    """The numbers as a list, and as a text."""
    if values is None:
        return None, None
    values = [_in_range(name, value, -limit, limit)
              for value in ([values] if isinstance(values, (int, float)) else values)]
    if len(values) not in counts:
        raise ValueError(f"{name}: expected {' or '.join(map(str, counts))} numbers, "
                         f"found {len(values)}")
    return values, ",".join(f"{value:.15g}" for value in values)


def _occlusion(value, objects, seconds):
    object, first, last, *camera = value
    camera = camera[0] if camera else None
    if not (object in range(objects) and 0 <= first < last and first < seconds
            and camera in (None, "left", "right")):
        raise ValueError(f"occlude: expected (object, from, to) or (object, from, to, 'left'), "
                         f"object 0 to {objects - 1}, from within the session, found {value!r}")
    text = f"{object}:{first:.15g}-{last:.15g}" + (f":{camera}" if camera else "")
    return (object, float(first), float(last), camera), text


def simulate(path, *, product_type=1, seconds=20, seed=1, calibration=None, scene="moving",
             trajectory=None, body=None, distance=1700, start=0, rate=90, framing="auto", inertial=False,
             queries=True, filter_mode=0, noise=0, marker_size=30, emission=180, dropouts=0,
             occlude=(), splits=0, strays=0, reflections=0, bend=None, drift=None, focal_error=None,
             centre_error=None, loss=0, corrupt=0, wrong_check=0, overwrite=False):
    """Simulates cameras, markers and motion, drives the library with the packets, and records
    everything with the truth. The same options and seed give the same content, and that of
    `algtrack simulate`.

    path : the recording to write; it appears when it is complete. FileExistsError for a file that
        is there, unless `overwrite`.
    product_type : 0, 1 or 2.    seconds, rate (Hz) : at most 10 million frames.
    calibration : what the library gets, as for Host; the built-in pair without one.
    scene : "moving" or "still"; or trajectory : a file of lines t tx ty tz qx qy qz qw (s, m),
        from `start` s on, moved to `distance` mm in front of the cameras.
    body : a Body, or its file's name: its markers follow the trajectory, in the place of the
        built-in objects.    emission : degrees, 1 to 180: a marker of the body is unseen by a camera
        that is further from where it faces (`facing`, or away from the body's middle).
    framing : "auto" (what feeds the filters that the queries read), "plain" or "stamped".
    inertial : inertial samples of objects 0 and 1 before every packet.
    queries : ask for every object's pose after every frame.    filter_mode : as Host.filter_mode.
    noise : px, standard deviation of a blob's centre.    marker_size : mm.
    dropouts, splits, reflections, loss, corrupt, wrong_check : probabilities: that a camera misses a
        marker, a blob comes in two halves, a marker has a dimmer image nearby; that a packet is
        lost, a byte of it is changed, its check byte is wrong.
    strays : mean number of blobs without a marker, per camera and frame.
    occlude : [(object, from, to), (object, from, to, "left" or "right"), ...], s.
    bend, drift : three or six degrees, the true rotation between the cameras and direction of
        translation against the calibration; `drift` grows from nothing to this at the end.
    focal_error : per cent, one number or left and right.    centre_error : px, two numbers or four.

    Returns a dict of counts: frames, packets, blobs, blocks, calls, messages, ...
    Raises ValueError for an option out of range.
    """
    _one_of("product_type", product_type, (0, 1, 2))
    _one_of("framing", framing, ("auto", "plain", "stamped"))
    _one_of("scene", scene, ("moving", "still"))
    _in_range("seconds", seconds, 0.001, 1e6)
    _in_range("rate", rate, 0.1, 10000)
    if seconds * rate > 1e7:
        raise ValueError(f"seconds: expected at most 10 million frames, found {seconds:g} s at "
                         f"{rate:g} Hz")
    _in_range("filter_mode", filter_mode, -1, 1000)
    _in_range("noise", noise, 0, 100)
    _in_range("marker_size", marker_size, 0.1, 1000)
    _in_range("emission", emission, 1, 180)
    if body is not None and trajectory is None:
        raise ValueError("body: expected a trajectory with it, found none")
    if emission != 180 and body is None:
        raise ValueError("emission: expected a body with it, found none")
    _in_range("strays", strays, 0, 100)
    _in_range("distance", distance, 100, 100000)
    _in_range("start", start, 0, 1e6)
    for name, value in (("dropouts", dropouts), ("splits", splits), ("reflections", reflections),
                        ("loss", loss), ("corrupt", corrupt), ("wrong_check", wrong_check)):
        _in_range(name, value, 0, 1)
    if not isinstance(seed, int) or not 0 <= seed < 2**64:
        raise ValueError(f"seed: expected a whole number from 0 to 2**64 - 1, found {seed!r}")

    hidden = [_occlusion(value, _core.OBJECTS[product_type], seconds) for value in occlude]
    texts = {}
    errors = {}
    for name, value, counts, limit in (("bend", bend, (3, 6), 20), ("drift", drift, (3, 6), 20),
                                       ("focal_error", focal_error, (1, 2), 20),
                                       ("centre_error", centre_error, (2, 4), 100)):
        numbers, text = _numbers(name, value, counts, limit)
        if numbers is None:
            continue
        texts[name] = text
        whole = counts[-1]
        fill = [0.0] * whole if name in ("bend", "drift") else numbers  # one value is both cameras'
        errors[name] = (numbers + fill)[:whole]
    options = dict(
        product_type=product_type, seconds=float(seconds), seed=seed, scene=scene,
        distance=float(distance), start=float(start), rate=float(rate), framing=framing,
        inertial=bool(inertial), queries=bool(queries), filter_mode=int(filter_mode),
        noise=float(noise), marker_size=float(marker_size), emission=float(emission), dropouts=float(dropouts),
        splits=float(splits), strays=float(strays), reflections=float(reflections),
        loss=float(loss), corrupt=float(corrupt), wrong_check=float(wrong_check),
        occlude=[occlusion for occlusion, _ in hidden], occlusion_texts=[text for _, text in hidden],
        rig_error_texts=texts, calibration_name="built in", motion_name=scene,
        body_name="", **errors)
    if calibration is not None:
        rig = as_calibration(calibration)
        options.update(calibration=rig.to_bytes(), width=rig.width, height=rig.height,
                       calibration_name=_name_of(calibration))
    if trajectory is not None:
        options.update(trajectory=os.fspath(trajectory), motion_name=os.path.basename(trajectory))
    if body is not None:
        said = body.name if isinstance(body, Body) else os.fspath(body)
        options.update(body=as_body(body)._shape, body_name=_name_of(body), body_said=said)
    with complete_file(path, overwrite, (calibration, trajectory, body)) as partial:
        return _core.simulate(partial, options)


def _name_of(source):
    """For the recording's facts."""
    if isinstance(source, (str, os.PathLike)):
        return os.path.basename(source)
    return "bytes" if isinstance(source, (bytes, bytearray, memoryview)) else "given"


def replay(recording, *, product_type=None, calibration=None, filter_mode=None):
    """Makes the recorded calls again, in their order and from inside the same callbacks, and
    returns a Recording in memory of what comes: the recorded times, today's answers.

    recording : a Recording, or a file's name.
    product_type : what if: another one in every Init.
    calibration : what if: another one in every Init (as for Host).
    filter_mode : what if: another one in every SetFilterMode; set after Init if there is none.

    Without a what-if the new recording holds the bytes that the library delivers now. `save` writes
    it to a file. Raises RecordingError.
    """
    source = as_recording(recording)
    source._whole("replay")
    changes = {}
    if product_type is not None:
        changes["product_type"] = _one_of("product_type", product_type, (0, 1, 2))
    if calibration is not None:
        changes["calibration"] = _name_of(calibration)
    if filter_mode is not None:
        changes["filter_mode"] = int(_in_range("filter_mode", filter_mode, -1, 1000))
    facts = {"replay_of": os.path.basename(source.path or "a recording in memory")}
    if changes:
        facts["replay_changes"] = json.dumps(changes, separators=(",", ":"))
    record = None if calibration is None else as_calibration(calibration).to_bytes()
    with _folder_in_memory(source) as folder:
        path = os.path.join(folder, "replay.algrec")
        _core.replay(source._file, path, product_type, record, filter_mode, facts)
        return Recording._of(_core.RecordingFile.in_memory(path))


def _folder_in_memory(source):
    """A folder for the new recording, which loses its name at once: in memory where there is room,
    else among the temporary files."""
    folder, source = "/dev/shm", source.path
    need = 4 * os.path.getsize(source) if source else 2**30
    roomy = os.access(folder, os.W_OK) and shutil.disk_usage(folder).free > need
    return tempfile.TemporaryDirectory(prefix="alg_factory-", dir=folder if roomy else None)


def verify(recording):
    """True, if the library that runs now gives every returned value, message, block and answer of
    the recording, byte by byte. Else raises Difference with the first: call, field, both values,
    and what is known of the cause."""
    source = as_recording(recording)
    source._whole("verify")
    found = _core.verify(source._file)
    if found is not None:
        raise Difference(**found)
    return True


def report(recording, path=None, *, object=None, bodies=(), overwrite=False):
    """Makes the report of a recording, or of a slice, and returns its numbers (docs/json.md
    describes them).

    path : of the page to write, one HTML file that needs no network; without it the numbers only.
        FileExistsError for a file that is there, unless `overwrite`.
    object : report this one only.
    bodies : a Body, or its file's name, or several: how well each was followed live, against the
        truth where there is one. They have no blob id in common.

    Raises RecordingError, FileError for a body, and RuntimeError if there is nothing to report: no
    packet, or none in the slice.
    """
    source = as_recording(recording)
    first, last = source._range
    bodies = [bodies] if isinstance(bodies, (str, os.PathLike, Body)) else list(bodies)
    shapes = [as_body(body)._shape for body in bodies]
    if path is None:
        return json.loads(_core.report(source._file, None, shapes, object, first, last))
    with complete_file(path, overwrite, [source.path, *bodies]) as partial:
        return json.loads(_core.report(source._file, partial, shapes, object, first, last))
