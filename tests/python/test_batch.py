"""Batches: on workers of this machine, on a scheduler over TCP, and when things go wrong."""
import csv
import os
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import time

import pytest

import alg_factory as af
from alg_factory.batch_run import library_identity, run_in_process
from alg_factory.batch_tables import changes_of

pytest.importorskip("distributed")


@pytest.fixture(scope="module")
def recordings(tmp_path_factory):
    folder = tmp_path_factory.mktemp("field")
    paths = []
    for number in range(4):
        path = folder / f"walk {number}.algrec"
        af.simulate(path, seconds=2, seed=number, noise=0.05, occlude=[(0, 0.5, 0.7)])
        paths.append(str(path))
    return paths


@pytest.fixture(scope="module")
def healed(tmp_path_factory):
    path = tmp_path_factory.mktemp("rigs") / "healed.json"
    rig = af.Calibration.built_in()
    rig.with_changes(translation=rig.translation * 1.01).save(path)
    return str(path)


def command(*arguments):
    return [sys.executable, "-m", "alg_factory.batch", *map(str, arguments)]


def run_batch(*arguments, status=0, **options):
    result = subprocess.run(command(*arguments), capture_output=True, text=True, timeout=300,
                            **options)
    assert result.returncode == status, result.stderr
    return result


def table(folder, name="runs"):
    with open(os.path.join(folder, name + ".csv"), newline="") as file:
        return list(csv.DictReader(file))


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Cluster:
    """A scheduler and worker processes over TCP, as on several machines."""

    def __init__(self, folder, workers=2, environment=None):
        self.folder, self.environment = folder, {**os.environ, **(environment or {})}
        self.address = f"tcp://127.0.0.1:{free_port()}"
        self.processes = []
        self.start_scheduler()
        self.workers = [self.start_worker() for _ in range(workers)]

    def start(self, program, *arguments):
        log = open(os.path.join(self.folder, f"{len(self.processes)}.log"), "w")
        process = subprocess.Popen([sys.executable, "-m", f"distributed.cli.{program}", *arguments],
                                   stdout=log, stderr=log, cwd=self.folder, env=self.environment)
        self.processes.append(process)
        return process

    def start_scheduler(self):
        self.scheduler = self.start("dask_scheduler", "--host", self.address,
                                    "--dashboard-address", "127.0.0.1:0")

    def start_worker(self):
        return self.start("dask_worker", self.address, "--nthreads", "1", "--no-nanny",
                          "--dashboard-address", "127.0.0.1:0", "--local-directory", self.folder)

    def stop(self):
        for process in self.processes:
            process.kill()
            process.wait()


@pytest.fixture
def cluster(tmp_path):
    made = []
    def make(**options):
        folder = tmp_path / "cluster"
        folder.mkdir(exist_ok=True)
        made.append(Cluster(str(folder), **options))
        return made[-1]
    yield make
    for each in made:
        each.stop()


def wait_for(condition, seconds=60):
    until = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < until, "waited in vain"
        time.sleep(0.05)


def finished(folder):
    return os.listdir(os.path.join(folder, "runs")) if os.path.isdir(
        os.path.join(folder, "runs")) else []


def slow(tmp_path, seconds=1.0, crash=None):
    """An environment in which every run waits first, and the one of a recording named `crash` dies
    of a broken memory access, as a fault in compiled code would."""
    folder = tmp_path / "site"
    folder.mkdir(exist_ok=True)
    (folder / "sitecustomize.py").write_text(
        "import os, signal, sys, time\n"
        "if 'alg_factory.batch_run' in sys.orig_argv:\n"
        f"    time.sleep({seconds})\n"
        f"    if {crash!r} and {crash!r} in sys.orig_argv[-1]:\n"
        "        os.kill(os.getpid(), signal.SIGSEGV)\n")
    return {"PYTHONPATH": f"{folder}:{os.environ['PYTHONPATH']}"}


def once_each(rows, paths, variants):
    places = [(row["recording"], row["variant"]) for row in rows]
    return sorted(places) == sorted((path, variant) for path in paths for variant in variants)


def test_variants_are_every_calibration_with_every_filter_mode(recordings, healed, tmp_path):
    out = tmp_path / "results"
    result = run_batch(*recordings, "--calibration", healed, "--filter-mode", 0, "--filter-mode", 1,
                       "--workers", 2, "-o", out)
    assert result.stderr == ""  # no progress bar in a pipe
    rows = table(out)
    assert once_each(rows, recordings, ["healed.json, filter mode 0", "healed.json, filter mode 1"])
    assert {row["status"] for row in rows} == {"done"}
    with sqlite3.connect(out / "runs.sqlite") as database:
        assert database.execute("SELECT count(*), sum(packets) FROM runs").fetchone() == (8, 8 * 180)
        assert database.execute("SELECT count(*) FROM objects").fetchone() == (8 * 3,)
        moved = database.execute("SELECT min(moved_median_mm) FROM objects").fetchone()[0]
        apart = database.execute(
            "SELECT a.moved_most_mm = b.moved_most_mm, "
            "a.answers_moved_most_mm = b.answers_moved_most_mm FROM objects a JOIN objects b "
            "USING (recording, object) WHERE a.variant < b.variant").fetchall()
        moments = database.execute(
            "SELECT recording, worst_packet, worst_call FROM objects").fetchall()
    for path, packet, call in moments:
        packets = af.Recording(path).packets
        assert packets["call"][packets["packet"] == packet] == [call]
    # A filter mode leaves what is delivered alone, and changes the answers.
    assert set(apart) == {(1, 0)}
    assert 1 < moved < 100  # a baseline that is 1 % longer moves points at about 1.5 m by 1 %
    page = (out / "index.html").read_text()
    assert "walk 0.algrec" in page and "algtrack inspect &#x27;" in page
    for outside in ("src=", "<link", "@import", "url("):
        assert outside not in page  # it needs nothing else
    token = re.search(r"--port 8700 --token (\w+)", page).group(1)
    assert re.search(rf'href="http://127.0.0.1:8700/\?token={token}#t=[\d.]+&amp;object=\d"', page)


def test_the_recorded_variant_changes_nothing(recordings, tmp_path):
    run_batch(*recordings[:1], "--workers", 1, "-o", tmp_path / "results")
    rows = table(tmp_path / "results", "objects")
    assert [row["variant"] for row in rows] == ["as recorded"] * 3
    assert {row["moved_most_mm"] for row in rows} == {"0.0"}
    assert {(row["lost"], row["gained"]) for row in rows} == {("0", "0")}
    assert "nothing changed" in (tmp_path / "results" / "index.html").read_text()


def test_a_run_is_done_once_for_its_content(recordings, tmp_path):
    copies = [str(tmp_path / name) for name in ("a.algrec", "b.algrec")]
    for source, copy in zip(recordings, copies):
        shutil.copy(source, copy)
    out = tmp_path / "results"
    run_batch(*copies, "--workers", 1, "-o", out)
    before = {name: os.stat(out / "runs" / name).st_mtime_ns for name in finished(out)}
    assert len(before) == 2
    # a moves, b changes, c has the content of a: b alone runs again.
    os.rename(copies[0], tmp_path / "moved.algrec")
    shutil.copy(recordings[2], copies[1])
    shutil.copy(tmp_path / "moved.algrec", tmp_path / "c.algrec")
    run_batch(tmp_path / "moved.algrec", copies[1], tmp_path / "c.algrec", "--workers", 1, "-o", out)
    after = {name: os.stat(out / "runs" / name).st_mtime_ns for name in finished(out)}
    assert len(after) == 3
    assert {name: after[name] for name in before} == before
    assert len(table(out)) == 3


def test_another_library_runs_again():
    from alg_factory.batch import key_of
    variant = {"calibration": None, "filter_mode": 0, "product_type": None}
    keys = {key_of("a", variant, "1.0.0 x"), key_of("a", variant, "1.0.0 y"),
            key_of("b", variant, "1.0.0 x"), key_of("a", {**variant, "filter_mode": 1}, "1.0.0 x")}
    assert len(keys) == 4


def test_a_worker_with_another_library_is_not_believed(recordings):
    from alg_factory.batch_run import run_in_process
    row = run_in_process({"recording": recordings[0], "calibration": None, "filter_mode": None,
                          "product_type": None, "library": "0.9 other"})
    assert row["status"] == "failed" and "another library" in row["message"]


def test_a_bad_recording_ends_in_its_row_with_its_message(recordings, tmp_path):
    bad = tmp_path / "bad.algrec"
    bad.write_bytes(b"no recording")
    missing = tmp_path / "missing.algrec"
    out = tmp_path / "results"
    result = run_batch(bad, recordings[0], missing, "--workers", 2, "-o", out, status=1)
    assert result.stderr == "batch: 2 of 3 runs failed; their rows say why\n"
    rows = {row["recording"]: row for row in table(out)}
    assert rows[recordings[0]]["status"] == "done"
    assert str(bad) in rows[str(bad)]["message"]
    assert "No such file" in rows[str(missing)]["message"]
    assert "bad.algrec" in (out / "index.html").read_text()


def test_a_recording_that_crashes_its_process_ends_in_its_row(recordings, tmp_path):
    crash = tmp_path / "crash.algrec"
    af.simulate(crash, seconds=1, seed=99)
    out = tmp_path / "results"
    run_batch(recordings[0], crash, recordings[1], "--workers", 2, "-o", out, status=1,
              env={**os.environ, **slow(tmp_path, 0, "crash.algrec")})
    rows = {row["recording"]: row for row in table(out)}
    assert rows[str(crash)]["message"] == "its process was ended by signal SIGSEGV"
    assert [rows[path]["status"] for path in recordings[:2]] == ["done", "done"]


def test_a_run_that_takes_too_long_ends_in_its_row(recordings, tmp_path):
    out = tmp_path / "results"
    run_batch(recordings[0], "--workers", 1, "--timeout", 0.2, "-o", out, status=1,
              env={**os.environ, **slow(tmp_path, 60)})
    assert table(out)[0]["message"] == "not done after 0.2 s"


def test_a_worker_that_is_killed_in_the_middle_costs_no_run(recordings, tmp_path, cluster):
    dask = cluster(environment=slow(tmp_path))
    out = tmp_path / "results"
    with subprocess.Popen(command(*recordings, "--filter-mode", 0, "--filter-mode", 1, "--scheduler",
                                  dask.address, "-o", out), stderr=subprocess.PIPE) as batch:
        wait_for(lambda: len(finished(out)) >= 1)
        dask.workers[0].send_signal(signal.SIGKILL)
        assert batch.wait(240) == 0, batch.stderr.read()
    rows = table(out)
    assert once_each(rows, recordings, ["filter mode 0", "filter mode 1"])
    assert {row["status"] for row in rows} == {"done"}


def test_a_scheduler_that_restarts_costs_no_run(recordings, tmp_path, cluster):
    dask = cluster(environment=slow(tmp_path))
    out = tmp_path / "results"
    with subprocess.Popen(command(*recordings, "--filter-mode", 0, "--filter-mode", 1, "--scheduler",
                                  dask.address, "-o", out), stderr=subprocess.PIPE) as batch:
        wait_for(lambda: len(finished(out)) >= 2)
        dask.scheduler.send_signal(signal.SIGKILL)
        dask.scheduler.wait()
        dask.start_scheduler()
        for worker in dask.workers:  # as whoever runs them does: they end with their scheduler
            worker.kill()
        dask.workers = [dask.start_worker() for _ in range(2)]
        assert batch.wait(240) == 0, batch.stderr.read()
    rows = table(out)
    assert once_each(rows, recordings, ["filter mode 0", "filter mode 1"])
    assert {row["status"] for row in rows} == {"done"}


def test_ctrl_c_leaves_what_is_finished_and_the_same_command_goes_on(recordings, tmp_path):
    out = tmp_path / "results"
    arguments = command(*recordings, "--workers", 1, "-o", out)
    with subprocess.Popen(arguments, stderr=subprocess.PIPE, text=True,
                          env={**os.environ, **slow(tmp_path)}) as batch:
        wait_for(lambda: len(finished(out)) >= 1)
        batch.send_signal(signal.SIGINT)
        assert batch.wait(60) == 130
        assert batch.stderr.read() == f"batch: interrupted; what is finished is in {out}\n"
    rows = table(out)
    assert 1 <= len(rows) < 4
    assert {row["status"] for row in rows} == {"done"}
    first = {name: os.stat(out / "runs" / name).st_mtime_ns for name in finished(out)}
    run_batch(*recordings, "--workers", 1, "-o", out)
    assert once_each(table(out), recordings, ["as recorded"])
    assert first.items() <= {name: os.stat(out / "runs" / name).st_mtime_ns
                             for name in finished(out)}.items()


def test_a_bar_is_drawn_on_a_terminal_alone():
    import io
    from alg_factory.batch import Progress
    class Terminal(io.StringIO):
        def isatty(self):
            return True
    for stream, drawn in ((Terminal(), True), (io.StringIO(), False)):
        bar = Progress(4, stream)
        bar.step()
        assert ("1/4" in stream.getvalue()) == drawn
        bar.end()
        assert bool(stream.getvalue()) == drawn


def test_without_a_scheduler_at_the_address_nothing_is_done(recordings, tmp_path):
    result = run_batch(recordings[0], "--scheduler", f"tcp://127.0.0.1:{free_port()}", "-o",
                       tmp_path / "results", status=2)
    assert result.stderr.startswith("batch: --scheduler tcp://127.0.0.1:")
    assert result.stderr.count("\n") == 1


def test_a_calibration_that_cannot_be_read_is_refused_before_anything_runs(recordings, tmp_path):
    result = run_batch(recordings[0], "--calibration", tmp_path / "none.json", "-o",
                       tmp_path / "results", status=2)
    assert "none.json" in result.stderr and result.stderr.count("\n") == 1
    assert not (tmp_path / "results").exists()


def test_what_no_run_could_do_is_refused_before_anything_runs(recordings, tmp_path):
    for arguments, said in (
            (["--filter-mode", 5000, "-o", tmp_path / "results"],
             "batch: --filter-mode: expected a whole number from -1 to 1000, found 5000\n"),
            (["-o", recordings[0]],
             f"batch: {recordings[0]}: expected a folder for the results, found a file\n")):
        assert run_batch(recordings[0], *arguments, status=2).stderr == said
    assert not (tmp_path / "results").exists()


def test_a_recording_that_cannot_be_judged_is_named_as_it_is_known(tmp_path):
    path = str(tmp_path / "empty.algrec")
    af.simulate(path, seconds=0.1, loss=1)
    row = run_in_process({"recording": path, "calibration": None, "filter_mode": 0, "product_type": None,
                          "library": library_identity()})
    assert row["message"].startswith(path + ": expected an initialised library and device packets")


def test_wrong_usage_is_one_line():
    for arguments, said in ((["--bogus", "r", "-o", "x"], "--bogus"), ([], "required"),
                            (["r", "-o", "x", "--product-type", 7], "--product-type")):
        result = run_batch(*arguments, status=2)
        assert result.stderr.count("\n") == 1 and said in result.stderr
        assert result.stderr.startswith("batch: ") and "--help)" in result.stderr


def test_what_changed_most_comes_first():
    row = lambda recording, moved, lost: {"recording": recording, "variant": "v", "objects": [
        {"object": 0, "moved_most_mm": moved, "answers_moved_most_mm": None, "lost": lost}]}
    order = changes_of([row("a", 5, 0), row("b", 3, 1), row("c", 50, 0), row("d", None, None)])
    assert [change["recording"] for change in order] == ["b", "c", "a", "d"]
