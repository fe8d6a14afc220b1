"""Holds the schema of the configuration file against what the agent reads."""

import re
import subprocess
import unittest
from xml.etree import ElementTree

import sources

SCHEMA = sources.ROOT / "Packaging" / "velkagent.rng"
VALUES = ["/directory", "512", "info"]


def accepts(document):
    """True when the schema accepts the bytes of a document, false when it refuses them."""
    done = subprocess.run(["xmllint", "--noout", "--relaxng", SCHEMA, "-"], input=document,
                          stderr=subprocess.PIPE, check=False)
    if done.returncode not in (0, 3):  # 3: valid XML that the schema refuses
        raise AssertionError(done.stderr.decode())
    return done.returncode == 0


def document(path, value):
    """A configuration file that sets the place at the XPath `path` to `value`, and nothing else."""
    steps = re.findall(r'/(\w+)(?:\[@(\w+) = "([^"]+)"\])?', path)
    root = element = ElementTree.Element(steps[0][0])
    for name, attribute, key in steps[1:]:
        element = ElementTree.SubElement(element, name)
        if attribute:
            element.set(attribute, key)
    if steps[-1][1]:
        element.set("value", value)
    else:
        element.text = value
    return ElementTree.tostring(root)


def level(word):
    return document("/Configuration/Logging/Level", word)


def misspellings(path):
    """The path with each of its names in turn a little wrong."""
    for name in re.finditer(r"\w{3,}", path):
        if name.group() != "key":
            yield path[:name.end()] + "s" + path[name.end():]


def samples():
    return [path for folder in ("Documentation", "Packaging")
            for path in (sources.ROOT / folder).glob("velkagent.config*")]


class SchemaTest(unittest.TestCase):
    def test_accepts_everything_that_the_agent_reads(self):
        paths = sources.configuration_paths()
        self.assertGreaterEqual(len(paths), 5)
        for path in paths:
            with self.subTest(path):
                self.assertTrue(any(accepts(document(path, value)) for value in VALUES))

    def test_refuses_a_misspelt_name(self):
        for path in sources.configuration_paths():
            for wrong in misspellings(path):
                with self.subTest(wrong):
                    self.assertFalse(any(accepts(document(wrong, value)) for value in VALUES))

    def test_accepts_every_level_that_the_agent_knows(self):
        words = sources.level_words()
        self.assertGreaterEqual(len(words), 5)
        for word in words:
            with self.subTest(word):
                self.assertTrue(accepts(level(word)))

    def test_refuses_what_would_silence_the_log(self):
        for word in ("debug", "notice", "Info", "INFO", " info", "info\n", ""):
            with self.subTest(word):
                self.assertFalse(accepts(level(word)))

    def test_holds_the_size_to_numbers_that_do_not_wrap(self):
        for text, good in (("0", True), (" 512 ", True), ("4194303", True), ("4194304", False),
                           ("-1", False), ("512 KiB", False), ("", False)):
            with self.subTest(text):
                self.assertEqual(accepts(document("/Configuration/Logging/MaxSize", text)), good)

    def test_refuses_what_the_agent_takes_for_nothing(self):
        data = '<Setting key="env.data_dir" value="/a"/>'
        for name, settings in (("empty", '<Setting key="env.data_dir" value=""/>'),
                               ("absent", '<Setting key="env.data_dir"/>'),
                               ("twice", data + data)):
            with self.subTest(name):
                self.assertFalse(accepts(in_system_settings(settings)))

    def test_accepts_any_order_and_any_absence(self):
        data, temp, log = (f'<Setting key="env.{name}_dir" value="/{name}"/>'
                           for name in ("data", "temp", "log"))
        for settings in ("", data + temp + log, log + temp + data, temp + data, log + data):
            with self.subTest(settings):
                self.assertTrue(accepts(in_system_settings(settings)))

    def test_passes_over_what_is_in_other_namespaces(self):
        self.assertTrue(accepts(
            b'<Configuration xmlns:site="urn:site" site:owner="x"><site:contact><a b="c"/>text'
            b"</site:contact><SystemSettings><site:note/></SystemSettings></Configuration>"))

    def test_accepts_each_sample(self):
        self.assertTrue(samples())
        for path in samples():
            with self.subTest(path):
                self.assertTrue(accepts(path.read_bytes()))

    def test_each_sample_sets_everything(self):
        for path in samples():
            root = ElementTree.parse(path).getroot()
            for query in sources.configuration_paths():
                with self.subTest(sample=path, query=query):
                    relative = "." + query.removeprefix("/Configuration")
                    self.assertEqual(len(root.findall(relative.replace(" = ", "="))), 1)


def in_system_settings(settings):
    return (f"<Configuration><SystemSettings>{settings}</SystemSettings></Configuration>"
            ).encode()


if __name__ == "__main__":
    unittest.main()
