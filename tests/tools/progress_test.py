"""The progress of tools/mutate: a line at a terminal, nothing in a pipe."""
import os
import pathlib
import pty
import subprocess
import sys
import unittest

TOOLS = pathlib.Path(__file__).resolve().parent.parent.parent / "tools"
WORK = """
import sys
sys.dont_write_bytecode = True
sys.path.insert(0, sys.argv[1])
from mutation.progress import Progress
with Progress(2, "mutants") as progress:
    progress.say("a survivor")
    progress.step()
    progress.step()
"""


def run(error):
    return subprocess.run([sys.executable, "-c", WORK, str(TOOLS)], stdout=subprocess.PIPE,
                          stderr=error, check=True).stdout.decode()


class ProgressTest(unittest.TestCase):
    def test_terminal(self):
        ours, theirs = pty.openpty()
        self.assertEqual(run(theirs), "a survivor\n")
        os.close(theirs)
        shown = os.read(ours, 4096).decode()
        os.close(ours)
        lines = shown.split("\r\033[K")
        self.assertEqual(lines[1], "0 of 2 mutants, 0 survived")
        self.assertEqual(lines[-2], "2 of 2 mutants, 1 survived")
        self.assertEqual(lines[-1], "")

    def test_pipe(self):
        reading, writing = os.pipe()
        self.assertEqual(run(writing), "a survivor\n")
        os.close(writing)
        self.assertEqual(os.read(reading, 4096), b"")
        os.close(reading)


if __name__ == "__main__":
    unittest.main()
