"""The section of docs/performance.md about the chassis, for tools/bench."""
import json
import statistics
import subprocess

CARDS = 6
AIM_CORES = 1


class Figures:
    """Of one benchmark: packets a second of CPU time, CPU seconds an iteration, counters."""

    def __init__(self):
        self.rates, self.seconds, self.counters = [], [], {}

    def add(self, run):
        self.rates.append(run["items_per_second"])
        self.seconds.append(run["cpu_time"] / 1e9)
        for name in ("batch", "scrambled", "fill", "singly"):
            if name in run:
                self.counters[name] = run[name]

    @property
    def rate(self):
        return statistics.median(self.rates)


def measure(program, repetitions, min_time):
    output = subprocess.run(
        [program, "--benchmark_repetitions=%d" % repetitions,
         "--benchmark_min_time=%g" % min_time, "--benchmark_format=json",
         "--benchmark_enable_random_interleaving=true"],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    figures = {}
    for run in json.loads(output)["benchmarks"]:
        if run["run_type"] == "iteration":
            figures.setdefault(run["run_name"].split("/iterations:")[0], Figures()).add(run)
    return figures


def of_three(values, form):
    return "%s (%s to %s)" % tuple(form % each for each in (statistics.median(values), min(values),
                                                          max(values)))


def row(what, figures, floor="", floor_rate=None):
    thousands = of_three([rate / 1000 for rate in figures.rates], "%.0f")
    ratio = "" if floor_rate is None else "%.2f" % (floor_rate / figures.rate)
    return "| %s | %s | %s | %s |" % (what, thousands, floor, ratio)


def section(figures):
    plain, reader, csa = figures["read/plain"], figures["read/TsFile"], figures["csa/full"]
    clear, card, all_cards = (figures["card/clear"], figures["card/descrambled"],
                              figures["chassis/second"])
    share, batch = all_cards.counters["scrambled"], csa.counters["batch"]
    second = statistics.median(all_cards.seconds)
    packets = all_cards.rate * second
    csa_second = packets * share / csa.rate
    card_share = card.counters["scrambled"]
    card_floor = 1 / (1 / clear.rate + card_share / csa.rate)
    return [
        "## Chassis", "",
        "Measured in the same run by `build/bench/ci-chassis-bench`, the software chassis with",
        "`build/samples/headend.ts` at 50 Mbit/s: %.1f %% of its packets are scrambled. CPU time;" %
        (100 * share),
        "median (least to most) of %d repetitions in random order." % len(csa.rates), "",
        "| What | Thousand packets/s | Floor | Times the floor |", "|---|---|---|---:|",
        row("reading the file in blocks", plain),
        row("reading it packet by packet, `TsFile`", reader, "reading in blocks", plain.rate),
        row("a card without CAMs", clear, "`TsFile`", reader.rate),
        row("libdvbcsa, batches of %d payloads of 184 bytes" % batch, csa),
        row("a card, both CAMs descramble", card,
            "libdvbcsa for the scrambled %.1f %%" % (100 * card_share), csa.rate / card_share),
        row("the same", card, "that and a card without CAMs", card_floor), "",
        "**%d cards of 50 Mbit/s, %.0f packets/s each, all %d CAMs descramble, the module's cycles"
        % (CARDS, packets / CARDS, 2 * CARDS),
        "run: %s s of CPU time a second of chassis time**, so real time needs %.0f %% of one core;"
        % (of_three(all_cards.seconds, "%.3f"), 100 * second),
        "the aim of one core or less is %s. libdvbcsa alone, always with full batches, would take"
        % ("met" if max(all_cards.seconds) <= AIM_CORES else "missed"),
        "%.0f %% of one core for the same packets, %.0f %% of what the chassis takes." %
        (100 * csa_second, 100 * csa_second / second), "",
        "libdvbcsa as installed here reports batches of %d payloads; a batch costs nearly the same"
        % batch,
        "however full it is. On the card above %.0f payloads were in a batch on average, %.1f %% of"
        % (card.counters["fill"], 100 * card.counters["singly"]),
        "the payloads were descrambled one by one because too few were left for a batch.", ""]
