"""Puts small faults into the program, one at a time, and looks whether a test notices.

usage: scripts/mutate [--check] [--again] [TEXT ...]

The faults are listed in Tests/Mutation/faults, which explains its format. Each is applied to a copy
of the tree in build/mutate, built there without optimisation, and shown to the tests: first those
that link the changed file (unit tests, or those of the port), then the kept inputs of the fuzz
targets, and the acceptance tests only when none of these has noticed. The first test that fails
ends the trial.

A fault that no test notices needs a test, or a reason beside its entry ("kept:"). The script fails
when one has neither, when one with a reason is noticed after all, and when one cannot be applied or
built. Good outcomes are remembered in build/mutate/outcomes for as long as neither the fault nor its
file changes.

  --check   only looks whether each fault can still be applied
  --again   forgets the outcomes of earlier runs
  TEXT      tries only faults whose file or text contains it

The tests run with the whole machine read-only but build/mutate, so that no fault can do harm. This
takes root, and what scripts/test installs.
"""

import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
LIST = os.path.join(ROOT, "Tests/Mutation/faults")
WORK = os.path.join(ROOT, "build/mutate")
TREE = os.path.join(WORK, "tree")
BUILD = os.path.join(WORK, "build")
OUTCOMES = os.path.join(WORK, "outcomes")
INSIDE = "OMBRIX_MUTATE_INSIDE"

# Targets and tests of each stage. The agent's parts are tested on the scripted machine, the port's
# on the real one.
SCRIPTED = [
    (["UnitTests", "ScriptedStoreTests"], ["-L", "^unit$"]),
    (["FuzzRecordFiles", "FuzzSleepMessages", "FuzzLogFile", "FuzzConfigurationFile",
      "FuzzConfigurationValues", "FuzzTexts", "FuzzCommandLine"],
     ["-R", "^Fuzz.(RecordFiles|SleepMessages|LogFile|Configuration|Texts|CommandLine)"]),
]
PORT = [
    (["PortTests"], ["-R", "^Port[.]"]),
    (["FuzzProcessStatus", "FuzzProcessDirectory", "FuzzNotifications", "FuzzBusMessages",
      "FuzzSleepMessages"],
     ["-R", "^Fuzz.(Process|Notifications|BusMessages|SleepMessages)"]),
]
ACCEPTANCE = (["AcceptanceTests"], ["-L", "^acceptance$", "-E", "Crowd|Valgrind|ManyRuns"])

# Acceptance tests that are the first to ask, by what the name of the changed file contains.
LIKELY = {
    "main": "CommandLine|Upgrade|Descriptors|LittleMemory",
    "Agent": "LogLevel|End",
    "ClientSetup": "SecondAgent|Configuration|Log",
    "Metering": "Records|DayChange|End|List|LittleMemory",
    "Process": "Records|ProcessNames|FewProcesses|Surroundings",
    "Sleep": "Sleep",
    "SystemPower": "Sleep",
    "Login1": "Sleep",
    "Clock": "Sleep|DayChange|Clock",
    "Configuration": "Configuration",
    "Log": "Log|SystemLog|Stalled",
    "FileUtils": "Planted|Storage|Full|Log|BrokenFolder",
    "Memory": "LittleMemory",
    "Notification": "Stranger|SecondAgent|Stalled|MachineAgent",
    "Announcement": "MachineAgent",
    "RuntimeDirectory": "Stranger|OrdinaryUser|MachineAgent|PlantedNames",
    "RunLoop": "End|Sleep|Descriptors",
    "ServiceManager": "Readiness",
    "ProcessEnvironment": "Descriptors|Storage|Full",
    "DateFormatter": "DayChange|Clock",
}


class Fault:
    """One entry of the list."""

    def __init__(self, number, line, fields):
        self.number = number
        self.line = line
        self.path = fields.get("file", "")
        self.anchor = fields.get("at", "")
        self.original = fields.get("-", "")
        self.mutated = fields.get("+", "")
        self.kept = " ".join(fields.get("kept", "").split())

    def applied_to(self, text):
        """The text with the fault in it; None where its place is missing or not unique."""
        begin = 0
        if self.anchor:
            begin = text.find(self.anchor) + 1
            if begin == 0:
                return None
        lines = [re.escape(line.strip()) for line in self.original.split("\n")]
        places = list(re.finditer(r"\s*\n\s*".join(lines), text[begin:]))
        if not places or (len(places) > 1 and not self.anchor):
            return None
        first = places[0]
        return text[: begin + first.start()] + self.mutated + text[begin + first.end() :]

    def title(self):
        before = self.original.split("\n")[0].strip()
        after = self.mutated.split("\n")[0].strip()
        return f"{self.path}: {before[:60]}  ->  {after[:60]}"


def read_faults():
    faults = []
    with open(LIST, encoding="utf-8") as source:
        text = source.read()
    line = 1
    for block in re.split(r"\n\s*\n", text):
        rows = [row for row in block.split("\n") if row and not row.startswith("#")]
        if rows:
            faults.append(Fault(len(faults) + 1, line, fields_of(rows)))
        line += block.count("\n") + 2
    return faults


def fields_of(rows):
    fields = {}
    key = None
    for row in rows:
        begin = re.match(r"(file:|at:|kept:|-|\+)(?: (.*))?$", row)
        if begin:
            key = begin.group(1).rstrip(":")
            fields[key] = begin.group(2) or ""
        elif row.startswith("  ") and key:
            fields[key] += "\n" + row.strip()
        else:
            sys.exit(f"Tests/Mutation/faults: cannot read {row!r}")
    return fields


def read(path):
    with open(path, encoding="utf-8") as source:
        return source.read()


def write(path, text):
    with open(path, "w", encoding="utf-8") as target:
        target.write(text)


def check(faults):
    """Names those that cannot be applied. True when there are none."""
    lost = []
    for fault in faults:
        path = os.path.join(ROOT, fault.path)
        text = read(path) if os.path.isfile(path) else ""
        mutated = fault.applied_to(text)
        if mutated is None or mutated == text:
            lost.append(fault)
            print(f"Tests/Mutation/faults:{fault.line}: cannot be applied to {fault.path}")
    print(f"{len(faults) - len(lost)} of {len(faults)} faults can be applied")
    return not lost


def copy_tree():
    """Brings the copy up to the tree, and leaves alone what is the same."""
    names = subprocess.run(
        ["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard", "-z"],
        check=True, capture_output=True, text=True).stdout.split("\0")
    for name in filter(None, names):
        source, target = os.path.join(ROOT, name), os.path.join(TREE, name)
        if not os.path.isfile(source):
            continue
        with open(source, "rb") as file:
            contents = file.read()
        if os.path.isfile(target):
            with open(target, "rb") as file:
                if file.read() == contents:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy(source, target)


def run(command, seconds):
    """The exit status and what was printed; a status of None when it took too long."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          start_new_session=True, text=True, errors="replace") as process:
        try:
            output, _ = process.communicate(timeout=seconds)
            return process.returncode, output
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            return None, process.communicate()[0]


def configure():
    environment = dict(os.environ)
    environment.pop("CMAKE_CXX_COMPILER_LAUNCHER", None)  # a cache would only fill up
    subprocess.run(
        ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
         "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DOMBRIX_TESTS=ON", "-DCMAKE_CXX_COMPILER_LAUNCHER="],
        check=True, stdout=subprocess.DEVNULL, env=environment)


def build(targets):
    status, output = run(["cmake", "--build", BUILD, "-j", "2", "--target", *targets], 900)
    return status == 0, output


def failing_test(selection):
    """The name of a test of the selection that fails; None when all pass."""
    status, output = run(["ctest", "--test-dir", BUILD, "-j", "2", "--stop-on-failure",
                          "--timeout", "20", *selection], 900)
    if status == 0:
        return None
    names = re.findall(r"Test +#\d+: (\S+) \.*\**(?:Failed|Subprocess|Timeout|Not Run|Exception)",
                       output)
    return names[0] if names else "(the tests did not end)"


def stages_of(fault):
    stages = PORT if fault.path.startswith("Platform/") else SCRIPTED
    for targets, selection in stages:
        stem = os.path.splitext(os.path.basename(fault.path))[0]
        yield targets, ["-R", f"^(Unit|Port)[.].*{stem}"]
        yield targets, selection
    likely = "|".join(suites for part, suites in LIKELY.items() if part in fault.path)
    targets, selection = ACCEPTANCE
    if likely:
        yield targets, ["-R", f"^Acceptance[.].*({likely})", *selection[2:]]
    yield ACCEPTANCE


def try_fault(fault):
    """What became of it: 'noticed by TEST', 'not noticed' or 'not built'."""
    path = os.path.join(TREE, fault.path)
    original = read(path)
    write(path, fault.applied_to(original))
    try:
        for targets, selection in stages_of(fault):
            built, output = build(targets)
            if not built:
                print(output[-2000:])
                return "not built"
            test = failing_test(selection)
            if test:
                return f"noticed by {test}"
        return "not noticed"
    finally:
        write(path, original)


def verdict_of(fault, outcome):
    """A complaint about the outcome; empty when it is as it should be."""
    if outcome == "not built":
        return "cannot be built"
    if outcome == "not noticed":
        return "" if fault.kept else "is noticed by no test"
    return "is noticed after all" if fault.kept else ""


def key_of(fault):
    parts = [fault.path, fault.anchor, fault.original, fault.mutated,
             read(os.path.join(TREE, fault.path))]
    return hashlib.sha1("\0".join(parts).encode()).hexdigest()


def remembered():
    if not os.path.isfile(OUTCOMES):
        return {}
    return json.loads(read(OUTCOMES))


def baseline():
    """Without a fault, everything is to pass; this also builds it all once."""
    targets = sorted({target for stage in [*SCRIPTED, *PORT, ACCEPTANCE] for target in stage[0]})
    built, output = build(targets)
    if not built:
        sys.exit(output[-4000:] + "\nThe tests cannot be built.")
    for _, selection in [*SCRIPTED, *PORT, ACCEPTANCE]:
        test = failing_test(selection)
        if test:
            sys.exit(f"Without any fault, {test} fails.")


def try_all(faults, outcomes):
    complaints = []
    baseline_known = False
    for count, fault in enumerate(faults, 1):
        key = key_of(fault)
        began = time.monotonic()
        if key not in outcomes or verdict_of(fault, outcomes[key]):
            if not baseline_known:
                print("Building, and running the tests without a fault", flush=True)
                baseline()
                baseline_known = True
                began = time.monotonic()
            outcomes[key] = try_fault(fault)
            write(OUTCOMES, json.dumps(outcomes, indent=1, sort_keys=True))
        complaint = verdict_of(fault, outcomes[key])
        if complaint:
            complaints.append(f"Tests/Mutation/faults:{fault.line}: {fault.path} {complaint}")
        seconds = time.monotonic() - began
        print(f"{count}/{len(faults)} {outcomes[key]} ({seconds:.0f} s)  {fault.title()}",
              flush=True)
    return complaints


def work(arguments):
    texts = [argument for argument in arguments if not argument.startswith("--")]
    faults = read_faults()
    if not check(faults):
        sys.exit(1)
    chosen = [fault for fault in faults
              if not texts or any(text in fault.path or text in fault.original for text in texts)]
    if "--again" in arguments and os.path.exists(OUTCOMES):
        os.remove(OUTCOMES)
    copy_tree()
    configure()
    outcomes = remembered()
    complaints = try_all(chosen, outcomes)
    noticed = sum(outcomes[key_of(fault)].startswith("noticed") for fault in chosen)
    kept = sum(1 for fault in chosen if fault.kept)
    print(f"\n{len(chosen)} faults: {noticed} noticed, {len(chosen) - noticed} not "
          f"({kept} of these with a reason)")
    if complaints:
        print("\n".join(complaints))
        sys.exit(1)


def furnish():
    """Inside namespaces of its own: nothing can be written to but the copy, and what is gone after."""
    def mount(*arguments):
        subprocess.run(["mount", *arguments], check=True)
    mount("--make-rprivate", "/")
    mount("--bind", WORK, WORK)
    mount("-o", "remount,bind,ro", "/")
    tree = os.open(ROOT, os.O_PATH)
    # GoogleTest keeps what a dying process says in /tmp, whatever TMPDIR may be.
    for folder in ["/run", "/dev/shm", "/tmp"]:
        mount("-t", "tmpfs", "tmpfs", folder)
    if not os.path.isdir(ROOT):  # it was in one of these
        os.makedirs(ROOT)
        mount("--no-canonicalize", "--rbind", f"/proc/{os.getpid()}/fd/{tree}", ROOT)
    os.close(tree)
    os.chdir(ROOT)
    os.environ.pop("TMPDIR", None)


def main():
    arguments = sys.argv[1:]
    if "--help" in arguments:
        print(__doc__)
    elif "--check" in arguments:
        sys.exit(0 if check(read_faults()) else 1)
    elif INSIDE in os.environ:
        furnish()
        work(arguments)
    else:
        if os.geteuid() != 0:
            sys.exit("This takes root: the faults are to do no harm to the machine.")
        os.makedirs(TREE, exist_ok=True)
        os.environ[INSIDE] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--ipc", "--pid", "--fork", "--mount-proc",
                              "--kill-child", sys.executable, "-B", os.path.realpath(__file__),
                              *arguments])


if __name__ == "__main__":
    main()
