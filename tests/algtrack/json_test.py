#!/usr/bin/env python3
"""What --json prints is what docs/schemas says, command by command."""
import copy
import json
import math
import os
import re
import sys
import unittest

try:
    import jsonschema
except ImportError:  # it is a package of the system's own Python
    if os.path.realpath(sys.executable) == os.path.realpath("/usr/bin/python3"):
        sys.exit(77)
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])

from algtrack_case import AlgtrackCase

DOCS = os.path.join(os.environ["ALG_SOURCE"], "docs")
STEREO = os.path.join(os.environ["ALG_SOURCE"],
                      "tests/kit/calibration/data/opencv/stereo_fisheye.yml")


def schema_of(name):
    with open(os.path.join(DOCS, "schemas", name + ".schema.json")) as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def objects_in(value):
    if isinstance(value, dict):
        yield value
        value = list(value.values())
    if isinstance(value, list):
        for item in value:
            yield from objects_in(item)


def spoiled(value):
    """(what was done, the value with one thing wrong inside it), for every name and leaf of the
    value; of a list's items the first."""
    if isinstance(value, dict):
        yield "a name more", {**value, "surplus": 1}
        for key, inner in value.items():
            for what, other in spoiled(inner):
                yield f"{key}: {what}", {**value, key: other}
    elif isinstance(value, list):
        yield "no list", 7
        for what, other in spoiled(value[0]) if value else []:
            yield f"[0]: {what}", [other, *value[1:]]
    elif value is not None:
        yield "another type", 7.5 if isinstance(value, (str, bool)) else "text"


class JsonTest(AlgtrackCase):
    def setUp(self):
        super().setUp()
        self.simulate("one", "--seconds", 2, "--noise", 0.3, "--dropouts", 0.1, "--strays", 0.5,
                      "--corrupt", 0.1, "--inertial", "--occlude", "1:0.5-1")
        self.simulate("two", "--seconds", 1, "--product-type", 2, "--splits", 0.2, "--loss", 0.1)

    def valid(self, name, *arguments, status=0):
        """The command's output, which must be as its schema says, and only as it says."""
        result = self.run_algtrack(*arguments, "--json")
        self.assertEqual(result.returncode, status, result.stderr)
        found = json.loads(result.stdout)
        schema = schema_of(name)
        for error in schema.iter_errors(found):
            self.fail(f"{name}: {list(error.absolute_path)}: {error.message}")
        # A schema that takes anything would say nothing.
        for key in found:
            if key in schema.schema.get("required", []):
                less = copy.deepcopy(found)
                del less[key]
                self.assertFalse(schema.is_valid(less), key)
        return found

    def firmly(self, name, *arguments):
        """As `valid`, and with one thing wrong anywhere in it the output is not as its schema says."""
        schema = schema_of(name)
        for what, found in spoiled(self.valid(name, *arguments)):
            self.assertFalse(schema.is_valid(found), f"{name}: {what}")

    def simulate_body(self):
        places = [[40, 0, 0], [-30, 20, 5], [0, -35, 10], [10, 30, -20]]
        with open(self.path("body.json"), "w") as file:
            json.dump({"format": "alg_factory body", "version": 1, "name": "tool", "unit": "mm",
                       "markers": [{"id": i, "position": p} for i, p in enumerate(places)]}, file)
        with open(self.path("motion.tum"), "w") as file:
            file.writelines(f"{n / 10} {n / 1000} 0 0 0 0 {math.sin(n / 20)} {math.cos(n / 20)}\n"
                            for n in range(11))
        self.simulate("body", "--seconds", 1, "--product-type", 2, "--noise", 0.05, "--body",
                      "body.json", "--trajectory", "motion.tum", "--marker-size", 10)

    def simulate_bent(self):
        self.simulate("bent", "--seconds", 6, "--product-type", 2, "--noise", 0.05, "--bend",
                      "0.3,-0.4,0.25")

    def test_simulate(self):
        self.valid("simulate", "simulate", "-o", "a", "--seconds", 1, "--corrupt", 0.2)

    def test_replay(self):
        self.valid("replay", "replay", "one")
        self.valid("replay", "replay", "one", "--verify", "--csv", "a.csv")
        self.valid("replay", "replay", "one", "--filter-mode", 1, "--against", "one",
                   "--record", "b", status=1)

    def test_inspect(self):
        self.succeed("replay", "two", "--filter-mode", 1, "--record", "again")
        for name in ("one", "two", "again"):
            self.valid("inspect", "inspect", name)
            self.valid("inspect", "inspect", name, "--from", 0.2, "--to", 0.7)

    def test_inspect_object(self):
        for name, objects in (("one", 3), ("two", 6)):
            for object_id in range(objects):
                self.valid("inspect-object", "inspect", name, "--object", object_id)

    def test_inspect_packet_and_explain(self):
        for name in ("one", "two"):
            for number in range(0, 80, 7):
                self.valid("inspect-packet", "inspect", name, "--packet", number)
                self.valid("inspect-explain", "inspect", name, "--explain", number)

    def test_calibration(self):
        self.valid("calibration-show", "calibration", "show", "--recording", "one")
        self.valid("calibration-check", "calibration", "check", "--recording", "one")
        self.valid("calibration-check", "calibration", "check", STEREO, "--unit", "m")

    def test_refine_and_rig_map(self):
        self.simulate_bent()
        self.firmly("calibration-refine", "calibration", "refine", "bent", "-o", "healed.json")
        self.firmly("rig-map", "rig", "map", "--calibration", "healed.json", "-o", "map.html")

    def test_body(self):
        self.simulate_body()
        self.firmly("body-learn", "body", "learn", "body", "--ids", "0,1,2,3,4", "-o", "learned.json")
        self.firmly("body-check", "body", "check", "body", "--body", "body.json")
        self.firmly("body-pivot", "body", "pivot", "body", "--body", "body.json")
        self.firmly("body-map", "body", "map", "--body", "body.json")

    def test_report(self):
        for name in ("one", "two"):
            self.valid("report", "report", name)
        self.simulate_body()
        self.firmly("report", "report", "body", "--body", "body.json")
        self.change("body", "DELETE FROM truth")
        self.valid("report", "report", "body", "--body", "body.json")

    def test_no_schema_takes_a_wrong_type_or_a_name_more_anywhere(self):
        for name, *arguments in (("report", "report", "one"), ("inspect", "inspect", "one"),
                                 ("replay", "replay", "one", "--verify"),
                                 ("inspect-object", "inspect", "one", "--object", 1),
                                 ("inspect-packet", "inspect", "one", "--packet", 3),
                                 ("inspect-explain", "inspect", "one", "--explain", 3),
                                 ("calibration-check", "calibration", "check", "--recording", "one"),
                                 ("simulate", "simulate", "-o", "a", "--seconds", 1)):
            self.firmly(name, *arguments)

    def test_names_are_in_snake_case_but_for_the_calibration_files_own(self):
        self.simulate_body()
        self.simulate_bent()
        for arguments in (["simulate", "-o", "a", "--seconds", 1], ["replay", "one"],
                          ["inspect", "one"], ["inspect", "one", "--object", 1],
                          ["inspect", "one", "--packet", 3], ["inspect", "one", "--explain", 3],
                          ["calibration", "check", "--recording", "one"], ["report", "one"],
                          ["calibration", "refine", "bent", "-o", "healed.json"],
                          ["rig", "map", "--calibration", "healed.json"],
                          ["body", "learn", "body", "--ids", "0,1,2,3", "-o", "learned.json"],
                          ["body", "check", "body", "--body", "body.json"],
                          ["body", "pivot", "body", "--body", "body.json"],
                          ["body", "map", "--body", "body.json"]):
            for found in objects_in(json.loads(self.succeed(*arguments, "--json"))):
                for key in found:
                    self.assertRegex(key, r"^[a-z][a-z0-9_]*$", arguments)

    def test_every_schema_is_described_and_every_described_schema_is_there(self):
        with open(os.path.join(DOCS, "json.md")) as file:
            named = set(re.findall(r"schemas/([a-z-]+)\.schema\.json", file.read()))
        there = {name.replace(".schema.json", "")
                 for name in os.listdir(os.path.join(DOCS, "schemas"))}
        self.assertEqual(named, there)


if __name__ == "__main__":
    unittest.main()
