"""Tries the commands in the documentation, on a machine made for it."""

import getpass
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time
import unittest

import blocks
import machine
import manual

DEADLINE = 60  # seconds, for what takes a moment
BUILD_DEADLINE = 1200  # seconds, for what begins with building the agent

FIRST_LOOK = "Number of registered processes"


def pattern_of(printed):
    """What a page shows as output, with any time, any number between semicolons, another user, and
    anything at all for "…"."""
    pattern = re.escape(printed.strip().replace("alice", getpass.getuser())).replace("…", ".*")
    pattern = re.sub(r"\d{4}\\-\d\d\\-\d\d\\ \d\d:\d\d:\d\d", r"[-: \\d]{19}", pattern)
    return re.sub(r"(?<=;)\d+\b", r"\\d+", pattern)


def shell(commands):
    return ["bash", "-euo", "pipefail", "-c", commands]


def wait_for_programs(commands):
    """Waits until what was begun in the background is what it is to be: until then it is a shell of
    the same commands, and the agent would know it by that name."""
    own = "\0".join([*shell(commands), ""]).encode()
    end = time.monotonic() + DEADLINE
    while time.monotonic() < end and own in map(command_line, pathlib.Path("/proc").glob("[0-9]*")):
        time.sleep(0.01)


def command_line(process):
    try:
        return (process / "cmdline").read_bytes()
    except OSError:
        return b""


class Session:
    """A user who types the blocks of one page, each in a shell that begins in the sources."""

    def __init__(self):
        self.agents = []

    def type(self, block):
        if block.manner == "in the background":
            self.begin_agent(block.commands())
        elif block.manner in ("a moment later", "beside the agent"):
            if block.manner == "beside the agent" and not self.agents:
                self.begin_agent("Ombrix -c /etc/ombrix/velkagent.config")
            self.succeed_soon(block)
        else:
            self.succeed(block)

    def succeed(self, block):
        # Into a file: what goes on in the background would keep a pipe open.
        with tempfile.TemporaryFile() as output:
            status = subprocess.run(shell(block.commands()), stdout=output, stderr=output,
                                    check=False).returncode
            output.seek(0)
            printed = output.read().decode()
        wait_for_programs(block.commands())
        wrong = f"{block.text}\nstatus {status}\n{printed}"
        if status != 0:
            raise AssertionError(wrong)
        if block.printed() is not None:
            if not re.fullmatch(pattern_of(block.printed()), printed.strip(), re.DOTALL):
                raise AssertionError(wrong)

    def succeed_soon(self, block):
        end = time.monotonic() + DEADLINE
        while True:
            try:
                return self.succeed(block)
            except AssertionError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.5)

    def begin_agent(self, commands):
        """Returns when the agent has looked for the first time."""
        with open("/tmp/agent", "w", encoding="utf-8") as output:
            agent = subprocess.Popen(shell(commands), stdout=output, stderr=output,
                                     start_new_session=True)
        self.agents.append(agent)
        end = time.monotonic() + BUILD_DEADLINE
        while FIRST_LOOK not in self.said():
            if agent.poll() is not None or time.monotonic() > end:
                raise AssertionError(f"{commands}\n{self.said()}")
            time.sleep(0.1)

    @staticmethod
    def said():
        with open("/tmp/agent", encoding="utf-8") as output:
            return output.read()

    def end(self):
        """As Ctrl-C ends whatever runs in a terminal."""
        for agent in self.agents:
            try:
                os.killpg(agent.pid, signal.SIGINT)
            except ProcessLookupError:
                continue
            agent.wait(DEADLINE)


class CommandsTest(unittest.TestCase):
    def try_all(self, page):
        session = Session()
        self.addCleanup(session.end)
        for block in blocks.commands_of(page):
            if block.left_out_because():
                print(f"{page}: not tried ({block.left_out_because()}): {block.text.strip()}")
            else:
                session.type(block)

    def test_every_page(self):
        for page in blocks.pages():
            with self.subTest(page):
                self.try_all(page)
                self.doCleanups()

    def test_every_manual_page(self):
        for page in manual.pages():
            with self.subTest(page.name):
                self.try_all(page.name)
                self.doCleanups()


if __name__ == "__main__":
    machine.run_inside(__file__, unittest.main)
