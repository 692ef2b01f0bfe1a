"""How far long work is: one line at a terminal that is written over, nothing where there
is none or one without codes."""
import contextlib
import os
import sys

ERASE = "\r\033[K"


class Line:
    """The line; empty text takes it away."""

    def __init__(self):
        self.shown = sys.stderr.isatty() and os.environ.get("TERM") != "dumb"

    def show(self, text):
        if self.shown:
            sys.stderr.write(ERASE + text)
            sys.stderr.flush()


@contextlib.contextmanager
def busy(what):
    """`with busy(what):` around work that has no steps to count."""
    line = Line()
    line.show(what)
    try:
        yield
    finally:
        line.show("")


class Progress:
    """`with Progress(total) as progress:`, then progress.step() for each mutant and
    progress.survivor(text) for one that stays on the screen."""

    def __init__(self, total):
        self.total, self.line = total, Line()
        self.done = self.survived = 0

    def __enter__(self):
        self._show()
        return self

    def __exit__(self, *_):
        self.line.show("")

    def step(self):
        self.done += 1
        self._show()

    def survivor(self, text):
        self.survived += 1
        self.line.show("")
        print(text, flush=True)
        self._show()

    def _show(self):
        self.line.show(f"{self.done} of {self.total} mutants, {self.survived} survived")
