#!/usr/bin/env python3
"""docs/recording-format.md against real recordings."""
import os
import re
import subprocess
import sys
import unittest

from algtrack_case import AlgtrackCase


class RecordingFormatTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        with open(os.path.join(os.environ["ALG_SOURCE"], "docs", "recording-format.md")) as file:
            self.document = file.read()
        self.simulate("walk.algrec", "--seconds", 1, "--corrupt", 0.2)

    def section(self, heading):
        return re.search(rf"^## `{heading}`.*?(?=^## )", self.document, re.M | re.S).group()

    def test_identifies_itself_as_documented(self):
        ((application,),) = self.query("walk.algrec", "PRAGMA application_id")
        ((version,),) = self.query("walk.algrec", "PRAGMA user_version")
        self.assertIn(f"| {application} (`0x{application:08X}`, "
                      f"\"{application.to_bytes(4, 'big').decode()}\")", self.document)
        self.assertIn(f"| `PRAGMA user_version` | {version},", self.document)

    def test_every_column_is_documented_and_no_other(self):
        for table, heading in (("calls", "calls"), ("truth", "truth"), ("logs", "logs` and `blocks")):
            columns = [row[1] for row in self.query("walk.algrec", f"PRAGMA table_info({table})")]
            documented = []
            for row in re.findall(r"^\| (`[^|]*`) \|", self.section(heading), re.M):
                documented += re.findall(r"`([^`]+)`", row)
            self.assertEqual(documented[:len(columns)] if table == "logs" else documented, columns)
        columns = [row[1] for row in self.query("walk.algrec", "PRAGMA table_info(blocks)")]
        self.assertEqual(sorted(columns), ["block", "call", "step", "threw"])

    def test_every_fact_is_documented(self):
        self.succeed("replay", "walk.algrec", "--record", "again.algrec")
        for (key,) in self.query("again.algrec", "SELECT key FROM meta"):
            self.assertIn(f"| `{key}` |", self.section("meta"))

    def test_the_python_example_prints_every_position(self):
        example = re.search(r"```python\n(.*?)```", self.document, re.S).group(1)
        result = subprocess.run([sys.executable, "-c", example, self.path("walk.algrec")],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        expected = sum(len(self.positions(block))
                       for (block,) in self.query("walk.algrec", "SELECT block FROM blocks"))
        self.assertGreater(expected, 0)
        self.assertEqual(result.stdout.count("\n"), expected)

    def test_the_sql_examples_run(self):
        examples = re.findall(r'^sqlite3 walk.algrec "(.*)"$', self.document, re.M)
        self.assertEqual(len(examples), 2)
        for example in examples:
            self.assertTrue(self.query("walk.algrec", example))


if __name__ == "__main__":
    unittest.main()
