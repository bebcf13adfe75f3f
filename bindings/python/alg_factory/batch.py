"""Many recordings in many variants, on this machine or a cluster.

    python3 -m alg_factory.batch RECORDING... [--calibration FILE]... [--filter-mode M]...
        [--product-type P]... [--scheduler tcp://HOST:PORT] -o FOLDER

Every recording is replayed in every variant (each calibration with each filter mode with each
product type; without any of them, as it was recorded), each run in a process of its own. The folder
holds runs.csv, objects.csv, runs.sqlite (and runs.parquet and objects.parquet where pyarrow is
there), index.html, and runs/, by which the same command goes on where it was interrupted: a run is
done once for the content of recording, calibration and library, and the variant. docs/batch.md
describes the columns.

Exit status: 0 every run is done; 1 some failed, their rows say why; 2 nothing could be done;
130 interrupted, what is finished is in the folder.
"""
import argparse
import contextlib
import hashlib
import itertools
import json
import logging
import os
import shutil
import sys
import tempfile
import time
from concurrent.futures import CancelledError

from . import Calibration, Error
from .batch_run import content_of, failed, library_identity, run_in_process
from .batch_tables import write_page, write_tables
from .files import write_file

PATIENCE = 120  # s, to wait for a scheduler that went away


class Refusal(Exception):
    """Nothing can be done; in one line."""


def variants_of(options):
    """[{"name", "calibration", "calibration_name", "filter_mode", "product_type"}, ...]"""
    calibrations = [(None, None)]
    if options.calibration:
        calibrations = [(path, Calibration.load(path).to_bytes().hex())
                        for path in options.calibration]
    variants = []
    for (path, record), mode, product in itertools.product(
            calibrations, options.filter_mode or [None], options.product_type or [None]):
        parts = [os.path.basename(path)] if path else []
        parts += [f"filter mode {mode}"] if mode is not None else []
        parts += [f"product type {product}"] if product is not None else []
        variants.append({"name": ", ".join(parts) or "as recorded", "calibration": record,
                         "calibration_name": path, "filter_mode": mode, "product_type": product})
    names = [variant["name"] for variant in variants]
    for variant in variants:  # two files of one name
        if names.count(variant["name"]) > 1 and variant["calibration_name"]:
            variant["name"] = variant["name"].replace(
                os.path.basename(variant["calibration_name"]), variant["calibration_name"], 1)
    return variants


def key_of(content, variant, library):
    """A run's name: what decides its result."""
    parts = [content, variant["calibration"], variant["filter_mode"], variant["product_type"],
             library]
    return hashlib.sha256(json.dumps(parts).encode()).hexdigest()[:32]


class Runs:
    """The finished runs of a folder, one file each."""

    def __init__(self, folder):
        self.folder = os.path.join(folder, "runs")
        os.makedirs(self.folder, exist_ok=True)

    def _path(self, key):
        return os.path.join(self.folder, key + ".json")

    def get(self, key):
        """None for a run that was not done, or whose file is damaged."""
        try:
            with open(self._path(key), encoding="utf-8") as file:
                row = json.load(file)
            return row if row.get("status") == "done" else None
        except (OSError, ValueError, AttributeError):
            return None

    def put(self, key, row):
        write_file(self._path(key), json.dumps(row).encode(), overwrite=True)


class Progress:
    """A bar on a terminal; nothing in a pipe."""

    def __init__(self, total, stream=sys.stderr):
        self.total, self.done, self.stream = total, 0, stream
        self.begin = time.monotonic()
        self.visible = stream.isatty()
        self.show()

    def step(self):
        self.done += 1
        self.show()

    def show(self):
        if not self.visible:
            return
        width = min(40, max(10, shutil.get_terminal_size().columns - 40))
        filled = width * self.done // max(self.total, 1)
        seconds = time.monotonic() - self.begin
        left = f", {seconds / self.done * (self.total - self.done):.0f} s left" if self.done else ""
        self.stream.write(f"\r[{'#' * filled}{'.' * (width - filled)}] "
                          f"{self.done}/{self.total}{left}\x1b[K")
        self.stream.flush()

    def end(self):
        if self.visible:
            self.stream.write("\r\x1b[K")
            self.stream.flush()


@contextlib.contextmanager
def local_client(workers):
    from distributed import Client, LocalCluster
    with tempfile.TemporaryDirectory(prefix="alg_factory-", ignore_cleanup_errors=True) as folder, \
            LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                         dashboard_address="127.0.0.1:0", memory_limit=0, local_directory=folder,
                         silence_logs=logging.CRITICAL) as cluster, Client(cluster) as client:
        yield client


@contextlib.contextmanager
def cluster_client(address, patience):
    """A client of a scheduler, which may be away for a while."""
    from distributed import Client
    until = time.monotonic() + patience
    while True:
        try:
            client = Client(address, timeout=5, set_as_default=False)
            break
        except (OSError, TimeoutError, ValueError) as error:
            if time.monotonic() > until:
                raise Refusal(f"--scheduler {address}: expected a scheduler, found none: "
                              f"{' '.join(str(error).split())}") from None
            time.sleep(0.5)
    try:
        yield client
    finally:
        with contextlib.suppress(Exception):
            client.close(timeout=5)


def compute(connect, function, jobs, take):
    """Calls function(job) on the workers for every job of a dict, and take(key, result) here, once
    for every key. What was under way when a worker or the scheduler went away is done again."""
    from distributed import as_completed
    from distributed.scheduler import KilledWorker
    waiting = dict(jobs)
    attempt = 0
    patience = 0  # the scheduler must be there at the beginning
    while waiting:
        with connect(patience) as client:
            patience = PATIENCE
            attempt += 1
            futures = {client.submit(function, job, key=f"alg_factory-{key}-{os.getpid()}-{attempt}",
                                     pure=False): key for key, job in waiting.items()}
            try:
                for future in as_completed(list(futures), loop=client.loop):
                    key = futures.pop(future)
                    try:
                        result = future.result(timeout=30)
                    except KilledWorker:
                        result = failed("its worker was lost, again and again")
                    del waiting[key]
                    take(key, result)
            except (CancelledError, OSError, TimeoutError):
                time.sleep(0.5)  # the scheduler went away


def batch(recordings, variants, folder, connect, timeout=None, progress=Progress):
    """Runs what is missing, and writes the tables and the page of all. Returns the rows."""
    os.makedirs(folder, exist_ok=True)
    runs, library = Runs(folder), library_identity()
    recordings = list(dict.fromkeys(os.path.abspath(path) for path in recordings))
    results, contents = {}, {}
    bar = progress(len(recordings) * len(variants))
    try:
        compute(connect, content_of, {path: path for path in recordings}, contents.__setitem__)
        jobs, places = {}, {}
        for path, variant in itertools.product(recordings, variants):
            place = (path, variant["name"])
            if "error" in contents[path] or "content" not in contents[path]:
                results[place] = failed(contents[path].get("error", contents[path].get("message")))
                bar.step()
                continue
            key = key_of(contents[path]["content"], variant, library)
            places.setdefault(key, []).append(place)
            if key in jobs:
                continue
            finished = runs.get(key)
            if finished is None:
                jobs[key] = {"recording": path, "calibration": variant["calibration"],
                             "filter_mode": variant["filter_mode"],
                             "product_type": variant["product_type"], "library": library,
                             "timeout": timeout}
            else:
                results[place] = finished
        for key, of_key in places.items():
            if key not in jobs:
                for place in of_key:
                    results[place] = runs.get(key)
                    bar.step()

        def take(key, row):
            if row["status"] == "done":
                runs.put(key, row)
            for place in places[key]:
                results[place] = row
                bar.step()
        compute(connect, run_in_process, jobs, take)
    finally:
        bar.end()
        rows = _rows(recordings, variants, results, contents, library)
        write_tables(folder, rows)
        write_page(folder, rows)
    return rows


def _rows(recordings, variants, results, contents, library):
    """Every run that came to an end, in the order of the command line."""
    rows = []
    for path, variant in itertools.product(recordings, variants):
        result = results.get((path, variant["name"]))
        if result is None:
            continue
        content = contents.get(path, {}).get("content")
        rows.append({
            "recording": path, "variant": variant["name"],
            "calibration": variant["calibration_name"], "filter_mode": variant["filter_mode"],
            "product_type": variant["product_type"],
            "key": key_of(content, variant, library) if content else None, "library": library,
            **result})
    return rows


class _Arguments(argparse.ArgumentParser):
    """With wrong usage in one line, as algtrack has it."""

    def error(self, message):
        self.exit(2, f"batch: {message} (see {self.prog} --help)\n")


def main(arguments=None):
    parser = _Arguments(prog="python3 -m alg_factory.batch",
                        description=__doc__.split("\n\n")[0], epilog=__doc__.split("\n\n", 2)[2],
                        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("recording", nargs="+", help="under a name that every worker knows it by")
    parser.add_argument("--calibration", action="append", default=[], metavar="FILE",
                        help="a variant with this one; may be given again")
    parser.add_argument("--filter-mode", action="append", default=[], type=int, metavar="M",
                        help="a variant with this mode (-1 off, 1 smooth, else fast)")
    parser.add_argument("--product-type", action="append", default=[], type=int, metavar="P",
                        choices=(0, 1, 2), help="a variant with this product type")
    parser.add_argument("--scheduler", metavar="tcp://HOST:PORT",
                        help="of a Dask cluster; without it, workers of this machine alone")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), metavar="N",
                        help="of this machine (%(default)s)")
    parser.add_argument("--timeout", type=float, metavar="S", help="seconds that a run may take")
    parser.add_argument("-o", "--output", required=True, metavar="FOLDER")
    options = parser.parse_args(arguments)
    logging.getLogger("distributed").setLevel(logging.CRITICAL)
    try:
        if options.workers < 1:
            raise Refusal(f"--workers: expected 1 or more, found {options.workers}")
        if options.timeout is not None and not options.timeout > 0:
            raise Refusal(f"--timeout: expected seconds, found {options.timeout:g}")
        for mode in options.filter_mode:
            if not -1 <= mode <= 1000:
                raise Refusal(f"--filter-mode: expected a whole number from -1 to 1000, found {mode}")
        if os.path.exists(options.output) and not os.path.isdir(options.output):
            raise Refusal(f"{options.output}: expected a folder for the results, found a file")
        try:
            import distributed  # noqa: F401
        except ImportError:
            raise Refusal("expected Dask distributed (python3-distributed), found none") from None
        variants = variants_of(options)
        if options.scheduler:
            connect = lambda patience: cluster_client(options.scheduler, patience)
            rows = batch(options.recording, variants, options.output, connect, options.timeout)
        else:
            with local_client(options.workers) as client:
                connect = lambda patience: contextlib.nullcontext(client)
                rows = batch(options.recording, variants, options.output, connect, options.timeout)
    except KeyboardInterrupt:
        print("batch: interrupted; what is finished is in " + options.output, file=sys.stderr)
        return 130
    except (Refusal, Error, OSError) as error:
        print(f"batch: {error}", file=sys.stderr)
        return 2
    failures = sum(row["status"] != "done" for row in rows)
    names = ("runs.csv", "runs.sqlite", "index.html")
    print("  ".join(os.path.join(options.output, name) for name in names))
    if failures:
        print(f"batch: {failures} of {len(rows)} runs failed; their rows say why", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
