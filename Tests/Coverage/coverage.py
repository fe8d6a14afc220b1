"""Prints how many lines of the program the tests reach, and why they do not reach the others.

usage: coverage.py BUILD

BUILD is a build with OMBRIX_COVERAGE whose tests have run. A stretch is a run of lines that no test
reaches; Tests/Coverage/unreached has a sentence for each. The script fails when a stretch has none,
when a sentence stands for a line that is not there, and when a part of the program falls below the
least share of its lines.
"""

import json
import os
import re
import subprocess
import sys

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
SENTENCES = "Tests/Coverage/unreached"
PARTS = ["Source", "Utilities", "Platform"]
LEAST = 95  # per cent


def read(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as source:
        return source.read()


def counts_of(build):
    """How often each line ran: {file: {line: count}}, of all objects together."""
    counts = {}
    for folder, _, names in os.walk(build):
        notes = [os.path.join(folder, name) for name in names if name.endswith(".gcno")]
        if notes:
            output = subprocess.run(["gcov", "--json-format", "--stdout", *notes],
                                    check=True, capture_output=True, text=True).stdout
            for report in output.splitlines():
                add(json.loads(report), counts)
    return counts


def add(report, counts):
    for file in report["files"]:
        path = os.path.relpath(os.path.join(report["current_working_directory"], file["file"]), ROOT)
        lines = counts.setdefault(path, {})
        for line in file["lines"]:
            number = line["line_number"]
            lines[number] = lines.get(number, 0) + line["count"]


def program_files():
    names = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard", *PARTS],
                           check=True, capture_output=True, text=True).stdout.split("\n")
    return sorted(name for name in names if name.endswith((".cpp", ".h")))


class File:
    """One file of the program, and how often its lines ran."""

    def __init__(self, path, counts, build):
        self.path = path
        self.text = [""] + read(path).split("\n")  # lines are counted from 1
        found = dict(counts.get(path, {}))
        for number, line in enumerate(self.text):
            directive = re.match(r'#line (\d+) "(.*)"', line)
            if directive:  # what it sends elsewhere stands here
                elsewhere = os.path.relpath(os.path.join(build, directive.group(2)), ROOT)
                for there, count in counts.get(elsewhere, {}).items():
                    found[there - int(directive.group(1)) + number + 1] = count
        # What gcc puts to a closing brace is the tidying up after exceptions.
        self.lines = {number: count for number, count in sorted(found.items())
                      if self.text[number].strip() not in ("}", "};")}

    def reached(self):
        return sum(count > 0 for count in self.lines.values())

    def stretches(self):
        """Runs of lines of which none was reached: (first, last, the text they stand in)."""
        begin, numbers = 0, []
        for number in [*self.lines, len(self.text)]:
            if self.lines.get(number) == 0:
                numbers.append(number)
                continue
            if numbers:
                surroundings = "\n".join(self.text[begin:numbers[-1] + 1])
                yield numbers[0], numbers[-1], surroundings
            begin, numbers = number, []


def read_sentences():
    """Of each entry the file, a text in the stretch or on the last line before it, and why."""
    entries = []
    for block in re.split(r"\n\s*\n", read(SENTENCES)):
        rows = [row for row in block.strip().split("\n") if not row.startswith("#")]
        text = "\n".join(rows)
        if text:
            entry = re.fullmatch(r"file: (.*)\nat: (.*)\nwhy: ((?:.|\n)*)", text)
            if not entry:
                sys.exit(f"{SENTENCES}: cannot read {text!r}")
            entries.append((entry.group(1), entry.group(2), " ".join(entry.group(3).split())))
    return entries


def print_shares(files):
    """Prints a line for each file and each part. Returns the complaints."""
    complaints = []
    for file in files:
        share = 100 * file.reached() / len(file.lines)
        print(f"{file.path:60} {file.reached():5} of {len(file.lines):5} {share:6.1f} %")
    print()
    for part in PARTS:
        lines = sum(len(file.lines) for file in files if file.path.startswith(part + "/"))
        reached = sum(file.reached() for file in files if file.path.startswith(part + "/"))
        share = 100 * reached / lines
        print(f"{part:60} {reached:5} of {lines:5} {share:6.1f} %")
        if share < LEAST:
            complaints.append(f"The tests reach less than {LEAST} % of {part}.")
    return complaints


def print_stretches(files, entries):
    """Prints each stretch with its sentence. Returns the complaints."""
    complaints = []
    for file in files:
        for first, last, surroundings in file.stretches():
            why = [why for path, at, why in entries if path == file.path and at in surroundings]
            place = f"{file.path}:{first}" + (f"-{last}" if last > first else "")
            print(f"\n{place}\n    {why[0] if why else 'no sentence'}")
            if not why:
                complaints.append(f"{place}: reached by no test, and {SENTENCES} does not say why.")
    for path, at, _ in entries:
        if not os.path.isfile(os.path.join(ROOT, path)) or at not in read(path):
            complaints.append(f"{SENTENCES}: {at!r} is not in {path}.")
    return complaints


def main():
    build = os.path.realpath(sys.argv[1])
    counts = counts_of(build)
    files = [File(path, counts, build) for path in program_files()]
    files = [file for file in files if file.lines]
    complaints = print_shares(files) + print_stretches(files, read_sentences())
    if complaints:
        sys.exit("\n" + "\n".join(complaints))


main()
