"""A network of a test's own, and the programs in it.

BUILD: the build, with the program and its sample streams.
"""
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ["BUILD"]).resolve()
SCRAMBLED = BUILD / "samples/headend.ts"
CLEAR = ROOT / "samples/headend-clear.ts"
CLOCK_PID = 0x1001
BOUND = 60  # seconds; only what has failed takes so long

DONE, UNEXPECTED, BAD_INPUT, LOST = range(4)
TERMINATED = 128 + signal.SIGTERM

INTERFACE = "live0"  # beside lo, which takes no IPv6 groups
NETWORK = [
    "ip link set lo up",
    "ip link set lo multicast on",
    "ip route add 224.0.0.0/4 dev lo",
    f"ip link add {INTERFACE} type veth peer name live1",
    f"ip address add fd00:5::1/64 dev {INTERFACE} nodad",
    f"ip link set {INTERFACE} up",
    "ip link set live1 up",
    f"ip -6 route add multicast ff15::/16 dev {INTERFACE} table local",
]
OWN = "CI_LIVE_NETWORK"


def enter_own_network():
    """Nobody else is in it, and nothing leaves it."""
    if OWN not in os.environ:
        os.environ[OWN] = "1"
        unshare = ["unshare", "--map-root-user", "--net"]
        tried = subprocess.run([*unshare, "true"], capture_output=True, text=True, check=False)
        if tried.returncode != 0:
            sys.exit("A network of the test's own cannot be made: it takes root, or user namespaces"
                     f" for everybody. {tried.stderr.strip()}")
        os.execvp(unshare[0], [*unshare, sys.executable, *sys.argv])
    for line in NETWORK:
        subprocess.run(line.split(), check=True)


class Ports:
    """Each only once, and none from which the kernel takes those of senders. RTP has two."""
    last = 5000

    @classmethod
    def next(cls):
        cls.last += 2
        return cls.last


def until(condition, what, explain=lambda: ""):
    """What the condition gives, once that is something."""
    end = time.monotonic() + BOUND
    while not (found := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"{explain()}\nnot within {BOUND} s: {what}")
        time.sleep(0.02)
    return found


def sockets(port):
    """How many bytes wait at each that has this port."""
    rows = [line.split() for table in ("udp", "udp6")
            for line in pathlib.Path(f"/proc/self/net/{table}").read_text().splitlines()[1:]]
    return [int(row[4].split(":")[1], 16) for row in rows if row[1].endswith(f":{port:04X}")]


class Case(unittest.TestCase):
    """A folder, and programs that end with the test, whatever becomes of it."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ci-chassis-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def start(self, *words, name, output=None):
        """Its standard error goes to NAME.err, standard output to OUTPUT or NAME.out."""
        with open(self.folder / (output or f"{name}.out"), "wb") as out, \
                open(self.folder / f"{name}.err", "wb") as err:
            program = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL,
                                       stdout=out, stderr=err, cwd=self.folder)
        self.addCleanup(end, program)
        return program

    def multicat(self, name, destination, *options):
        """It sends the sample; the times of a file it takes from another beside it."""
        file = self.folder / f"{name}.ts"
        shutil.copy(SCRAMBLED, file)
        subprocess.run(["ingests", "-p", str(CLOCK_PID), file], check=True, capture_output=True)
        return self.start("multicat", *options, file, destination, name=name)

    def said(self, name):
        return (self.folder / f"{name}.err").read_text(errors="replace")

    def chassis(self, script, *arguments, name="chassis"):
        return Chassis(self, script, arguments, name)

    def refused(self, script, *arguments):
        """What is said of bad input: one line, and nothing is run."""
        (self.folder / "script").write_text(script)
        done = subprocess.run([BUILD / "ci-chassis", "--script", "script", *arguments],
                              cwd=self.folder, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=BOUND, check=False)
        self.assertEqual(done.returncode, BAD_INPUT, (script, arguments, done))
        self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
        self.assertTrue(done.stderr.startswith("ci-chassis: "), done.stderr)
        return done.stderr


def events_of(file):
    """As far as they are written."""
    text = file.read_text() if file.exists() else ""
    return [json.loads(line) for line in text[:text.rfind("\n") + 1].splitlines()]


def end(program):
    if program.poll() is None:
        program.terminate()
        try:
            program.wait(10)
        except subprocess.TimeoutExpired:
            program.kill()
    return program.wait()


class Chassis:
    """The program at the machine's clock."""

    def __init__(self, case, script, arguments, name):
        self.case, self.name = case, name
        self.events_file = case.folder / f"{name}.events"
        self.status_file = case.folder / f"{name}.status"
        (case.folder / f"{name}.script").write_text(script)
        self.program = case.start(
            BUILD / "ci-chassis", "--script", f"{name}.script", "--events", self.events_file,
            "--status-json", self.status_file, *arguments, name=name)

    def events(self, kind=None, slot=None):
        return [event for event in events_of(self.events_file)
                if kind in (None, event["kind"]) and slot in (None, event.get("slot"))]

    def status(self):
        return json.loads(self.status_file.read_text())

    def until(self, condition, what):
        def look():
            over = self.program.poll() is not None
            return condition() or (over and self.case.fail(
                f"the chassis has ended with {self.program.returncode} before: {what}\n"
                + self.story()))
        return until(look, what, self.story)

    def until_told(self, kind, slot):
        return self.until(lambda: self.events(kind, slot), f"{kind} of slot {slot}")

    def is_silent(self, slot):
        presence = ("stream_begun", "stream_silent", "stream_back")
        told = [event["kind"] for event in self.events(slot=slot) if event["kind"] in presence]
        return told[-1:] == ["stream_silent"]

    def is_silent_again(self, slot):
        return self.is_silent(slot) and bool(self.events("stream_begun", slot))

    def story(self):
        return (self.case.said(self.name)
                + (self.case.folder / f"{self.name}.out").read_text(errors="replace"))

    def end(self):
        """The exit status, and standard error."""
        status = end(self.program)
        return (status if status >= 0 else 128 - status), self.case.said(self.name)

    def wait(self):
        """As it ends by itself."""
        until(lambda: self.program.poll() is not None, "the end of the chassis", self.story)
        return self.program.returncode, self.case.said(self.name)


def main():
    enter_own_network()
    unittest.main(verbosity=2)
