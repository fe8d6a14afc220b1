"""Interactive shells that complete a line as for a person at a keyboard."""

import fcntl
import os
import pathlib
import pty
import select
import subprocess
import termios
import time

import sources

COMPLETION = sources.ROOT / "Packaging" / "completion"
DEADLINE = 30  # seconds, for a machine that has much else to do

TAB = "\t"
EVERYTHING = "\x18a"  # bound to: put every candidate into the line
SHOW = "\x18s"  # bound to: write the line to the file $SHOWN


def own_this_terminal():
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


class Terminal:
    """A shell in a terminal of its own that has read `preparation`. It works in the subfolder
    "work" of `folder`, and keeps its own things beside it."""

    def __init__(self, command, preparation, folder):
        self.shown = pathlib.Path(folder, "shown")
        self.keyboard, inside = pty.openpty()
        environment = {"PATH": os.environ["PATH"], "HOME": folder, "TERM": "dumb",
                       "LC_ALL": "C.UTF-8", "SHOWN": str(self.shown)}
        self.shell = subprocess.Popen(command, env=environment,
                                      cwd=self.shown.with_name("work"),
                                      stdin=inside, stdout=inside, stderr=inside,
                                      start_new_session=True, preexec_fn=own_this_terminal)
        os.close(inside)
        self.type(preparation + "\n")

    def close(self):
        self.shell.kill()
        self.shell.wait()
        os.close(self.keyboard)

    def type(self, keys):
        os.write(self.keyboard, keys.encode())

    def line_after(self, keys):
        """The command line as it stands when the keys have had their effect. It is cleared."""
        self.shown.unlink(missing_ok=True)
        self.type("\x15" + keys + SHOW)
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            self.listen()
            if self.shown.exists() and self.shown.read_text().endswith("\n"):
                return self.shown.read_text()[:-1]
        raise AssertionError("the shell did not answer")

    def listen(self):
        """Takes what the shell prints, lest it wait for a reader."""
        if select.select([self.keyboard], [], [], 0.05)[0]:
            os.read(self.keyboard, 65536)


def bash(folder):
    preparation = "; ".join([
        f"source {COMPLETION}/ombrix.bash",
        "bind 'set enable-bracketed-paste off'",
        r"""bind '"\C-xa": insert-completions'""",
        r"""bind -x '"\C-xs": printf "%s\n" "$READLINE_LINE" > $SHOWN'"""])
    return Terminal(["bash", "--norc", "--noprofile", "-i"], preparation, folder)


def zsh(folder):
    preparation = "; ".join([
        "unsetopt zle_bracketed_paste prompt_cr prompt_sp",
        f"fpath=({COMPLETION} $fpath)",
        "autoload -Uz compinit", "compinit -D -u",
        "bindkey -e",
        "zle -C everything complete-word _generic",
        "zstyle ':completion:everything:*' completer _all_matches _complete",
        "zstyle ':completion:everything:*' insert true",
        r"bindkey '^Xa' everything",
        "show() { print -r -- $BUFFER > $SHOWN }", "zle -N show", r"bindkey '^Xs' show"])
    return Terminal(["zsh", "-f", "-i"], preparation, folder)


def fish(folder):
    preparation = "; ".join([
        f"source {COMPLETION}/Ombrix.fish",
        "function everything; set -l line (commandline -cp)",
        r"set -l all (complete -C $line | string replace -r '\t.*' '')",
        "commandline -r (string replace -r '[^ ]*$' '' -- $line)(string join ' ' -- $all)' '; end",
        r"bind \cxa everything",
        r"bind \cxs 'commandline > $SHOWN'"])
    return Terminal(["fish", "--no-config", "-i"], preparation, folder)
