"""The section of docs/performance.md about the chassis, for tools/bench."""
import collections
import json
import statistics
import subprocess

CARDS = 6
AIM_CORES = 1


class Figures:
    """Of one benchmark: packets a second of CPU time, CPU seconds an iteration, counters."""

    def __init__(self, runs):
        self.rates = [run["items_per_second"] for run in runs]
        self.seconds = [run["cpu_time"] / 1e9 for run in runs]
        self.rate = statistics.median(self.rates)
        self._runs = runs

    def counter(self, name):
        return statistics.median(run[name] for run in self._runs)


def measure(program, repetitions, min_time):
    output = subprocess.run(
        [program, "--benchmark_repetitions=%d" % repetitions,
         "--benchmark_min_time=%g" % min_time, "--benchmark_format=json",
         "--benchmark_enable_random_interleaving=true"],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    runs = collections.defaultdict(list)
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] == "iteration":
            runs[run["run_name"].split("/iterations:")[0]].append(run)
    return {name: Figures(each) for name, each in runs.items()}


def spread(values, form):
    return "%s (%s to %s)" % tuple(form % each for each in (statistics.median(values), min(values),
                                                          max(values)))


def row(what, figures, floor="", floor_rate=None):
    thousands = spread([rate / 1000 for rate in figures.rates], "%.0f")
    ratio = "" if floor_rate is None else "%.2f" % (floor_rate / figures.rate)
    return "| %s | %s | %s | %s |" % (what, thousands, floor, ratio)


def table(figures):
    plain, reader, csa = figures["read/plain"], figures["read/TsFile"], figures["csa/full"]
    clear, card = figures["card/clear"], figures["card/descrambled"]
    share = card.counter("scrambled")
    return [
        "| What | Thousand packets/s | Floor | Times the floor |", "|---|---|---|---:|",
        row("reading the file in blocks", plain),
        row("reading it packet by packet, `TsFile`", reader, "reading in blocks", plain.rate),
        row("a card without CAMs", clear, "`TsFile`", reader.rate),
        row("libdvbcsa, %d payloads of 184 bytes a batch" % csa.counter("batch"), csa),
        row("a card, both CAMs descramble", card,
            "libdvbcsa for %.1f %% of the packets" % (100 * share), csa.rate / share),
        row("the same", card, "that and a card without CAMs",
            1 / (1 / clear.rate + share / csa.rate)), ""]


def aim(figures):
    chassis, csa = figures["chassis/second"], figures["csa/full"]
    second = statistics.median(chassis.seconds)
    packets = chassis.rate * second
    alone = packets * chassis.counter("scrambled") / csa.rate
    return [
        "**%d cards of 50 Mbit/s, %.0f packets/s each, all %d CAMs descrambling, with the module's"
        % (CARDS, packets / CARDS, 2 * CARDS),
        "cycles: %s s of CPU time a second of chassis time.** Real time" %
        spread(chassis.seconds, "%.3f"),
        "so needs %.0f %% of one core; the aim of one core or less is %s. libdvbcsa alone, with nothing"
        % (100 * second, "met" if max(chassis.seconds) <= AIM_CORES else "missed"),
        "but full batches, would take %.0f %% of one core for the same packets: the chassis takes"
        % (100 * alone),
        "%.2f times that." % (second / alone), ""]


def batches(figures):
    card = figures["card/descrambled"]
    return [
        "libdvbcsa as installed here reports batches of %d payloads; a batch costs nearly the same"
        % figures["csa/full"].counter("batch"),
        "however full it is. On the card above a batch held %.0f payloads on average; %.1f %% of the"
        % (card.counter("fill"), 100 * card.counter("singly")),
        "payloads were descrambled one by one, because too few were left for a batch.", ""]


def section(figures):
    return [
        "## Chassis", "",
        "Measured in the same run by `build/bench/ci-chassis-bench`: the software chassis with",
        "`build/samples/headend.ts` at 50 Mbit/s, of whose packets %.1f %% are scrambled. CPU time;"
        % (100 * figures["chassis/second"].counter("scrambled")),
        "median (least to most) of %d repetitions in random order." %
        len(figures["csa/full"].rates), "",
        *table(figures), *aim(figures), *batches(figures),
        "Profiles taken once with `perf record build/bench/ci-chassis-bench --benchmark_filter=NAME`: of",
        "the six cards' time 90 % is in libdvbcsa, 6 % in the chassis, 2 % in the kernel, which reads the",
        "file. A card without CAMs spends a quarter of its time counting packets before and behind the",
        "CAMs, another on reading the file, a sixth on copying packets, a tenth on following the tables.",
        "When every packet was finished in the tick in which it came, a batch held 49 payloads on",
        "average, and the six cards took 2.2 times as long, measured minutes apart.",
        "What still keeps batches from being full are the words: they are made for a stream of 2.5 Mbit/s",
        "and change every 2.5 s, so at 50 Mbit/s every 125 ms.", ""]
