"""What the program's sources say, for tests that hold documents against them."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def section(text, begin, end):
    """The piece of `text` from the first `begin` up to the next `end`."""
    start = text.index(begin)
    return text[start:text.index(end, start)]


def command_words():
    """The words that the command line knows, as it compares them."""
    source = read("Source/CommandLine.cpp")
    return set(re.findall(r'\{"(\w+)", Command::', source))


def option_words():
    """The words after which the command line takes a path."""
    return set(re.findall(r'word == "(\w+)"', read("Source/CommandLine.cpp")))


def configuration_queries():
    """The places of the configuration file that are read, as XPath."""
    source = read("Utilities/Configuration/ConfigurationFile.cpp")
    return re.findall(r'R"\((/Configuration/.*?)\)"|"(/Configuration/.*?)"', source)


def configuration_paths():
    return [raw or plain for raw, plain in configuration_queries()]


def level_words():
    """The words for a log level in the configuration file, with the level that each means."""
    source = read("Utilities/Logging/LogManager.cpp")
    return dict(re.findall(r'word == "(\w+)"\) return LogLevel::(\w+);', source))
