"""The shell commands in pages and manual pages.

In a page, a fenced block of the language "sh" is commands; one of the language "console" is
commands behind "$ " with what they print. A comment in the line above, which readers do not see,
may say how the block is tried:

    not tried: REASON        it needs what no test can give it; REASONS below are all there are
    in the background        it begins an agent, and the next block is tried beside it
    a moment later           what it asks of an agent takes a moment: it is tried until it succeeds
    beside the agent         as above, and an agent of the installed configuration is running

In a manual page the comment stands above a literal block; without one the block is no commands.
"""

import re
from dataclasses import dataclass

import manual
import sources

# Why a block may be left out, and a command that it must then have.
REASONS = {
    "systemd": r"\b(systemctl|journalctl|systemd-\w+)\b",
    "packages": r"\b(apt|cpack|dpkg|rpm|brew|installer)\b",
    "graphviz": r"\bdot\b",
    "the tests themselves": r"\bscripts/test\b",
}

MANNERS = {"", "tried", "in the background", "a moment later", "beside the agent"}

FENCE = re.compile(r"^(?:<!-- (?P<comment>.*) -->\n)?```(?P<language>.*)\n(?P<text>(?:.*\n)*?)```$",
                   re.MULTILINE)


@dataclass
class Block:
    language: str
    manner: str
    text: str

    def left_out_because(self):
        """The reason why it is not tried, or nothing."""
        return self.manner.removeprefix("not tried: ") if self.manner.startswith("not") else None

    def commands(self):
        """The commands, without what they print."""
        if self.language != "console":
            return self.text
        return "\n".join(line[2:] for line in self.text.splitlines() if line.startswith("$ "))

    def printed(self):
        """What the commands print, or nothing where the page does not tell."""
        if self.language != "console":
            return None
        return "\n".join(line for line in self.text.splitlines() if not line.startswith("$ "))


def pages():
    return ["README.md", *sorted(f"Documentation/{path.name}"
                                 for path in (sources.ROOT / "Documentation").glob("*.md"))]


def in_page(page):
    return [Block(fence["language"], fence["comment"] or "", fence["text"])
            for fence in FENCE.finditer(sources.read(page))]


def in_manual(page):
    return [Block("sh", comment, text) for comment, text in manual.literal_blocks(page) if comment]


def commands_of(page):
    """The blocks of commands in a page or manual page."""
    if not page.endswith(".md"):
        return in_manual(page)
    return [block for block in in_page(page) if block.language in ("sh", "console")]
