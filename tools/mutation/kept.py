"""What became of mutants, kept in a file: a long run goes on where it was broken off, and after
new tests only the survivors are tried again that no list explains."""
import hashlib
import json
import pathlib
import threading


class Kept:
    """Tries mutants by `trial`, except those that the file has, unless they survived and are not
    `explained`."""

    def __init__(self, path, trial, explained):
        self.path, self.trial, self.explained = pathlib.Path(path), trial, explained
        self.lock = threading.Lock()
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                name, result, judge = json.loads(line)
                self.known[name] = result, judge

    def __call__(self, mutant):
        name = hashlib.sha256(f"{mutant.file}\n{mutant.text}".encode()).hexdigest()
        if name not in self.known or (self.known[name][0] == "survived" and
                                      not self.explained(mutant)):
            result, judge = self.known[name] = self.trial(mutant)
            with self.lock, self.path.open("a") as file:
                file.write(json.dumps([name, result, judge]) + "\n")
        return self.known[name]
