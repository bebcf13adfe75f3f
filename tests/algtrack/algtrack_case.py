"""What the end-to-end tests of algtrack share."""
import os
import subprocess
import sqlite3
import zlib
import struct
import tempfile
import unittest

ALGTRACK = os.environ["ALGTRACK"]


def checksum(row):
    """Of the values of a row, as docs/recording-format.md has it."""
    crc = 0
    for value in row:
        if value is None:
            piece = b"\0"
        elif isinstance(value, int):
            piece = struct.pack("<Bq", 1, value)
        elif isinstance(value, float):
            piece = struct.pack("<Bd", 2, value)
        else:
            data = value.encode(errors="surrogateescape") if isinstance(value, str) else value
            piece = struct.pack("<BQ", 3 if isinstance(value, str) else 4, len(data)) + data
        crc = zlib.crc32(piece, crc)
    return crc


def content_of_calls(database):
    """The values that the checksum of each call covers, by call."""
    contents = {}
    for row in database.execute("SELECT * FROM calls"):
        # No bytes are read like none at all.
        contents[row[0]] = [None if value == b"" else value for value in row[:-1]]
    for table, columns in (("logs", "step, level, text, threw"), ("blocks", "step, block, threw")):
        for call, *values in database.execute(
                f"SELECT call, {columns} FROM {table} ORDER BY call, step"):
            if call in contents:
                contents[call] += values
    return contents


def seal(database):
    """Gives a recording that was changed by hand the checksums and counts of its content."""
    if "checksum" not in [row[1] for row in database.execute("PRAGMA table_info(calls)")]:
        return
    tables = [name for (name,) in database.execute("SELECT name FROM sqlite_master")]
    if not {"calls", "logs", "blocks", "truth", "meta"} <= set(tables):
        return
    # A text may hold any bytes.
    database.text_factory = lambda data: data.decode(errors="surrogateescape")
    contents = content_of_calls(database)
    database.executemany("UPDATE calls SET checksum = ? WHERE id = ?",
                         [(checksum(content), call) for call, content in contents.items()])
    truth = database.execute("SELECT * FROM truth").fetchall()
    database.executemany("UPDATE truth SET checksum = ? WHERE frame = ? AND object = ? AND marker = ?",
                         [(checksum(row[:-1]), row[0], row[3], row[4]) for row in truth])
    for key, value in (("calls", len(contents)), ("last_call", max(contents, default=-1)),
                       ("truth_rows", len(truth))):
        database.execute("UPDATE meta SET value = ? WHERE key = ?", (str(value), key))
    for key, value, _ in database.execute("SELECT * FROM meta").fetchall():
        database.execute("UPDATE meta SET checksum = ? WHERE key = ?",
                         (checksum((key, value)), key))


class AlgtrackCase(unittest.TestCase):
    """Every test has a folder of its own, in which the program runs."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_algtrack(self, *arguments):
        return subprocess.run([ALGTRACK, *map(str, arguments)], cwd=self.folder, text=True,
                              capture_output=True, timeout=120)

    def run_bytes(self, *arguments):
        """As run_algtrack, with output that may not be text."""
        return subprocess.run([ALGTRACK, *map(str, arguments)], cwd=self.folder,
                              capture_output=True, timeout=120)

    def succeed(self, *arguments):
        result = self.run_algtrack(*arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")  # no progress in a pipe
        return result.stdout

    def fail_in_one_line(self, *arguments):
        """The program refuses: status 2, one line that begins with its name."""
        return self.end_in_one_line(2, *arguments)

    def find_in_one_line(self, *arguments):
        """The program did what was asked, and something differs or was found: status 1, one line."""
        return self.end_in_one_line(1, *arguments)

    def end_in_one_line(self, status, *arguments):
        result = self.run_algtrack(*arguments)
        self.assertEqual(result.returncode, status, (arguments, result.stdout, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertTrue(result.stderr.startswith("algtrack: "), result.stderr)
        return result.stderr

    def simulate(self, name, *arguments):
        self.succeed("simulate", "-o", name, *arguments)
        return self.path(name)

    def query(self, name, sql, *parameters):
        database = sqlite3.connect(self.path(name))
        try:
            return database.execute(sql, parameters).fetchall()
        finally:
            database.close()

    def change(self, name, sql, *parameters):
        database = sqlite3.connect(self.path(name))
        with database:
            database.execute(sql, parameters)
            seal(database)
        database.close()

    def lose_journal(self, name):
        """As if the recorder had been killed, and the file copied without its journal."""
        self.change(name, "UPDATE meta SET value = '0' WHERE key = 'complete'")
        database = sqlite3.connect(self.path(name))
        database.execute("PRAGMA journal_mode = WAL")
        database.close()
        self.assertFalse(os.path.exists(self.path(name + "-wal")))

    def dump(self, name):
        database = sqlite3.connect(self.path(name))
        try:
            return "\n".join(database.iterdump())
        finally:
            database.close()

    @staticmethod
    def positions(block):
        """Object id -> (x, y, z) of a delivered block's bytes."""
        found = {}
        for k in range(10):
            object_id, x, y, z = struct.unpack_from("<ifff", block, 8 + 52 * k)
            if object_id != -1:
                found[object_id] = (x, y, z)
        return found
