"""Programs of other makers at both ends: what they send comes out descrambled, bit for bit."""
import subprocess

import lab
import packets

ENOUGH = 50  # packets of each stream that are descrambled


def multicat_udp(case, name, port):
    return case.multicat(name, f"127.0.0.1:{port}", "-U")


def multicat_rtp_group(case, name, port):
    return case.multicat(name, f"239.255.1.1:{port}@127.0.0.1")


def ffmpeg(case, name, form, destination):
    """Whole packets as they are, paced by their clock references."""
    return case.start("ffmpeg", "-nostdin", "-v", "error", "-re", "-f", "mpegtsraw", "-compute_pcr",
                      "1", "-i", lab.SCRAMBLED, "-map", "0", "-c", "copy", "-f", form, destination,
                      name=name)


def ffmpeg_udp_group(case, name, port):
    return ffmpeg(case, name, "data",
                  f"udp://239.255.1.2:{port}?pkt_size=1316&localaddr=127.0.0.1")


def ffmpeg_rtp_v6(case, name, port):
    return ffmpeg(case, name, "rtp", f"rtp://[::1]:{port}?pkt_size=1328")


def ffmpeg_rtp_group_v6(case, name, port):
    return ffmpeg(case, name, "rtp", f"rtp://[ff15::1]:{port}?pkt_size=1328")


def to_multicat_rtp(case, name, port):
    return case.start("multicat", f"@127.0.0.1:{port}", f"{name}.ts", name=name)


def to_multicat_udp_group(case, name, port):
    return case.start("multicat", "-u", f"@239.255.2.2:{port}/ifaddr=127.0.0.1", f"{name}.ts",
                      name=name)


def to_multicat_rtp_group(case, name, port):
    return case.start("multicat", f"@239.255.2.3:{port}/ifaddr=127.0.0.1", f"{name}.ts", name=name)


def to_dvblast(case, name, port, *options):
    """It would take for a datagram what fits into the smallest frame of IPv6."""
    item = "/".join([f"@127.0.0.1:{port}", "mtu=1500", *options])
    return case.start("dvblast", "-q", "-D", item, "-3", name=name, output=f"{name}.ts")


def to_dvblast_udp(case, name, port):
    return to_dvblast(case, name, port, "udp")


# Who sends, where the card listens, where it sends, who receives; one card each.
LINES = [
    (multicat_udp, "udp://127.0.0.1:{}", "rtp://127.0.0.1:{}?dscp=34", to_multicat_rtp),
    (multicat_rtp_group, "rtp://@239.255.1.1:{}?iface=lo", "udp://127.0.0.1:{}", to_dvblast_udp),
    (ffmpeg_udp_group, "udp://239.255.1.2:{}?source=127.0.0.1", "udp://239.255.2.2:{}?iface=lo",
     to_multicat_udp_group),
    (ffmpeg_rtp_v6, "rtp://[::1]:{}", "rtp://127.0.0.1:{}?delay=20", to_dvblast),
    (ffmpeg_rtp_group_v6, f"rtp://[ff15::1]:{{}}?iface={lab.INTERFACE}",
     "rtp://239.255.2.3:{}?ttl=1", to_multicat_rtp_group),
]


class Line:
    def __init__(self, case, slot):
        self.case, self.slot = case, slot
        self.sender, self.source, self.sink, self.receiver = LINES[slot]
        self.port_in, self.port_out = lab.Ports.next(), lab.Ports.next()
        self.name = f"receiver{slot}"
        self.file = case.folder / f"{self.name}.ts"

    def script(self):
        return (f'cardInsert {self.slot}, "{self.source.format(self.port_in)}"\n'
                f"progAssign {self.slot}, *, 1\ncamInsert {self.slot}, 0, 0x0500\n")

    def output(self):
        return "--output", f"{self.slot}:{self.sink.format(self.port_out)}"

    def receive(self):
        program = self.receiver(self.case, self.name, self.port_out)
        lab.until(self.listens, f"{self.name} listens", lambda: self.case.said(self.name))
        return program

    def send(self):
        return self.sender(self.case, f"sender{self.slot}", self.port_in)

    def listens(self):
        return bool(lab.sockets(self.port_out))

    def has_read_all(self):
        return not any(lab.sockets(self.port_out))

    def received(self):
        return packets.packets_of(self.file.read_bytes())


class Senders(lab.Case):
    def test_descrambled_streams_arrive_bit_for_bit(self):
        lines = [Line(self, slot) for slot in range(len(LINES))]
        receivers = [line.receive() for line in lines]
        chassis = self.chassis("".join(map(Line.script, lines)) + "wait 3600",
                               *(word for line in lines for word in line.output()))
        for line in lines:
            chassis.until_told("cam_up", line.slot)
        for sender in [line.send() for line in lines]:
            chassis.until(lambda: sender.poll() is not None, "the sender's end")
            self.assertEqual(sender.returncode, 0)
        for line in lines:
            chassis.until(lambda: chassis.is_silent_again(line.slot), "the stream's end")
        self.assertEqual(chassis.end(), (lab.TERMINATED, ""), chassis.story())
        for line, receiver in zip(lines, receivers):
            lab.until(line.has_read_all, f"{line.name} has all")
            lab.end(receiver)
        for line in lines:
            with self.subTest(line.sender.__name__, slot=line.slot):
                self.expect_descrambled(line)
                self.assertEqual(chassis.events("input_lost", line.slot), [])

    def expect_descrambled(self, line):
        got = line.received()
        clear = packets.by_pid(packets.packets_of(lab.CLEAR.read_bytes()))
        sent = packets.by_pid(packets.packets_of(lab.SCRAMBLED.read_bytes()))
        received = packets.by_pid(got)
        for pids in (received, sent):
            pids.pop(packets.NULL_PID)  # with these multicat fills short datagrams up
        self.assertEqual(set(received), set(sent))
        begins = {}
        for pid in received:
            if pid in packets.STREAMS:
                begin = packets.descrambled_from(received[pid], sent[pid], clear[pid])
                self.assertIsNotNone(begin, hex(pid))
                self.assertGreater(len(received[pid]) - begin, ENOUGH, hex(pid))
                begins[pid] = begin
            else:
                self.assertEqual(received[pid], sent[pid], hex(pid))
        self.expect_decodes(line, received_from(got, begins))

    def expect_decodes(self, line, stream):
        file = self.folder / f"{line.name}-clear.ts"
        file.write_bytes(b"".join(packets.as_tuned_in(stream)))
        done = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", file, "-map",
                               "0", "-f", "null", "-"], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))


def received_from(got, begins):
    """Of each stream what comes from its first descrambled packet on."""
    seen = dict.fromkeys(begins, 0)
    kept = []
    for packet in got:
        pid = packets.pid_of(packet)
        if seen.get(pid, 0) >= begins.get(pid, 0):
            kept.append(packet)
        if pid in seen:
            seen[pid] += 1
    return kept


if __name__ == "__main__":
    lab.main()
