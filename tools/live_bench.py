"""One live run of the whole program between a sender and a receiver of its own, for
tools/bench-live: starts the three, samples the program, adds up what went where."""
import contextlib
import json
import os
import pathlib
import re
import socket
import subprocess
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PACKETS_PER_DATAGRAM = 7
CA_SYSTEM = "0x0500"
PROGRAMS = ((101, 1), (102, 1), (103, 2), (104, 2))  # and the CAMs that have them
DRAIN_S = 5  # the sender's tail, the delay of the outputs, and how far apart all begin
READY_S = 60  # bounds what is waited for
GROWTH_MB = 16  # while nothing is lost
QUEUES_MB = 160  # that and what the queues of six cards hold when they are full


class Failed(Exception):
    """A process did not do what it is there for."""


class Process:
    """A child with what it prints in files; it ends with its owner."""

    def __init__(self, folder, name, command, cpus, **more):
        self.name = name
        self.path = folder / (name + ".out")
        out = open(self.path, "w")
        with out:
            self.child = subprocess.Popen(
                [str(each) for each in command], stdout=out, stderr=subprocess.STDOUT,
                preexec_fn=(lambda: os.sched_setaffinity(0, cpus)) if cpus else None, **more)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.child.poll() is None:
            self.child.kill()
        self.child.wait()

    def text(self):
        return self.path.read_text()

    def lines(self):
        return [json.loads(line) for line in self.text().splitlines(True) if line.endswith("\n")]

    def finish(self, seconds):
        if self.child.wait(timeout=seconds) != 0:
            raise Failed("%s ended with status %d:\n%s" % (self.name, self.child.returncode,
                                                           self.text()[-2000:]))

    def running(self):
        if self.child.poll() is not None:
            raise Failed("%s ended too soon:\n%s" % (self.name, self.text()[-2000:]))

    def cpu_s(self):
        fields = pathlib.Path("/proc/%d/stat" % self.child.pid).read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory_mb(self):
        status = pathlib.Path("/proc/%d/status" % self.child.pid).read_text()
        return int(re.search(r"VmRSS:\s+(\d+)", status).group(1)) / 1024


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
                   for _ in range(count)]
        for each in sockets:
            each.bind(("127.0.0.1", 0))
        return [each.getsockname()[1] for each in sockets]


def kernel_drops():
    """How many datagrams the kernel has dropped of each local port that is bound."""
    rows = [row.split() for row in pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]]
    return {int(row[1].rpartition(":")[2], 16): int(row[-1]) for row in rows}


def await_ports(ports, *processes):
    end = time.monotonic() + READY_S
    while not set(ports) <= set(kernel_drops()):
        for each in processes:
            each.running()
        if time.monotonic() > end:
            raise Failed("the ports %s were not opened" % ports)
        time.sleep(0.05)


def url(port):
    return "rtp://127.0.0.1:%d" % port


def descrambling_script(inputs):
    for slot, port in enumerate(inputs):
        yield 'cardInsert %d, "%s"' % (slot, url(port))
        yield from ("progAssign %d, %d, %d" % (slot, *program) for program in PROGRAMS)
        yield from ("camInsert %d, %d, %s" % (slot, cam, CA_SYSTEM) for cam in (0, 1))


def probing_script(befores, behinds):
    for slot, ports in enumerate(zip(befores, behinds)):
        yield 'probeInsert %d, "%s", "%s"' % (slot, *map(url, ports))


class Bench:
    """What all runs have in common: programs, streams, processors."""

    def __init__(self, build, chassis_cpus=None, other_cpus=None):
        self.build = pathlib.Path(build).resolve()
        self.chassis_cpus = chassis_cpus
        self.other_cpus = other_cpus
        self.scrambled = self.build / "samples" / "headend.ts"
        for path in (self.scrambled, *map(self.program, ("ci-chassis", "live-send"))):
            if not path.exists():
                raise Failed("%s is missing: build first, or name the folder with --build" % path)

    def program(self, name):
        return self.build / (name if name == "ci-chassis" else "bench/live/" + name)

    def clear(self, folder):
        """The stream as it comes out of a CAM that descrambles everything."""
        path = folder / "clear.ts"
        script = folder / "clear.script"
        script.write_text("\n".join(['cardInsert 0, "%s"' % self.scrambled,
                                     *("progAssign 0, %d, %d" % each for each in PROGRAMS),
                                     *("camInsert 0, %d, %s" % (cam, CA_SYSTEM) for cam in (0, 1)),
                                     "wait 15", ""]))
        whole = folder / "whole.ts"
        subprocess.run([self.program("ci-chassis"), "--script", script, "--for", "40", "--speed",
                        "max", "--no-table", "--output", "0:%s" % whole], check=True,
                       stdout=subprocess.DEVNULL)
        packets = self.scrambled.stat().st_size
        with open(whole, "rb") as stream:
            stream.seek(2 * packets)
            path.write_bytes(stream.read(packets))
        whole.unlink()
        return path

    def chassis(self, folder, script, seconds, outputs=()):
        path = folder / "script"
        path.write_text("\n".join(script) + "\n")
        command = [self.program("ci-chassis"), "--script", path, "--for", "%d" % (seconds + DRAIN_S),
                   "--no-table", "--status-json", folder / "status.json",
                   "--events", folder / "events"]
        for slot, port in enumerate(outputs):
            command += ["--output", "%d:%s" % (slot, url(port))]
        return Process(folder, "ci-chassis", command, self.chassis_cpus, stdin=subprocess.DEVNULL)

    def sender(self, folder, name, stream, rate, seconds, ports):
        command = [self.program("live-send"), "--bitrate", round(rate * 1e6), "--for", seconds, stream,
                   *map(url, ports)]
        return Process(folder, name, command, self.other_cpus)

    def receiver(self, folder, ports):
        return Process(folder, "live-receive", [self.program("live-receive"), *map(url, ports)],
                       self.other_cpus, stdin=subprocess.PIPE)


class Profile(threading.Thread):
    """Where the program's time goes, by library, for some seconds."""

    def __init__(self, folder, process, seconds):
        super().__init__()
        self._data = folder / "perf.data"
        self._command = ["perf", "record", "-q", "-e", "cpu-clock", "-F", "499", "-o", self._data, "-p",
                         str(process.child.pid), "--", "sleep", str(seconds)]
        self.start()

    def run(self):
        subprocess.run(self._command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)

    def report(self, by):
        text = subprocess.run(["perf", "report", "-i", self._data, "--sort", by, "--stdio", "-q"],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                              check=False).stdout
        rows = re.findall(r"^\s*([\d.]+)%\s+(.*?)\s*(?:-\s+-\s*)?$", text, re.M)
        return [(float(share), what) for share, what in rows]


class Watch:
    """Samples the program while the sender sends."""

    def __init__(self, folder, chassis, others, seconds, warm_up, profile_s):
        self._folder, self._chassis, self._others = folder, chassis, others
        self._seconds, self._warm_up = seconds, warm_up
        self._profile_s = min(profile_s, max(1, seconds - warm_up - 1)) if profile_s else 0
        self._profile = None
        self._begin = time.monotonic()
        self._memory, self._cpu = [], []

    def until_end_of(self, sender):
        while sender.child.poll() is None:
            self._chassis.running()
            now = time.monotonic() - self._begin
            if now > 2 * self._seconds + READY_S:
                raise Failed("the sender does not come to its end")
            # A process that has just ended has no figures any more.
            with contextlib.suppress(FileNotFoundError, ProcessLookupError, IndexError, AttributeError):
                self._sample(now)
            time.sleep(0.2)
        return self._figures()

    def _sample(self, now):
        self._memory.append((now, self._chassis.memory_mb()))
        if now < self._warm_up:
            return
        self._cpu.append((now, self._chassis.cpu_s(), sum(each.cpu_s() for each in self._others)))
        if self._profile_s and self._profile is None:
            self._profile = Profile(self._folder, self._chassis, self._profile_s)

    def _figures(self):
        first, last = self._cpu[0], self._cpu[-1]
        took = last[0] - first[0]
        figures = {"memory": self._memory, "cpu": (last[1] - first[1]) / took,
                   "others_cpu": (last[2] - first[2]) / took,
                   "from_ns": round((self._begin + first[0]) * 1e9)}
        if self._profile:
            self._profile.join()
            figures["profile"] = self._profile.report("dso")
            figures["symbols"] = self._profile.report("dso,symbol")[:25]
        return figures


def drain(chassis, ports):
    """What the kernel has dropped of the chassis's inputs when it ends."""
    drops = {}
    while chassis.child.poll() is None:
        drops.update(kernel_drops())
        time.sleep(0.05)
    return [drops[port] for port in ports]


def memory_of(samples):
    """At a tenth of the run, at its end, and at most."""
    tenth = next(mb for at, mb in samples if at >= samples[-1][0] / 10)
    return {"at_10_percent_mb": tenth, "at_end_mb": samples[-1][1],
            "most_mb": max(mb for _, mb in samples)}


def expect(problems, what, is_so):
    if not is_so:
        problems.append(what)


def check_input(problems, slot, sent, unsent, counters, drops):
    """Every datagram that left the sender is counted, and so is every packet of those that came. What
    the kernel dropped behind the last datagram that it handed on, it tells others alone."""
    untold = sent - unsent - counters["datagrams"] - counters["kernel_lost"]
    expect(problems, "slot %d: %d datagrams sent, %d came, %d were lost in the kernel of its %d" %
           (slot, sent - unsent, counters["datagrams"], counters["kernel_lost"], drops),
           untold == drops - counters["kernel_lost"])
    came = PACKETS_PER_DATAGRAM * (counters["datagrams"] - counters["foreign"])
    unused = PACKETS_PER_DATAGRAM * (counters["late"] + counters["duplicates"])
    expect(problems, "slot %d: of %d packets %d were handed on, %d dropped, %d of no use" %
           (slot, came, counters["packets"], counters["dropped"], unused),
           came == counters["packets"] + counters["dropped"] + unused)


def check_output(problems, slot, card, port, drops):
    """Every packet that came in is written or counted as lost, and so is every datagram."""
    counters, output = card["input"]["counters"], card["output"]
    expect(problems, "slot %d: %d packets in, %d written and %d lost" %
           (slot, counters["packets"], output["packets"], output["lost_packets"]),
           counters["packets"] == output["packets"] + output["lost_packets"])
    expect(problems, "slot %d: %d datagrams written, %d came and %d were lost in the receiver's kernel"
           % (slot, output["datagrams"], port["datagrams"], drops),
           output["datagrams"] == port["datagrams"] + drops)
    lost = output["packets"] - port["packets"]
    expect(problems, "slot %d: %d packets written, %d came in %d datagrams fewer" %
           (slot, output["packets"], port["packets"], drops),
           0 <= lost <= PACKETS_PER_DATAGRAM * drops)


def lost_of(sent, cards, drops, drops_behind=()):
    """By place, all in packets; a datagram is taken for a full one."""
    counters = [card["input"]["counters"] for card in cards]
    counters += [card["behind"]["counters"] for card in cards if "behind" in card]
    outputs = [card["output"] for card in cards if "output" in card]
    each = PACKETS_PER_DATAGRAM
    return {"sender": each * sum(sum(report["unsent"]) for report in sent),
            "kernel, before the chassis": each * sum(drops),
            "chassis, no room": sum(one["dropped"] for one in counters),
            "chassis, of no use": each * sum(one["late"] + one["duplicates"] + one["foreign"]
                                             for one in counters),
            "chassis, output": sum(one["lost_packets"] for one in outputs),
            "kernel, behind the chassis": each * sum(drops_behind)}


def delays_of(cards, ports):
    outputs = [card["output"] for card in cards]
    datagrams = sum(one["datagrams"] for one in outputs)
    late = sum(one["late"] for one in outputs)
    return {"datagrams": datagrams, "late": late, "late_share": late / max(1, datagrams),
            "worst_lateness_ms": max(one["worst_lateness_ns"] for one in outputs) / 1e6,
            "receiver_behind_10_ms": sum(port["behind_10_ms"] for port in ports),
            "receiver_behind_ms_99_9": max(port["behind_ns_99_9"] for port in ports) / 1e6,
            "receiver_behind_ms_worst": max(port["behind_ns_worst"] for port in ports) / 1e6}


def scrambled_after(lines, ns):
    """Of the packets that came after the warm-up, how many were scrambled."""
    early = [line for line in lines if line["at_ns"] >= ns][0]
    return [sum(port[what] for port in lines[-1]["ports"]) - sum(port[what] for port in early["ports"])
            for what in ("scrambled", "packets")]


def judge_memory(problems, memory, lossless):
    growth = memory["most_mb"] - memory["at_10_percent_mb"]
    expect(problems, "memory grew by %.1f MB from a tenth of the run on" % growth,
           growth <= (GROWTH_MB if lossless else QUEUES_MB))


def descramble(bench, cards, rate, seconds, warm_up, profile_s=0):
    """Cards with two CAMs each, descrambling from RTP to RTP."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        ports = free_ports(2 * cards)
        inputs, outputs = ports[:cards], ports[cards:]
        receiver = stack.enter_context(bench.receiver(folder, outputs))
        await_ports(outputs, receiver)
        chassis = stack.enter_context(
            bench.chassis(folder, descrambling_script(inputs), seconds, outputs))
        await_ports(inputs, chassis, receiver)
        sender = stack.enter_context(
            bench.sender(folder, "live-send", bench.scrambled, rate, seconds, inputs))
        figures = Watch(folder, chassis, [sender, receiver], seconds, warm_up,
                        profile_s).until_end_of(sender)
        sender.finish(READY_S)
        figures["drops"] = drain(chassis, inputs)
        chassis.finish(READY_S)
        behind = kernel_drops()
        figures["drops_behind"] = [behind[port] for port in outputs]
        receiver.child.stdin.close()
        receiver.finish(READY_S)
        status = json.loads((folder / "status.json").read_text())
        return judged_descrambling(figures, sender.lines()[-1], status["cards"], receiver.lines())


def judged_descrambling(figures, sent, cards, lines):
    ports = lines[-1]["ports"]
    problems = []
    for slot, (card, port) in enumerate(zip(cards, ports)):
        check_input(problems, slot, sent["datagrams"], sent["unsent"][slot], card["input"]["counters"],
                    figures["drops"][slot])
        check_output(problems, slot, card, port, figures["drops_behind"][slot])
    figures["sent_packets"] = PACKETS_PER_DATAGRAM * sent["datagrams"] * len(cards)
    figures["received_packets"] = sum(port["packets"] for port in ports)
    figures["sender_behind_ms_worst"] = sent["worst_behind_ns"] / 1e6
    figures["lost"] = lost_of([sent], cards, figures["drops"], figures["drops_behind"])
    figures["lateness"] = delays_of(cards, ports)
    scrambled, packets = scrambled_after(lines, figures["from_ns"])
    figures["scrambled_after_warm_up"] = scrambled
    missing = sum(port["missing"] for port in ports)
    expect(problems, "%d sequence numbers are missing, though nothing was lost" % missing,
           missing == 0 or any(figures["lost"].values()))
    expect(problems, "nothing came after the warm-up", packets > 0)
    expect(problems, "%d of %d packets were still scrambled, though none was lost" %
           (scrambled, packets), scrambled == 0 or any(figures["lost"].values()))
    return finished(figures, problems)


def finished(figures, problems):
    figures["memory"] = memory_of(figures["memory"])
    judge_memory(problems, figures["memory"], not any(figures["lost"].values()))
    figures["problems"] = problems
    return figures


def probe(bench, pairs, rate, seconds, warm_up, profile_s=0):
    """Pairs of streams before and behind receivers elsewhere, judged."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        ports = free_ports(2 * pairs)
        befores, behinds = ports[:pairs], ports[pairs:]
        clear = bench.clear(folder)
        chassis = stack.enter_context(
            bench.chassis(folder, probing_script(befores, behinds), seconds))
        await_ports(ports, chassis)
        senders = [stack.enter_context(bench.sender(folder, *each, rate, seconds, to))
                   for *each, to in (("before", bench.scrambled, befores),
                                     ("behind", clear, behinds))]
        figures = Watch(folder, chassis, senders, seconds, warm_up,
                        profile_s).until_end_of(senders[0])
        for each in senders:
            each.finish(READY_S)
        figures["drops"] = drain(chassis, ports)
        chassis.finish(READY_S)
        status = json.loads((folder / "status.json").read_text())
        events = [json.loads(line) for line in (folder / "events").read_text().splitlines()]
        return judged_probe(figures, [each.lines()[-1] for each in senders], status["cards"], events)


def judged_descrambled(events):
    """Slot and number of each program that was found descrambled."""
    return {(event["slot"], number) for event in events
            if event["kind"] == "program_state" and event["state"] == "descrambled"
            for number in event["programs"]}


def judged_probe(figures, sent, cards, events):
    problems = []
    for slot, card in enumerate(cards):
        for report, side, first in zip(sent, ("input", "behind"), (0, len(cards))):
            check_input(problems, slot, report["datagrams"], report["unsent"][slot],
                        card[side]["counters"], figures["drops"][first + slot])
    figures["sent_packets"] = PACKETS_PER_DATAGRAM * len(cards) * sum(each["datagrams"]
                                                                      for each in sent)
    figures["received_packets"] = sum(card[side]["counters"]["packets"] for card in cards
                                      for side in ("input", "behind"))
    figures["lost"] = lost_of(sent, cards, figures["drops"])
    judged, all_programs = len(judged_descrambled(events)), len(cards) * len(PROGRAMS)
    expect(problems, "%d of %d programs were found descrambled, though nothing was lost" %
           (judged, all_programs), judged == all_programs or any(figures["lost"].values()))
    return finished(figures, problems)
