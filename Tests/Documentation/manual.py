"""The manual pages as the tests read them."""

import re

import sources

FOLDER = sources.ROOT / "Documentation" / "man"

ESCAPES = {r"\(aq": "'", r"\(dq": '"', r"\e": "\\", r"\-": "-"}


def pages():
    return sorted(FOLDER.iterdir())


def unescaped(text):
    text = re.sub(r"\\(\(\w\w|.)", lambda found: ESCAPES[found.group()], text)
    return text


def literal_blocks(page):
    """The literal blocks of a page, each with the comment that stands before it."""
    text = (FOLDER / page).read_text(encoding="utf-8")
    for block in re.finditer(r'(?:^\.\\" (.*)\n)?^\.Bd -literal.*\n((?:.*\n)*?)^\.Ed$', text,
                             re.MULTILINE):
        yield block[1], unescaped(block[2])
