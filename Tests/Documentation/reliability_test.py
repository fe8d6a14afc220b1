"""Holds the page of promises against the tests that are built."""

import json
import os
import re
import subprocess
import unittest

import sources

PAGE = sources.read("Documentation/reliability.md")
HEADING = "| fault | promise | tests |"
RULE = "|---|---|---|"
NAME = re.compile(r"`(\w+\.\w+)`")


def rows():
    """The rows of all tables, as lists of cells."""
    return [[cell.strip() for cell in line.strip("|").split("|")]
            for line in PAGE.splitlines()
            if line.startswith("|") and line not in (HEADING, RULE)]


def named_tests():
    return {name for row in rows() for name in NAME.findall(row[-1])}


def plain_name(name):
    """"Suite.Test" of a test's name in CTest, which may have an instance and a parameter."""
    parts = name.split(" ")[0].split("/")
    part = parts[1] if len(parts) > 1 else parts[0]
    return ".".join(part.split(".")[-2:])


def built_tests():
    listed = subprocess.run([os.environ["CTEST"], "--show-only=json-v1"], check=True,
                            cwd=os.environ["OMBRIX_BUILD"], capture_output=True, text=True)
    return {plain_name(test["name"]) for test in json.loads(listed.stdout)["tests"]}


class ReliabilityTest(unittest.TestCase):
    def test_names_are_read_from_all_forms_that_a_test_has(self):
        for name in ["Acceptance.Kill.InTheMidst", "Acceptance.Each/Kill.InTheMidst/SIGTERM",
                     "Acceptance.Each/Kill.InTheMidst/SIGTERM  # GetParam() = 15"]:
            self.assertEqual(plain_name(name), "Kill.InTheMidst")

    def test_every_table_has_the_same_heading(self):
        self.assertEqual(PAGE.count(HEADING), PAGE.count(RULE))
        self.assertEqual(PAGE.count(HEADING), len(re.findall(r"^## ", PAGE, re.MULTILINE)))

    def test_every_row_has_a_fault_a_promise_and_names_of_tests(self):
        for row in rows():
            with self.subTest(row[0]):
                self.assertEqual([bool(cell) for cell in row], [True, True, True])
                self.assertEqual(NAME.sub("", row[-1]).replace(",", "").strip(), "")
                self.assertRegex(row[-1], NAME)

    def test_no_fault_is_told_twice_under_one_heading(self):
        for section in PAGE.split("\n## ")[1:]:
            faults = re.findall(r"^\| (.*?) \|", section, re.MULTILINE)
            self.assertEqual(len(faults), len(set(faults)), section.splitlines()[0])

    def test_every_test_that_is_named_is_built(self):
        self.assertEqual(named_tests() - built_tests(), set())


if __name__ == "__main__":
    unittest.main()
