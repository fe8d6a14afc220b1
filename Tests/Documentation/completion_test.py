"""Completes words and paths in bash, zsh and fish and holds them against the command line."""

import pathlib
import tempfile
import unittest

import shells
import sources
from shells import EVERYTHING, TAB

FILES = ["plain.config", "Capital.config", "da-sh.config", "sub/inner.config", "sub/In-ner.config",
         "Caps/inner.config"]


def bare(word):
    return word.lower().replace("-", "")


class Completion:
    """What each shell must do; the shells are below."""

    start = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        for name in FILES:
            path = pathlib.Path(folder.name, "work", name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.touch()
        self.terminal = type(self).start(folder.name)
        self.addCleanup(self.terminal.close)

    def assert_completes(self, table):
        for typed, completed in table.items():
            with self.subTest(typed):
                self.assertEqual(self.terminal.line_after(typed + TAB).rstrip(), completed)

    def candidates(self, typed):
        line = self.terminal.line_after(typed + EVERYTHING)
        given = typed.split()
        if typed and not typed.endswith(" "):
            given.pop()
        return {word.rstrip("/") for word in line.split()[len(given):]}

    def test_completes_words_of_any_spelling(self):
        self.assert_completes({"Ombrix st": "Ombrix stop", "Ombrix -Prep": "Ombrix -PrepForUpgrade",
                               "Ombrix --vn": "Ombrix --vnum", "Ombrix -li": "Ombrix -list",
                               "Ombrix --VER": "Ombrix --version"})

    def test_offers_the_words_of_the_command_line_and_no_others(self):
        known = sources.command_words() | sources.option_words()
        for typed in ("Ombrix ", "Ombrix -", "Ombrix --"):
            with self.subTest(typed):
                self.assertEqual({bare(word) for word in self.candidates(typed)}, known)

    def test_keeps_the_dashes_that_were_typed(self):
        self.assertEqual(self.candidates("Ombrix --v"), {"--v", "--version", "--vnum"})
        self.assertEqual(self.candidates("Ombrix v"), {"v", "version", "vnum"})

    def test_offers_nothing_after_a_word_that_ends_the_process(self):
        for word in sources.command_words():
            with self.subTest(word):
                self.assertEqual(self.candidates(f"Ombrix -{word} "), set())

    def test_offers_only_paths_that_come_through(self):
        for option in ("-c", "-C", "configfile", "--Config-File"):
            with self.subTest(option):
                self.assertEqual(self.candidates(f"Ombrix {option} "), {"plain.config", "sub"})

    def test_completes_paths_inside_folders(self):
        self.assert_completes({"Ombrix -c pl": "Ombrix -c plain.config",
                               "Ombrix -c sub/": "Ombrix -c sub/inner.config"})

    def test_takes_a_word_after_the_option_for_a_path(self):
        self.assert_completes({"Ombrix -c stop li": "Ombrix -c stop list",
                               "Ombrix -c list -c pl": "Ombrix -c list -c plain.config"})


class BashCompletionTest(Completion, unittest.TestCase):
    start = shells.bash


class ZshCompletionTest(Completion, unittest.TestCase):
    start = shells.zsh


class FishCompletionTest(Completion, unittest.TestCase):
    start = shells.fish


if __name__ == "__main__":
    unittest.main()
