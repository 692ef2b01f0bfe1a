"""What became of mutants, kept in a file: a long run goes on where it was broken off, and after
new tests only the survivors are tried again."""
import hashlib
import json
import pathlib
import threading


class Kept:
    """Tries mutants by `trial`, except those that the file says are settled."""

    def __init__(self, path, trial):
        self.path, self.trial = pathlib.Path(path), trial
        self.lock = threading.Lock()
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                name, result, judge = json.loads(line)
                self.known[name] = result, judge

    def __call__(self, mutant):
        name = hashlib.sha256(f"{mutant.file}\n{mutant.text}".encode()).hexdigest()
        if self.known.get(name, ("survived", None))[0] == "survived":
            result, judge = self.known[name] = self.trial(mutant)
            with self.lock, self.path.open("a") as file:
                file.write(json.dumps([name, result, judge]) + "\n")
        return self.known[name]
