"""A machine to try commands on: this one, with everything that is written to it in memory only, and
without its network and its processes."""

import os
import pathlib
import shutil
import subprocess
import sys

import manual
import sources

CHECKOUT = pathlib.Path("/usr/src/ombrix")  # where a user of this machine has the sources
STAGE = "OMBRIX_TEST_MACHINE"  # how far a process has come on its way into the machine
SKIPPED = 77  # the exit status that ctest takes for a test that was skipped


def run_inside(script, test):
    """Runs the test in the machine: the script is begun anew in namespaces of its own, and once
    more, from the copy of the sources, when the machine is furnished."""
    stage = os.environ.get(STAGE)
    if stage is None:
        enter(script)
    elif stage == "entered":
        furnish(os.environ["OMBRIX_EXECUTABLE"])
        begin_anew("furnished", [sys.executable, "-B",
                                 CHECKOUT / pathlib.Path(script).relative_to(sources.ROOT)])
    else:
        test()


def begin_anew(stage, command):
    os.execvpe(command[0], command, {**os.environ, STAGE: stage})


def enter(script):
    if os.geteuid() != 0:
        print("skipped: only root can lay a file system over another")
        sys.exit(SKIPPED)
    # The shell stays, as process 1, and buries whoever loses his parent.
    begin_anew("entered", ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child",
                           "--mount-proc", "--propagation", "private",
                           "bash", "-c", '"$@"; exit $?', "init", sys.executable, "-B", script])


def mount(kind, place, *options):
    subprocess.run(["mount", "-t", kind, *options, kind, place], check=True)


def furnish(executable):
    """Makes the machine, with the agent installed and the sources in CHECKOUT, and moves this
    process there."""
    memory = pathlib.Path("/mnt")
    mount("tmpfs", memory, "-o", "mode=755")
    for name in ("written", "work", "root"):
        (memory / name).mkdir()
    root = memory / "root"
    mount("overlay", root, "-o", f"lowerdir=/,upperdir={memory}/written,workdir={memory}/work")
    mount("proc", root / "proc")
    subprocess.run(["mount", "--rbind", "/dev", root / "dev"], check=True)
    for place, mode in (("run", "755"), ("tmp", "1777")):
        mount("tmpfs", root / place, "-o", f"mode={mode}")
    install(executable, root)
    os.chroot(root)
    os.chdir(CHECKOUT)


def install(executable, root):
    place(root / "usr/sbin/Ombrix", pathlib.Path(executable).read_bytes(), 0o755)
    schema = sources.ROOT / "Packaging" / "velkagent.rng"
    place(root / "usr/share/ombrix/velkagent.rng", schema.read_bytes(), 0o644)
    example = next(text for _, text in manual.literal_blocks("velkagent.config.5")
                   if text.startswith("<?xml"))
    place(root / "etc/ombrix/velkagent.config", example.encode(), 0o644)
    # Whoever is root already needs no leave.
    place(root / "usr/local/bin/sudo", b'#!/bin/sh\nexec "$@"\n', 0o755)
    shutil.copytree(sources.ROOT, root / CHECKOUT.relative_to("/"), symlinks=True,
                    ignore=shutil.ignore_patterns(".git", "build", "build-*", ".cache"))


def place(path, contents, mode):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(contents)
    path.chmod(mode)
