"""Where mutants are built and tried, on copies of the sources and of the suite."""

import fcntl
import hashlib
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import threading
import time
from dataclasses import dataclass, field

PROGRAMS = ("log", "util", "comps", "config", "mibtree", "faults")

GIGABYTE = 1 << 30


@dataclass
class Program:
    """One program of the suite: as ctest starts it, and as it is linked."""

    name: str
    path: str
    command: list
    environment: dict
    directory: str
    link: list = field(default_factory=list)
    members: set = field(default_factory=set)  # objects of the library in it
    seconds: float = 0  # how long it takes with nothing broken


@dataclass
class Outcome:
    """How a run of a program, or a whole trial, ended: a word, and what noticed the mutant."""

    word: str
    by: str = ""


class Suite:
    """The test programs, built in one way, and what a mutant does to them."""

    def __init__(self, name, root, source, build, options):
        self.name = name
        self.root = root
        self.source = source
        self.build = build
        self.options = options
        self.sanitized = any("SANITIZE" in o for o in options)
        self.originals = {}
        self.compiling_original = threading.Lock()

    # --- the programs ---

    def configure(self):
        step(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
              "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
              "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", *self.options])
        self.flags = {}
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            if "/qmibtree_objects.dir/" in entry["command"]:
                words = shlex.split(entry["command"])
                self.compiler = words[0]
                source = os.path.relpath(entry["file"], self.source)
                self.flags[source] = [w for w in words if w.startswith(("-D", "-I", "-f", "-std="))]

    def make(self, jobs):
        """Builds the programs and finds out how long each takes."""
        targets = [f"{name}_test" for name in self.tests()]
        step(["cmake", "--build", self.build, f"-j{jobs}", "--target", "flashsim", *targets])
        self.compile_headers()
        self.programs = [self.program(test) for test in self.tests().values()]
        for program in self.programs:
            self.read_link_command(program)
            self.time(program)
        self.try_nothing()

    def try_nothing(self):
        """The whole library, not broken, must survive what mutants are put through."""
        folder = self.build / "unbroken"
        outcome = self.attempt(self.compile(folder, sorted(self.flags)), "", folder)
        if outcome.word != "survived":
            raise SystemExit(f"{self.name}: {outcome.word} with nothing broken: {outcome.by}")

    def tests(self):
        """What ctest knows of each program; its command only once the program is built."""
        known = json.loads(step(["ctest", "--test-dir", self.build, "--show-only=json-v1"]))
        return {t["name"]: t for t in known["tests"] if t["name"] in PROGRAMS}

    def program(self, test):
        properties = {p["name"]: p["value"] for p in test["properties"]}
        path = next(a for a in test["command"] if a.endswith(f"/{test['name']}_test"))
        environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", ()))
        return Program(test["name"], path, test["command"], environment,
                       properties["WORKING_DIRECTORY"])

    def compile_headers(self):
        """The platform's headers, once for all mutants: they are most of what is compiled."""
        self.headers = self.build / "headers.hh"
        texts = [(self.source / source).read_text() for source in self.flags]
        lines = {li for text in texts for li in text.splitlines() if li.startswith("#include <")}
        self.headers.write_text("\n".join(sorted(lines)) + "\n")
        step([self.compiler, *next(iter(self.flags.values())), "-O0", "-w", "-x", "c++-header",
              self.headers, "-o", f"{self.headers}.gch"])

    def read_link_command(self, program):
        target = os.path.basename(program.path)
        commands = step(["ninja", "-C", self.build, "-t", "commands", target])
        words = shlex.split(commands.splitlines()[-1])
        at = words.index("-o")
        # : && g++ ARGUMENTS -o PROGRAM LIBRARIES && :
        program.link = words[2:at] + ["-fuse-ld=gold"] + words[at + 2:-2]
        trace = step(program.link + ["-Wl,--trace", "-o", self.build / "traced"], cwd=self.build)
        program.members = set(re.findall(r"libqmibtree\.a\((\w+\.cc\.o)\)", trace))

    def time(self, program):
        begin = time.monotonic()
        outcome = self.run(program, program.path, 600)
        if outcome.word != "passed":
            raise SystemExit(f"{self.name}: fails before anything is broken: {outcome.by}")
        program.seconds = time.monotonic() - begin

    # --- a mutant ---

    def compile(self, folder, sources, optimise="-O0"):
        """The objects of the sources, as changed below `folder`; none when the compiler refuses."""
        objects = []
        for source in sources:
            changed = folder / source
            name = folder / "objects" / f"{os.path.basename(source)}.o"
            name.parent.mkdir(parents=True, exist_ok=True)
            command = [self.compiler, f"-I{folder}", *self.flags[source], optimise, "-w",
                       "-include", self.headers, "-o", name, "-c",
                       changed if changed.exists() else self.source / source]
            if subprocess.run(command, stderr=subprocess.DEVNULL).returncode != 0:
                return None
            objects.append(name)
        return objects

    def original(self, sources, optimise="-O0"):
        """The print of the objects of the unchanged sources."""
        key = tuple(sources), optimise
        with self.compiling_original:
            if key not in self.originals:
                objects = self.compile(self.build / "original", sources, optimise)
                self.originals[key] = fingerprint(objects)
            return self.originals[key]

    def attempt(self, objects, file, folder):
        """Tries the programs with changed objects, that of the file's own folder first."""
        names = {o.name for o in objects}
        own = file.split("/")[0]
        for program in sorted(self.programs, key=lambda p: (p.name != own, p.seconds)):
            if not names & program.members:
                continue
            binary = folder / os.path.basename(program.path)
            at = next(i for i, w in enumerate(program.link) if w.endswith(".o"))
            step(program.link[:at] + objects + program.link[at:] + ["-o", binary], cwd=self.build)
            outcome = self.run(program, binary, int(3 * program.seconds) + 10)
            if outcome.word != "passed":
                return outcome
        return Outcome("survived")

    def run(self, program, binary, seconds):
        """Runs `binary` in place of the program.

        A broken library may kill any process, write to any file and never end. So it sees nothing
        but its own processes, and can write nothing but a /tmp and a flash of its own.
        """
        cage = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                "--tmpfs", "/tmp", "--ro-bind", self.root, self.root,
                "--ro-bind", binary, program.path, "--chdir", program.directory,
                "--unshare-user", "--unshare-pid", "--unshare-ipc",
                "--new-session", "--die-with-parent"]
        if "--dir" in program.command:  # the flash
            flash = program.command[program.command.index("--dir") + 1]
            os.makedirs(flash, exist_ok=True)
            cage += ["--tmpfs", flash]
        limit = ["prlimit", f"--cpu={seconds}", f"--fsize={8 * GIGABYTE}", "--core=0"]
        if not self.sanitized:  # which takes terabytes of addresses
            limit.append(f"--as={8 * GIGABYTE}")
        environment = os.environ | program.environment
        environment |= {"GTEST_BRIEF": "1", "GTEST_FAIL_FAST": "1"}
        try:
            done = subprocess.run(limit + cage + program.command, env=environment, timeout=seconds,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT)
        except subprocess.TimeoutExpired:
            return Outcome("timeout", program.name)
        if done.returncode == 0:
            return Outcome("passed")
        if done.returncode == 128 + signal.SIGKILL:  # its time on the processor is up
            return Outcome("timeout", program.name)
        failed = re.search(rb"\[  FAILED  \] (\S+)", done.stdout)
        test = failed[1].decode(errors="replace") if failed else "crash"
        return Outcome("failed", f"{program.name}: {test}")


class Workshop:
    def __init__(self, root):
        self.root = root
        self.home = root / "build/mutate"
        self.source = self.home / "source"
        self.plain = self.suite("plain")
        self.sanitized = self.suite("sanitized", "-DQMIBTREE_SANITIZE=address,undefined")

    def suite(self, name, *options):
        return Suite(name, self.root, self.source, self.home / name, options)

    def make(self, jobs):
        """A copy of the sources, with their times, so that only what changed is built again."""
        self.home.mkdir(parents=True, exist_ok=True)
        self.keep_others_out()
        shutil.rmtree(self.source, ignore_errors=True)
        shutil.copytree(self.root, self.source, symlinks=True, ignore=self.left_out)
        for suite in (self.plain, self.sanitized):
            suite.configure()
            suite.make(jobs)

    def keep_others_out(self):
        self.lock = open(self.home / "lock", "w")  # as long as this process lives
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise SystemExit(f"another run is at work in {self.home}") from None

    def left_out(self, folder, _):
        return ("build", ".git") if folder == str(self.root) else ()

    def try_out(self, mutant, users, folder):
        """What becomes of a mutant, and the print of its objects. `users`: the sources it is in."""
        shutil.rmtree(folder, ignore_errors=True)
        changed = folder / mutant.file
        changed.parent.mkdir(parents=True)
        changed.write_bytes(mutant.apply((self.source / mutant.file).read_bytes()))
        objects = self.plain.compile(folder, users)
        if objects is None:
            return Outcome("refused"), None
        mark = fingerprint(objects)
        if mark == self.plain.original(users):
            return Outcome("same"), mark
        outcome = self.plain.attempt(objects, mutant.file, folder)
        if outcome.word != "survived":
            return outcome, mark
        optimised = fingerprint(self.plain.compile(folder, users, "-O2"))
        if optimised == self.plain.original(users, "-O2"):
            return Outcome("proven"), mark
        outcome = self.sanitized.attempt(self.sanitized.compile(folder, users), mutant.file, folder)
        if outcome.word == "failed":
            outcome.by = f"sanitized {outcome.by}"
        return outcome, mark


def fingerprint(objects):
    return tuple(hashlib.sha256(o.read_bytes()).hexdigest() for o in objects)


def step(command, **options):
    """Runs a command that must succeed; its output."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)
    if done.returncode != 0:
        raise SystemExit(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout
