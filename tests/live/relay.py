"""A relay that does to datagrams what networks and senders do to them."""
import select
import socket
import struct
import time

RTP_HEADER = 12


def rtp(payload, sequence, ssrc=0x1234):
    return struct.pack("!BBHII", 0x80, 33, sequence & 0xFFFF, 0, ssrc) + payload


def payload_of(datagram):
    return datagram[RTP_HEADER:]


class Fault:
    """What becomes of each datagram: (seconds to hold it, datagram) of each that goes on.

    It keeps the payloads that a receiver should hand on, in their order, and what it should count.
    """
    url = "rtp://127.0.0.1:{}"
    told = set()  # kinds of events
    senders = 1

    def __init__(self):
        self.count = 0
        self.sent = 0  # datagrams
        self.payloads = []
        self.kept = []  # back, for later
        self.lost = dict.fromkeys(("network_lost", "late", "duplicates", "reordered", "foreign"), 0)

    def pass_on(self, datagram):
        made = self.make(self.count, datagram)
        self.count += 1
        self.sent += len(made)
        return made

    def good(self, datagram):
        self.payloads.append(payload_of(datagram))

    def make(self, number, datagram):
        self.good(datagram)
        return [(0, datagram)]


class Relay:
    """From one socket to a port for each fault."""

    def __init__(self, port, faults):
        self.faults = faults  # by port
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self.socket.bind(("127.0.0.1", port))
        self.held = []

    def run(self, is_over):
        """Until that is so, all that has come has been taken, and nothing is held any more."""
        while self.take() or self.held or not is_over():
            self.release()

    def take(self):
        """Whether anything has come."""
        if not select.select([self.socket], [], [], 0.005)[0]:
            return False
        datagram = self.socket.recv(65536)
        now = time.monotonic()
        for port, fault in self.faults.items():
            self.held += [(now + hold, port, made) for hold, made in fault.pass_on(datagram)]
        return True

    def release(self):
        now = time.monotonic()
        due = [held for held in self.held if held[0] <= now]
        self.held = [held for held in self.held if held[0] > now]
        for _, port, datagram in due:
            self.socket.sendto(datagram, ("127.0.0.1", port))
