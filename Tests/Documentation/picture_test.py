"""Holds the drawn picture of the architecture against the text that it is drawn from."""

import re
import shutil
import subprocess
import unittest
from xml.etree import ElementTree

import sources

SOURCE = sources.ROOT / "Documentation" / "architecture.dot"
DRAWING = sources.ROOT / "Documentation" / "architecture.svg"
SVG = "{http://www.w3.org/2000/svg}"


def written(kind, svg):
    """What stands in all elements of a kind, in no particular order."""
    return sorted(element.text for element in ElementTree.fromstring(svg).iter(SVG + kind))


def described_texts(dot):
    labels = re.findall(r'\blabel="([^"]*)"', dot)
    return sorted(line for label in labels for line in label.split(r"\n"))


def described_arrows(dot):
    return sorted(f"{start}->{end}" for start, end in re.findall(r"^  (\w+) -> (\w+)", dot,
                                                                 re.MULTILINE))


class PictureTest(unittest.TestCase):
    def setUp(self):
        self.dot = SOURCE.read_text(encoding="utf-8")
        self.svg = DRAWING.read_text(encoding="utf-8")

    def test_shows_every_text_of_its_source(self):
        self.assertEqual(written("text", self.svg), described_texts(self.dot))

    def test_shows_every_arrow_of_its_source(self):
        arrows = [title for title in written("title", self.svg) if "->" in title]
        self.assertTrue(arrows)
        self.assertEqual(arrows, described_arrows(self.dot))

    def test_names_only_classes_that_exist(self):
        headers = {path.stem for path in sources.ROOT.rglob("*.h")}
        for name in re.findall(r'label="([A-Z]\w+[a-z][A-Z]\w+)', self.dot):
            with self.subTest(name):
                self.assertIn(name, headers)

    @unittest.skipUnless(shutil.which("dot"), "graphviz is not at hand")
    def test_is_what_graphviz_draws(self):
        drawn = subprocess.run(["dot", "-Tsvg", SOURCE], stdout=subprocess.PIPE, check=True,
                               stderr=subprocess.DEVNULL).stdout
        for kind in ("text", "title"):
            self.assertEqual(written(kind, self.svg), written(kind, drawn))


if __name__ == "__main__":
    unittest.main()
