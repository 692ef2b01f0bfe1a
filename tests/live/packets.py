"""Transport stream packets, and what has become of them on their way."""
import collections

SIZE = 188
NULL_PID = 0x1FFF
VIDEO = (0x1001, 0x1011, 0x1021, 0x1031)
STREAMS = tuple(sorted(VIDEO + tuple(pid + 1 for pid in VIDEO)))


def packets_of(stream):
    assert len(stream) % SIZE == 0, len(stream)
    packets = [stream[at:at + SIZE] for at in range(0, len(stream), SIZE)]
    assert all(packet[0] == 0x47 for packet in packets)
    return packets


def pid_of(packet):
    return (packet[1] & 0x1F) << 8 | packet[2]


def is_scrambled(packet):
    return packet[3] & 0xC0 != 0


def by_pid(packets):
    pids = collections.defaultdict(list)
    for packet in packets:
        pids[pid_of(packet)].append(packet)
    return pids


def descrambled_from(received, scrambled, clear):
    """From which packet on all of them are the clear ones; before it, all are the scrambled."""
    if len(received) != len(scrambled):
        return None
    begin = next((at for at, packet in enumerate(received)
                  if is_scrambled(scrambled[at]) and packet == clear[at]), len(received))
    return begin if received == scrambled[:begin] + clear[begin:] else None


def is_access_point(packet):
    """A receiver can begin with it: a key picture, or a packet of sound."""
    starts = packet[1] & 0x40 != 0
    random_access = packet[3] & 0x20 != 0 and packet[4] > 0 and packet[5] & 0x40 != 0
    return starts and (random_access or pid_of(packet) not in VIDEO)


def as_tuned_in(packets):
    """Without what of each stream comes before a receiver can begin with it."""
    begun = set()
    kept = []
    for packet in packets:
        pid = pid_of(packet)
        if pid not in STREAMS or pid in begun or is_access_point(packet):
            begun.add(pid)
            kept.append(packet)
    return kept
