"""How far long work is: one line at a terminal that is written over, nothing in a pipe."""
import sys

ERASE = "\r\033[K"


class Progress:
    """`with Progress(total, "mutants") as progress:`, then progress.step() for each and
    progress.say(line) for what is to stay."""

    def __init__(self, total, what, stream=None):
        self.total, self.what = total, what
        self.stream = stream or sys.stderr
        self.shown = self.stream.isatty()
        self.done = self.told = 0

    def __enter__(self):
        self._show()
        return self

    def __exit__(self, *_):
        self._write(ERASE)

    def step(self):
        self.done += 1
        self._show()

    def say(self, line):
        self.told += 1
        self._write(ERASE)
        print(line, flush=True)
        self._show()

    def _show(self):
        self._write(f"{ERASE}{self.done} of {self.total} {self.what}, {self.told} survived")

    def _write(self, text):
        if self.shown:
            self.stream.write(text)
            self.stream.flush()
