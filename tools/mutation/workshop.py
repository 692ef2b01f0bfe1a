"""Where mutants are built and put before the tests: one workshop for each scope."""
import concurrent.futures
import json
import os
import pathlib
import shlex
import signal
import subprocess
import sys
import threading

# The sanitizers' checks end a program where they fail; their runtime library is not needed.
CHECKS = ["-w", "-fPIC", "-fsanitize=undefined,bounds-strict", "-fsanitize-undefined-trap-on-error"]
OPTIMISED = ["-O2", "-w", "-fPIC"]
FORKING = ["tools/mutation/ForkingMain.cpp", "tests/forking/Cases.cpp"]


def run(root, *command):
    done = subprocess.run(command, cwd=root, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}\n{' '.join(map(str, command))} failed")
    return done.stdout


def succeeds(command):
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False).returncode == 0


def finished(command, environment, folder, seconds=None):
    """Status and output; what a broken program leaves running ends with it."""
    process = subprocess.Popen(command, env=environment, cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               errors="replace", start_new_session=True)
    try:
        output, _ = process.communicate(timeout=seconds)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        return -signal.SIGALRM, ""
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


class Workshop:
    """The sources of a folder as objects, of which a mutant replaces those that it changes."""

    def __init__(self, root, folder, checks):
        self.root = root
        self.folder = folder
        self.made = build = root / "build-mutate"
        self.checks = checks
        run(root, "cmake", "-S", ".", "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
            "-DCMAKE_CXX_FLAGS=-O1")
        run(root, "cmake", "--build", build, "-j", "2", "--target", *self.targets())
        self.commands = json.loads((build / "compile_commands.json").read_text())
        self.options = self._options_below(root / folder)
        self.includes = {source: self.included(source, options)
                         for source, options in self.options.items()}
        self.objects = {source: build / (source.replace("/", "_") + ".o")
                        for source in self.options}
        self.optimised = {}
        self.lock = threading.Lock()
        for source, target in self.objects.items():
            if self.outdated(source, target, self.includes[source]):
                if not self.compile(source, target, []):
                    sys.exit(f"{source} does not compile")

    def _options_below(self, folder):
        options = {}
        for entry in self.commands:
            source = pathlib.Path(entry["file"])
            if folder in source.parents:
                options[str(source.relative_to(self.root))] = self._options(entry["command"])
        return options

    @staticmethod
    def _options(command):
        """The compiler itself, never its cache, and what a mutant of the source keeps."""
        words = shlex.split(command)
        if pathlib.Path(words[0]).name == "ccache":
            words = words[1:]
        kept = [words[0]]
        for word, following in zip(words[1:], words[2:] + [""]):
            if word == "-isystem":
                kept += [word, following]
            elif word.startswith(("-I", "-D", "-std", "-f")):
                kept.append(word)
        return kept

    def included(self, source, options):
        made = subprocess.run([*options, "-MM", str(self.root / source)], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        return {os.path.relpath(word, self.root) for word in made.replace("\\\n", " ").split()
                if word.startswith("/")}

    def outdated(self, source, target, includes):
        if not target.exists():
            return True
        made = target.stat().st_mtime
        return any((self.root / file).stat().st_mtime >= made for file in {source, *includes})

    def compile(self, source, target, overlay, flags=None, text=None, options=None):
        path = self.root / source
        if text is not None:
            path = target.with_suffix(".cpp")
            path.write_text(text)
        command = options or self.options[source]
        return succeeds([command[0], *(f"-I{folder}" for folder in overlay), *command[1:],
                         *(flags or self.checks), "-c", str(path), "-o", str(target)])

    def affected(self, file):
        return [file] if file in self.options else [s for s, i in self.includes.items() if file in i]

    def _place(self, folder, mutant):
        """Where the compiler finds a changed header first, and the text of a source. Compiled
        where it stands, a source would find the headers beside it before the changed one."""
        if mutant.file in self.options:
            return [], lambda source: mutant.text
        header = folder / "overlay" / pathlib.Path(mutant.file).relative_to(self.folder)
        header.parent.mkdir(parents=True, exist_ok=True)
        header.write_text(mutant.text)
        return [folder / "overlay"], lambda source: (self.root / source).read_text()

    def build(self, folder, mutant):
        overlay, text = self._place(folder, mutant)
        objects = dict(self.objects)
        for source in self.affected(mutant.file):
            objects[source] = folder / self.objects[source].name
            if not self.compile(source, objects[source], overlay, text=text(source)):
                return False
        return self.link(folder, objects.values())

    def same_code(self, folder, mutant):
        """Whether the optimised objects do not show the change."""
        overlay, text = self._place(folder, mutant)
        for source in self.affected(mutant.file):
            with self.lock:
                if source not in self.optimised:
                    plain = self.made / "plain.o"
                    self.compile(source, plain, [], OPTIMISED, (self.root / source).read_text())
                    self.optimised[source] = self._code(plain)
            target = folder / "plain.o"
            self.compile(source, target, overlay, OPTIMISED, text(source))
            if self._code(target) != self.optimised[source]:
                return False
        return True

    @staticmethod
    def _code(path):
        return subprocess.run(["objdump", "-drs", str(path)], check=True, stdout=subprocess.PIPE,
                              text=True).stdout.split("\n", 3)[-1]

    def targets(self):
        raise NotImplementedError

    def link(self, folder, objects):
        raise NotImplementedError

    def first_failure(self, folder, mutant, first):
        """The judge and the case that notice the mutant in a folder; None: all pass. Cases of
        `first`, pairs of both, are tried before others. mutant None: the code as it is."""
        raise NotImplementedError

    def late_failure(self, folder, first):
        """The same, of the tests that take long."""
        return None

    @staticmethod
    def environment(folder):
        """Of a test: the code of a folder, and a place there for its files."""
        scratch = folder / "scratch"
        scratch.mkdir(exist_ok=True)
        return dict(os.environ, LD_LIBRARY_PATH=str(folder), TMPDIR=str(scratch))

    def cases(self, program, unit, folder, first):
        """The first case of a forking program that fails."""
        wanted = [case for judge, case in first if judge == unit]
        status, output = finished([program, *wanted], self.environment(folder), folder)
        return (unit, output.strip()) if status != 0 else None


class ModuleWorkshop(Workshop):
    """The unit tests of the module, linked against it as a shared library that is exchanged."""

    UNITS = ["CiIf_Status", "CiIf_capmt", "CiIf_fpga"]

    def __init__(self, root):
        super().__init__(root, "ci", ["-O0", *CHECKS])
        self.link(self.made, self.objects.values())
        for unit in self.UNITS:
            self._program(unit)

    def targets(self):
        return [f"test_{unit}" for unit in self.UNITS]

    def _program(self, unit):
        objects = sorted((self.made / "tests" / "CMakeFiles" / f"test_{unit}.dir").rglob("*.o"))
        run(self.root, "c++", "-O1", "-std=c++17", "-o", self.made / f"cases_{unit}", *FORKING,
            *objects, self.made / "tests" / "libtest_platform.a", f"-L{self.made}", "-lmodule",
            self.made / "tests" / "libtest_platform.a", "-lgtest", "-lpthread")

    def link(self, folder, objects):
        """What the module prints and allocates goes to the test platform."""
        whole = folder / "module.o"
        return (succeeds(["ld", "-r", "-o", str(whole), *map(str, objects)]) and
                succeeds(["objcopy", "--redefine-sym", "printf=platformPrintf", "--redefine-sym",
                          "malloc=platformMalloc", str(whole)]) and
                succeeds(["c++", "-shared", "-o", str(folder / "libmodule.so"), str(whole)]))

    def first_failure(self, folder, mutant, first):
        if mutant is not None and not first:
            first = [(mutant.file.split("/")[1], "")]
        for unit in sorted(self.UNITS, key=lambda unit: unit not in {case[0] for case in first}):
            failure = self.cases(self.made / f"cases_{unit}", unit, folder, first)
            if failure:
                return failure
        return None


class ChassisWorkshop(Workshop):
    """The tests of the chassis, linked against it and the module as a shared library that is
    exchanged. The program's main function is in there too, so that one ci-chassis is enough."""

    PROGRAM_TESTS = ["e2e", "console"]
    FAULTS = "faults"
    FAULT_SECONDS = 120

    def __init__(self, root):
        self.units = sorted(f"chassis/{p.name}" for p in (root / "tests" / "chassis").iterdir()
                            if p.is_dir())
        super().__init__(root, "chassis", ["-O1", "-D_GLIBCXX_ASSERTIONS", *CHECKS])
        self.test_options = self._options_below(root / "tests")
        self.test_includes = {}
        self.libraries = self._libraries()
        self.module = self._module()
        if not self.link(self.made, self.objects.values()):
            sys.exit("the chassis does not link")
        self._program()
        for unit in [*self.units, *self.PROGRAM_TESTS]:
            self._test_program(unit)

    def targets(self):
        known = run(self.root, "ninja", "-C", self.made, "-t", "targets", "all").splitlines()
        samples = [line.split(":")[0] for line in known if line.startswith("sample_")]
        tests = [f"test_{unit.replace('/', '_')}" for unit in [*self.units, *self.PROGRAM_TESTS]]
        return [*tests, "ts-join", *samples]

    def _options_below(self, folder):
        options = super()._options_below(folder)
        for source in options:
            if source.endswith("chassis/app/main.cpp"):
                options[source].append("-Dmain=chassisMain")
        return options

    def _libraries(self):
        """What the program is linked with beside the project's own objects."""
        words = run(self.root, "ninja", "-C", self.made, "-t", "commands", "ci-chassis").split()
        return list(dict.fromkeys(word for word in words if word.startswith("-l") or
                                  (word.startswith("/") and word.endswith((".so", ".a")))))

    def _module(self):
        """As the chassis uses it: what the module prints goes to its console."""
        whole = self.made / "module_in_chassis.o"
        parts = []
        for source, options in Workshop._options_below(self, self.root / "ci").items():
            parts.append(self.made / (source.replace("/", "_") + ".pic.o"))
            if self.outdated(source, parts[-1], self.included(source, options)):
                if not self.compile(source, parts[-1], [], ["-O1", "-w", "-fPIC"], options=options):
                    sys.exit(f"{source} does not compile")
        run(self.root, "ld", "-r", "-o", whole, *parts)
        run(self.root, "objcopy", "--redefine-sym", "printf=modulePrintf", whole)
        return whole

    def _program(self):
        main = self.made / "program.cpp"
        main.write_text("int chassisMain(int count, char **words);\n"
                        "int main(int count, char **words) { return chassisMain(count, words); }\n")
        program = self.made / "ci-chassis"
        program.unlink(missing_ok=True)
        run(self.root, "c++", "-O1", "-o", program, main, f"-L{self.made}", "-lchassis",
            "-Wl,--allow-shlib-undefined")

    def program(self, unit):
        return self.made / f"cases_{unit.replace('/', '_')}"

    def _test_objects(self, unit):
        """{source: object}"""
        folder = f"tests/{unit}/"
        entries = {os.path.relpath(e["file"], self.root): e for e in self.commands}
        return {source: pathlib.Path(entry["directory"]) / shlex.split(entry["command"])[-3]
                for source, entry in entries.items()
                if source.startswith(folder) and "/" not in source[len(folder):]}

    def _test_program(self, unit):
        program = self.program(unit)
        if not self._linked(self._test_objects(unit).values(), program, self.made):
            sys.exit(f"{program} does not link")

    def _forking(self, source):
        made = self.made / f"{source.stem}.o"
        if not made.exists() or made.stat().st_mtime < source.stat().st_mtime:
            run(self.root, "c++", "-O1", "-std=c++17", "-c", source, "-o", made)
        return made

    def _linked(self, objects, program, folder):
        forking = [self._forking(self.root / source) for source in FORKING]
        return succeeds(["c++", "-o", program, *forking, *objects, f"-L{folder}", "-lchassis",
                         "-Wl,--allow-shlib-undefined", "-lgtest", "-lpthread", *self.libraries])

    def link(self, folder, objects):
        return succeeds(["c++", "-shared", "-Wl,-Bsymbolic-functions", "-o",
                         str(folder / "libchassis.so"), *map(str, objects), str(self.module), *self.libraries])

    def first_failure(self, folder, mutant, first):
        own = str(pathlib.Path(mutant.file).parent) if mutant is not None else ""
        lately = {judge for judge, _ in first}
        units = [] if mutant is not None and mutant.file == "chassis/app/main.cpp" else self.units
        for unit in sorted(units, key=lambda unit: (unit != own, unit not in lately)):
            failure = self._unit_failure(folder, mutant, unit, first)
            if failure:
                return failure
        return None

    def _unit_failure(self, folder, mutant, unit, first):
        program = self.program(unit)
        if mutant is not None and mutant.file not in self.options:
            program, broken = self._rebuilt(folder, mutant, unit)
            if broken:
                return unit, broken
        return self.cases(program, unit, folder, first)

    def _rebuilt(self, folder, mutant, unit):
        """The test program for a mutant of a header that its sources include."""
        objects = self._test_objects(unit)
        changed = [source for source in objects if mutant.file in self._test_included(source)]
        if not changed:
            return self.program(unit), None
        for source in changed:
            target = folder / (source.replace("/", "_") + ".o")
            if not self.compile(source, target, [folder / "overlay"], ["-O1", "-w"],
                                options=self.test_options[source]):
                return None, f"{source} does not compile"
            objects[source] = target
        program = folder / self.program(unit).name
        if not self._linked(objects.values(), program, folder):
            return None, f"{program.name} does not link"
        return program, None

    def _test_included(self, source):
        with self.lock:
            if source not in self.test_includes:
                self.test_includes[source] = self.included(source, self.test_options[source])
        return self.test_includes[source]

    def late_failure(self, folder, first):
        failure = self._fault_failure(folder, [case for judge, case in first
                                               if judge == self.FAULTS])
        if failure is None:
            with concurrent.futures.ThreadPoolExecutor() as pool:
                failure = next(filter(None, pool.map(
                    lambda unit: self._live_failure(folder, unit, first), self.PROGRAM_TESTS)), None)
        return failure

    def _live_failure(self, folder, unit, first):
        """What plays in real time counts when it fails twice: the machine may have been busy."""
        program = self.program(unit)
        for _ in range(3):
            failure = self.cases(program, unit, folder, first)
            if failure is None:
                return None
            again, _ = finished([program, f"--gtest_filter={failure[1]}"],
                                self.environment(folder), folder)
            if again != 0:
                return failure
        return None

    def _fault_failure(self, folder, first):
        """The first script of samples/faults that does not play as it is recorded."""
        scripts = sorted(p.stem for p in (self.root / "samples" / "faults").glob("*.expected"))
        environment = dict(self.environment(folder), BUILD=str(self.made))
        play = ["bash", "-c", 'ulimit -t 60 -c 0; exec "$@"', "bash",
                str(self.root / "tools" / "expect"), "--check"]
        for script in sorted(scripts, key=lambda script: script not in first):
            status, _ = finished([*play, script], environment, folder, self.FAULT_SECONDS)
            if status != 0:
                return self.FAULTS, script
        return None


WORKSHOPS = {"ci": ModuleWorkshop, "chassis": ChassisWorkshop}
