"""What tools/mutate shows and keeps of a long run."""
import collections
import os
import pathlib
import pty
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parent.parent.parent / "tools"
sys.dont_write_bytecode = True
sys.path.insert(0, str(TOOLS))
from mutation.kept import Kept  # pylint: disable=wrong-import-position

WORK = """
import sys
sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv[1])
from mutation.progress import Progress, busy
with busy("building"):
    pass
with Progress(2) as progress:
    progress.survivor("a survivor")
    progress.step()
    progress.step()
"""


def run(error):
    return subprocess.run([sys.executable, "-c", WORK, str(TOOLS)], stdout=subprocess.PIPE,
                          stderr=error, check=True).stdout.decode()


def all_of(terminal):
    """What a pseudo-terminal got, whose other end is closed."""
    text = b""
    while True:
        try:
            text += os.read(terminal, 4096)
        except OSError:
            return text.decode()


class ProgressTest(unittest.TestCase):
    """One line, written over, at a terminal; nothing in a pipe. Survivors go to the output."""

    def test_terminal(self):
        ours, theirs = pty.openpty()
        self.assertEqual(run(theirs), "a survivor\n")
        os.close(theirs)
        self.assertEqual(all_of(ours).split("\r\033[K"), [
            "", "building", "", "0 of 2 mutants, 0 survived", "", "0 of 2 mutants, 1 survived",
            "1 of 2 mutants, 1 survived", "2 of 2 mutants, 1 survived", ""])
        os.close(ours)

    def test_pipe(self):
        reading, writing = os.pipe()
        self.assertEqual(run(writing), "a survivor\n")
        os.close(writing)
        self.assertEqual(os.read(reading, 4096), b"")
        os.close(reading)


Mutant = collections.namedtuple("Mutant", "file text")


class KeptTest(unittest.TestCase):
    """A run that goes on from its file tries what is new there and what survived unexplained."""

    MUTANTS = [Mutant("a.cpp", "1"), Mutant("a.cpp", "2"), Mutant("b.cpp", "1")]

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.tried = []

    def kept(self, result, explained=()):
        def trial(mutant):
            self.tried.append(mutant)
            return result
        return Kept(pathlib.Path(self.folder.name) / "kept", trial, explained.__contains__)

    def test_settled(self):
        first = self.kept(("killed", "e2e"))
        self.assertEqual([first(m) for m in self.MUTANTS[:2]], [("killed", "e2e")] * 2)
        again = self.kept(("survived", None))
        self.assertEqual([again(m) for m in self.MUTANTS],
                         [("killed", "e2e"), ("killed", "e2e"), ("survived", None)])
        self.assertEqual(self.tried, self.MUTANTS)

    def test_survivors(self):
        self.kept(("survived", None))(self.MUTANTS[0])
        self.assertEqual(self.kept(("killed", "e2e"))(self.MUTANTS[0]), ("killed", "e2e"))
        self.assertEqual(self.kept(("survived", None))(self.MUTANTS[0]), ("killed", "e2e"))
        self.assertEqual(self.tried, [self.MUTANTS[0]] * 2)

    def test_explained(self):
        first = self.MUTANTS[0]
        kept = self.kept(("survived", None), [first])
        self.assertEqual([kept(first), kept(first)], [("survived", None)] * 2)
        self.assertEqual(self.tried, [first])


if __name__ == "__main__":
    unittest.main()
