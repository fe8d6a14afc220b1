"""Holds the pages of promises against the tests that are built."""

import json
import os
import re
import subprocess
import unittest

import sources

PAGES = {name: sources.read(f"Documentation/{name}.md") for name in ("reliability", "security")}
# Of the tables that name tests, which is the last column.
HEADING = re.compile(r"^\|.*\| tests \|$")
RULE = re.compile(r"^\|(---\|)+$")
NAME = re.compile(r"`(\w+\.\w+)`")


def rows(page):
    """The rows of all tables that name tests, as lists of cells."""
    found, in_table = [], False
    for line in page.splitlines():
        in_table = bool(HEADING.match(line)) or in_table and line.startswith("|")
        if in_table and not HEADING.match(line) and not RULE.match(line):
            found.append([cell.strip() for cell in line.strip("|").split("|")])
    return found


def every_row():
    return [row for page in PAGES.values() for row in rows(page)]


def named_tests():
    return {name for row in every_row() for name in NAME.findall(row[-1])}


def plain_name(name):
    """"Suite.Test" of a test's name in CTest, which may have an instance and a parameter."""
    parts = name.split(" ")[0].split("/")
    part = parts[1] if len(parts) > 1 else parts[0]
    return ".".join(part.split(".")[-2:])


def built_tests():
    listed = subprocess.run([os.environ["CTEST"], "--show-only=json-v1"], check=True,
                            cwd=os.environ["OMBRIX_BUILD"], capture_output=True, text=True)
    return {plain_name(test["name"]) for test in json.loads(listed.stdout)["tests"]}


class PromisesTest(unittest.TestCase):
    def test_names_are_read_from_all_forms_that_a_test_has(self):
        for name in ["Acceptance.Kill.InTheMidst", "Acceptance.Each/Kill.InTheMidst/SIGTERM",
                     "Acceptance.Each/Kill.InTheMidst/SIGTERM  # GetParam() = 15"]:
            self.assertEqual(plain_name(name), "Kill.InTheMidst")

    def test_both_pages_have_promises(self):
        for name, page in PAGES.items():
            self.assertGreater(len(rows(page)), 10, name)

    def test_every_row_is_whole_and_ends_with_names_of_tests(self):
        for row in every_row():
            with self.subTest(row[0]):
                self.assertTrue(all(row))
                self.assertEqual(NAME.sub("", row[-1]).replace(",", "").strip(), "")
                self.assertRegex(row[-1], NAME)

    def test_no_fault_is_told_twice_under_one_heading(self):
        for page in PAGES.values():
            for section in page.split("\n## ")[1:]:
                faults = [row[0] for row in rows(section)]
                self.assertEqual(len(faults), len(set(faults)), section.splitlines()[0])

    def test_every_test_that_is_named_is_built(self):
        self.assertEqual(named_tests() - built_tests(), set())


if __name__ == "__main__":
    unittest.main()
