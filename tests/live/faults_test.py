"""What networks and senders do to datagrams: each packet is handed on or counted where it was lost,
the timeline tells it, and the run goes on."""
import random

import lab
import packets
from relay import Fault, Relay, payload_of, rtp

CARDS = 6
PER_DATAGRAM = 7


class Loss(Fault):
    """One in a hundred is lost, and twenty at once."""
    told = {"input_lost"}

    def make(self, number, datagram):
        if number % 100 == 50 or 600 <= number < 620:
            self.lost["network_lost"] += 1
            return []
        return super().make(number, datagram)


class Swapped(Fault):
    """Two in the wrong order."""

    def make(self, number, datagram):
        self.good(datagram)
        if number % 20 == 10:
            self.kept = datagram
            return []
        if number % 20 == 11:
            self.lost["reordered"] += 1
            return [(0, datagram), (0, self.kept)]
        return [(0, datagram)]


class BackToFront(Fault):
    """Forty in the wrong order."""
    LENGTH = 40

    def make(self, number, datagram):
        self.good(datagram)
        if not 400 <= number < 400 + self.LENGTH:
            return [(0, datagram)]
        self.kept.insert(0, datagram)
        if len(self.kept) < self.LENGTH:
            return []
        self.lost["reordered"] += self.LENGTH - 1
        return [(0, kept) for kept in self.kept]


class FarTooLate(Fault):
    """It comes when its place has been given up."""
    told = {"input_lost"}

    def make(self, number, datagram):
        if number % 200 == 100:
            self.kept = datagram
            return []
        self.good(datagram)
        if number % 200 != 180:
            return [(0, datagram)]
        self.lost["network_lost"] += 1
        self.lost["late"] += 1
        return [(0, datagram), (0, self.kept)]


class Twice(Fault):
    def make(self, number, datagram):
        self.good(datagram)
        again = number % 10 == 0
        self.lost["duplicates"] += again
        return [(0, datagram)] * (1 + again)


class Burst(Fault):
    """Nothing for a while, then all of it at once."""

    def make(self, number, datagram):
        self.good(datagram)
        self.kept.append(datagram)
        if 300 <= number < 400:
            return []
        due, self.kept = self.kept, []
        return [(0, kept) for kept in due]


class Stall(Fault):
    told = {"stream_silent", "stream_back"}

    def make(self, number, datagram):
        self.good(datagram)
        return [(5 if number >= 600 else 0, datagram)]


class Restart(Fault):
    """The sender begins anew, with numbers of its own."""
    told = {"sender_changed"}
    senders = 2

    def make(self, number, datagram):
        self.good(datagram)
        return [(0, rtp(payload_of(datagram), number + 40000, 0xBEEF) if number >= 900
                 else datagram)]


class Noise(Fault):
    told = {"input_foreign"}

    def make(self, number, datagram):
        self.good(datagram)
        if number % 30:
            return [(0, datagram)]
        self.lost["foreign"] += 1
        noise = bytes([number % 0x47]) + self.random.randbytes(self.random.randrange(2000))
        return [(0, noise), (0, datagram)]

    def __init__(self):
        super().__init__()
        self.random = random.Random(1)


class Jumbo(Fault):
    """Forty-eight packets in a datagram."""
    PACKETS = 48

    def make(self, number, datagram):
        self.waiting += payload_of(datagram)
        size = self.PACKETS * packets.SIZE
        if len(self.waiting) < size:
            return []
        payload, self.waiting = self.waiting[:size], self.waiting[size:]
        self.payloads.append(payload)
        self.number += 1
        return [(0, rtp(payload, self.number))]

    def __init__(self):
        super().__init__()
        self.waiting = b""
        self.number = 65500  # the numbers begin again on the way


class Truncated(Fault):
    """What is cut off cannot be used, and nobody waits for it."""
    told = {"input_foreign"}

    def make(self, number, datagram):
        if number % 50 == 20:
            self.lost["foreign"] += 1
            return [(0, datagram[:700])]
        return super().make(number, datagram)


class Overflow(Fault):
    """Packets without RTP, in a burst for which the socket has no room."""
    told = {"input_lost", "stream_silent", "stream_back"}
    url = "udp://127.0.0.1:{}?rcvbuf=20000"
    senders = 0

    def make(self, number, datagram):
        self.good(datagram)
        self.kept.append(payload_of(datagram))
        if 300 <= number < 900:
            return []
        due, self.kept = self.kept, []
        return [(0, kept) for kept in due]


FAULTS = [Loss, Swapped, BackToFront, FarTooLate, Twice, Burst, Stall, Restart, Noise, Jumbo,
          Truncated, Overflow]
TELLS_OF_INPUT = {"input_lost", "stream_silent", "stream_back", "sender_changed", "input_foreign",
                  "buffer_small", "stream_damaged", "stream_ended", "transport_errors"}


class Card:
    def __init__(self, fault, chassis_number, slot):
        self.fault, self.slot = fault, slot
        self.port = lab.Ports.next()
        self.output = f"out{chassis_number}-{slot}.ts"

    def script(self):
        return f'cardInsert {self.slot}, "{self.fault.url.format(self.port)}"\n'

    def arguments(self):
        return "--output", f"{self.slot}:{self.output}"

    def told(self, chassis):
        """Before its begin and behind its end the stream is silent, which is no fault."""
        kinds = [event["kind"] for event in chassis.events(slot=self.slot)]
        begin = kinds.index("stream_begun")
        before = [kind for kind in kinds[:begin] if kind != "stream_silent"]
        end = len(kinds) - 1 - kinds[::-1].index("stream_silent")
        return TELLS_OF_INPUT.intersection(before + kinds[begin:end] + kinds[end + 1:])


class Faults(lab.Case):
    def test_each_packet_is_handed_on_or_counted(self):
        cards = [Card(fault(), number // CARDS, number % CARDS)
                 for number, fault in enumerate(FAULTS)]
        halves = [cards[:CARDS], cards[CARDS:]]
        runs = [self.chassis("".join(map(Card.script, half)) + "wait 3600",
                             *(word for card in half for word in card.arguments()),
                             name=f"chassis{number}") for number, half in enumerate(halves)]
        for card in cards:
            lab.until(lambda: lab.sockets(card.port), f"{card.fault} has its card")
        self.relay(cards)
        for chassis, half in zip(runs, halves):
            for card in half:
                chassis.until(lambda: chassis.is_silent_again(card.slot), "the stream's end")
            self.assertEqual(chassis.end(), (lab.TERMINATED, ""), chassis.story())
        for chassis, half in zip(runs, halves):
            for card in half:
                with self.subTest(type(card.fault).__name__):
                    self.expect_explained(card, chassis)

    def relay(self, cards):
        port = lab.Ports.next()
        relay = Relay(port, {card.port: card.fault for card in cards})
        self.addCleanup(relay.socket.close)
        sender = self.multicat("multicat", f"127.0.0.1:{port}")
        relay.run(lambda: sender.poll() is not None)
        self.assertEqual(sender.returncode, 0)

    def expect_explained(self, card, chassis):
        fault = card.fault
        counted = next(entry["input"]["counters"] for entry in chassis.status()["cards"]
                       if entry["slot"] == card.slot)
        out = (self.folder / card.output).read_bytes()
        self.assertEqual(card.told(chassis), fault.told)
        self.assertEqual(counted["senders"], fault.senders)
        self.assertEqual(counted["packets"] * packets.SIZE, len(out))
        self.assertEqual(counted["datagrams"] + counted["kernel_lost"], fault.sent)
        if isinstance(fault, Overflow):
            self.assertGreater(counted["kernel_lost"], 0)
            self.assertEqual(counted["datagrams"] * PER_DATAGRAM, counted["packets"])
            self.expect_in_order(out, fault.payloads)
        else:
            self.assertEqual({name: counted[name] for name in fault.lost}, dict(fault.lost))
            self.assertEqual(counted["kernel_lost"] + counted["dropped"], 0)
            self.assertEqual(out, b"".join(fault.payloads))

    def expect_in_order(self, out, payloads):
        size = PER_DATAGRAM * packets.SIZE
        waited = iter(payloads)
        for at in range(0, len(out), size):
            self.assertIn(out[at:at + size], waited)


if __name__ == "__main__":
    lab.main()
