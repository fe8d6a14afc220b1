"""Holds the manual pages against the sources, and tries what they say of records."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest
from xml.etree import ElementTree

import manual
import sources

OMBRIX = sources.read("Documentation/man/Ombrix.8")
CONFIGURATION = sources.read("Documentation/man/velkagent.config.5")

RECORDS = {
    "a.met": "vim;;;;/usr/bin;alice;;2024-03-01 10:00:00;2024-03-01 10:05:30;0;3600",
    "b.met": "vim;;;;/usr/bin;bob;;2024-03-01 11:00:00;2024-03-01 13:00:00;5;5400",
    "c.met": "od;d;;;;/opt/a;;;;b;alice;;2024-03-02 10:00:00;2024-03-02 10:00:06;0;5",
    "d.met": 'say "so"\n;;;;/usr/bin;alice;;2024-03-01 09:00:00;2024-03-01 09:00:08;0;7',
}


def words_of(markup, text):
    """The words that a page marks as those of the command line, as the agent compares them."""
    lines = re.findall(rf"^\.(?:It |Nm )?((?:{markup}) .*)$", text, re.MULTILINE)
    found = set()
    for line in lines:
        for word in re.sub(r"\b(Fl|Cm|Ar \w+|Ns)\b|[|,.]", " ", line).split():
            found.add(word.lower().replace("-", ""))
    return found


def contract(operation):
    source = sources.read("Source/data/OmbrixConfigurationContract.cpp")
    return sources.section(source, f"::{operation}()", "\n}\n")


class ManualTest(unittest.TestCase):
    def assert_clean(self, *checker):
        for page in manual.pages():
            with self.subTest(page.name):
                said = subprocess.run([*checker, page], stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, check=False)
                self.assertEqual((said.stdout, said.returncode), ("", 0))

    def test_pages_are_clean_to_mandoc(self):
        self.assert_clean("mandoc", "-T", "lint", "-W", "warning")

    def test_pages_are_clean_to_groff(self):
        self.assert_clean("groff", "-mdoc", "-K", "utf8", "-ww", "-T", "utf8", "-z")


class CommandPageTest(unittest.TestCase):
    def test_describes_every_word_and_no_other(self):
        described = words_of("Fl|Cm", sources.section(OMBRIX, ".Ss Words", ".Ss Signals"))
        self.assertEqual(described, sources.command_words() | sources.option_words())

    def test_synopsis_has_known_words_only(self):
        named = words_of("Fl|Cm|Op Fl", sources.section(OMBRIX, ".Sh SYNOPSIS", ".Sh DESC"))
        self.assertLessEqual(named - {"op"}, sources.command_words() | sources.option_words())
        self.assertGreaterEqual(len(named), 4)

    def test_describes_every_variable_that_is_read(self):
        read = set()
        for folder in ("Source", "Utilities", "Platform"):
            for path in (sources.ROOT / folder).rglob("*.cpp"):
                read |= set(re.findall(r'getenv\("(\w+)"\)', path.read_text(encoding="utf-8")))
        self.assertTrue(read)
        described = set(re.findall(r"^\.It Ev (\w+)$", OMBRIX, re.MULTILINE))
        self.assertLessEqual(read | {"TZ"}, described)  # TZ is read by the C library


class ConfigurationPageTest(unittest.TestCase):
    def test_describes_every_place_and_no_other(self):
        described = re.findall(r"^\.It Li (/Configuration.*)$", CONFIGURATION, re.MULTILINE)
        self.assertEqual([manual.unescaped(path) for path in described],
                         sources.configuration_paths())

    def test_names_every_stored_key(self):
        contract_keys = set(re.findall(r'"(\w+)"[,}]', contract("getAliases")))
        read = set()
        for path in (sources.ROOT / "Source").rglob("*.cpp"):
            for key in re.findall(r'getConfiguration\("(\w+)"\)', path.read_text("utf-8")):
                read.add(key.lower())
        self.assertGreaterEqual(len(contract_keys | read), 10)
        table = sources.section(CONFIGURATION, ".Bl -column", "\n.El")
        rows = table.split("\n", 2)[2]
        self.assertEqual(set(re.findall(r"Ta (\w+)", rows)), contract_keys | read)

    def test_pairs_each_alias_with_its_source(self):
        for source, target in re.findall(r'\{"(\w+)", "(\w+)"\}', contract("getAliases")):
            self.assertIn(f"Ta {source} Ta {target}\n", CONFIGURATION)

    def test_names_every_default_directory(self):
        defaults = dict(re.findall(r'"set(\w+)directory", "(.*)"', contract("getDefaults")))
        page = dict(re.findall(r'env\.(\w+)_dir\\\(dq\]\n(?:.*\n)*?Default:\n\.Pa (.*)\n',
                               CONFIGURATION))
        short = {"storage": "data", "temporary": "temp", "log": "log"}
        self.assertEqual(page, {short[name]: value for name, value in defaults.items()})

    def test_names_every_level(self):
        level = sources.section(CONFIGURATION, "/Configuration/Logging/Level", "Default:")
        self.assertEqual(set(re.findall(r"^\.Ql (\w+)", level, re.MULTILINE)),
                         set(sources.level_words()))

    def test_tells_the_limit_of_the_size(self):
        header = sources.read("Utilities/Configuration/ConfigurationDocument.h")
        kibibytes = re.search(r"maximumBytes = std::size_t\{(\d+)\} \* 1024", header)[1]
        self.assertIn(f" {kibibytes} KiB", CONFIGURATION)

    def test_example_sets_everything_as_the_schema_wants_it(self):
        example = next(text for _, text in manual.literal_blocks("velkagent.config.5")
                       if text.startswith("<?xml"))
        schema = sources.ROOT / "Packaging" / "velkagent.rng"
        subprocess.run(["xmllint", "--noout", "--relaxng", schema, "-"], input=example.encode(),
                       stderr=subprocess.DEVNULL, check=True)
        root = ElementTree.fromstring(example.encode())
        for path in sources.configuration_paths():
            relative = "." + path.removeprefix("/Configuration").replace(" = ", "=")
            self.assertIsNotNone(root.find(relative), path)


class RecordPageTest(unittest.TestCase):
    """The examples, in their order, on the records above."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        for name, text in RECORDS.items():
            pathlib.Path(self.folder.name, name).write_text(text, encoding="utf-8")
        blocks = [text for _, text in manual.literal_blocks("met.5")]
        self.record, *self.examples = blocks

    def lines_of(self, number):
        command = self.examples[number].replace("/var/lib/ombrix", self.folder.name)
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", command], check=True, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        return done.stdout.splitlines()

    def test_record_has_as_many_fields_as_are_described(self):
        described = re.findall(r"^\.It ([\d ,]+)$", sources.read("Documentation/man/met.5"),
                               re.MULTILINE)
        numbers = [int(number) for line in described for number in re.findall(r"\d+", line)]
        self.assertEqual(numbers, list(range(1, 12)))
        self.assertEqual(self.record.strip().count(";"), 10)

    def test_every_example_is_tried(self):
        self.assertEqual(len(self.examples), 6)

    def test_first_puts_each_record_on_lines_of_its_own(self):
        lines = "\n".join(RECORDS.values()).splitlines()
        self.assertEqual(sorted(self.lines_of(0)), sorted(lines))

    def test_second_shows_name_and_run_time(self):
        self.assertIn("vim;5400", self.lines_of(1))

    def test_third_adds_up_the_hours(self):
        self.assertEqual(self.lines_of(2)[0], "2.50 vim")

    def test_fourth_finds_the_runs_of_a_user_on_a_day(self):
        lines = self.lines_of(3)
        self.assertIn(RECORDS["a.met"], lines)
        self.assertEqual(len(lines), 2)  # the other one is the last line of a name with a line feed

    def test_fifth_adds_up_by_user_and_program(self):
        self.assertEqual(self.lines_of(4)[:2], ["5400 bob vim", "3600 alice vim"])

    def test_sixth_takes_any_name_apart(self):
        found = sorted(self.lines_of(5))
        self.assertEqual(len(found), len(RECORDS))
        self.assertIn('{"name": "od;d", "directory": "/opt/a;;;;b", "user": "alice", '
                      '"start": "2024-03-02 10:00:00", "stop": "2024-03-02 10:00:06", '
                      '"paused": "0", "seconds": "5"}', found)
        self.assertTrue(any(line.startswith(r'{"name": "say \"so\"\n"') for line in found))


if __name__ == "__main__":
    unittest.main()
