"""Bad input of the live mode: a clear line that names it and what would be right, and a run that
goes on where there is anything to go on with."""
import os
import socket
import subprocess

import lab

UNKNOWN = 3  # by the convention of monitoring plugins
HEADEND = f'cardInsert 0, "{lab.SCRAMBLED}"\n'

# Refused before anything is run: the URL, and what is said of it.
INPUTS = [
    ("http://127.0.0.1:5000", "'http://' is unknown; there are udp:// and rtp://"),
    ("udp://127.0.0.1", "the port is missing; right is udp://GROUP:PORT"),
    ("rtp://127.0.0.1:0", "the port is '0', not a number from 1 to 65535"),
    ("udp://127.0.0.1:65536", "the port is '65536', not a number from 1 to 65535"),
    ("udp://host:5000", "'host' is a name, and names are not looked up"),
    ("udp://239.1.1.300:5000", "'239.1.1.300' is no IPv4 or IPv6 address"),
    ("udp://ff15::1:5000", "an IPv6 address stands in brackets"),
    ("udp://[ff15::1:5000", "']' is missing behind the address"),
    ("udp://[ff02::5]:5000", "name its interface with ?iface=; there are: lo"),
    ("udp://239.1.1.1:5000?colour=1", "no option 'colour'; an input has iface, source, rcvbuf"),
    ("udp://239.1.1.1:5000?ttl=3", "'ttl' is an option of outputs"),
    ("udp://239.1.1.1:5000?rcvbuf=much", "rcvbuf is 'much', not a number from"),
    ("udp://239.1.1.1:5000?iface=nope0", "no network interface 'nope0'; there are: lo"),
    ("udp://239.1.1.1:5000?source=::1", "another family than the group; an IPv4 address is needed"),
    ("udp://127.0.0.1:5000?source=127.0.0.1", "with a multicast group only"),
    ("udp://127.0.0.1@239.1.1.1:5000", "write ?source= or ?iface="),
]
OUTPUTS = [
    ("sctp://127.0.0.1:5000", "'sctp://' is unknown; there are udp:// and rtp://"),
    ("udp://127.0.0.1:5000?rcvbuf=9999", "'rcvbuf' is an option of inputs"),
    ("udp://127.0.0.1:5000?dscp=64", "dscp is '64', not a number from 0 to 63"),
    ("rtp://127.0.0.1:5000?delay=long", "delay is 'long', not a number from 0 to"),
    ("rtp://239.1.1.1:5000?iface=nope0", "no network interface 'nope0'; there are: lo"),
    ("rtp://10.99.0.1:5000", "cannot be reached: Network is unreachable; an interface that leads"),
]


class Refused(lab.Case):
    def expect_named(self, said, name, why):
        self.assertIn(f"'{name}'", said)
        self.assertIn(why, said)

    def test_inputs(self):
        for url, why in INPUTS:
            self.expect_named(self.refused(f'wait 0\ncardInsert 0, "{url}"\nwait 1\n'), url, why)

    def test_outputs(self):
        for url, why in OUTPUTS:
            self.expect_named(self.refused(HEADEND + "wait 1\n", "--output", f"0:{url}"), url, why)

    def test_directory(self):
        self.expect_named(self.refused(f'cardInsert 0, "{self.folder}"\n'), self.folder,
                          "a transport stream file is needed")
        self.expect_named(self.refused(HEADEND + "wait 1\n", "--output", f"0:{self.folder}"),
                          self.folder, "a file, a FIFO or a character device is needed")

    def test_group_that_cannot_be_joined(self):
        subprocess.run(["ip", "route", "del", "224.0.0.0/4"], check=True)
        self.addCleanup(subprocess.run, ["ip", "route", "add", "224.0.0.0/4", "dev", "lo"])
        url = "udp://239.1.1.1:5000"
        self.expect_named(self.refused(f'cardInsert 0, "{url}"\nwait 1\n'), url,
                          "cannot be joined: No such device; an interface that leads there is named"
                          " by ?iface=")

    def test_port_that_another_program_has(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", 0))
            url = f"udp://127.0.0.1:{taken.getsockname()[1]}"
            self.expect_named(self.refused(f'cardInsert 0, "{url}"\nwait 1\n'), url,
                              "another program receives there")

    def test_address_of_another_machine(self):
        url = "rtp://10.99.0.1:5000"
        self.expect_named(self.refused(f'cardInsert 0, "{url}"\nwait 1\n'), url,
                          "an address of this machine is needed, or 0.0.0.0")


class Probe(lab.Case):
    def probe(self, *arguments):
        done = subprocess.run([lab.BUILD / "ci-chassis", "probe", *arguments], cwd=self.folder,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=lab.BOUND, check=False)
        return done.returncode, done.stdout, done.stderr

    def test_tells_what_is_wrong_with_an_input(self):
        good = f"udp://127.0.0.1:{lab.Ports.next()}"
        for url, why in INPUTS:
            for pair in (url, good), (good, url):
                status, _, said = self.probe(*pair)
                self.assertEqual((status, len(said.splitlines())), (lab.BAD_INPUT, 1), said)
                self.assertIn(f"'{url}'", said)
                self.assertIn(why, said)

    def test_tells_a_monitoring_system_in_its_one_line(self):
        good = f"udp://127.0.0.1:{lab.Ports.next()}"
        for url, why in INPUTS:
            status, told, said = self.probe(good, url, "--check")
            self.assertEqual((status, len(told.splitlines()), said), (UNKNOWN, 1, ""), told)
            self.assertTrue(told.startswith("DESCRAMBLING UNKNOWN: "), told)
            self.assertIn(f"'{url}'", told)
            self.assertIn(why, told)


class GoesOn(lab.Case):
    def test_programs_that_never_appear(self):
        port = lab.Ports.next()
        chassis = self.chassis(f'cardInsert 0, "udp://127.0.0.1:{port}"\nprogAssign 0, 999, 1\n'
                               f"cardInsert 1, \"{lab.SCRAMBLED}\"\nprogAssign 1, 101, 1\n"
                               "camInsert 1, 0, 0x0500\n"
                               'expectState 1, 101, "descrambled", 60\n')
        self.assertEqual(chassis.wait(), (lab.DONE, ""))
        self.assertTrue(any("program 999 is not in the stream" in event["what"]
                            for event in chassis.events("no_effect", 0)), chassis.story())
        self.assertTrue(chassis.is_silent(0))

    def test_expected_of_a_program_that_never_appears(self):
        chassis = self.chassis(f'cardInsert 0, "udp://127.0.0.1:{lab.Ports.next()}"\n'
                               'progAssign 0, 999, 1\nexpectState 0, 999, "descrambled", 1\n')
        status, said = chassis.wait()
        self.assertEqual(status, lab.UNEXPECTED)
        self.assertIn("program 999 of slot 0 is not in the stream", said)

    def test_fifo_that_nobody_writes_yet(self):
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        chassis = self.chassis(f'cardInsert 0, "{fifo}"\nprogAssign 0, 101, 1\nwait 3600\n')
        chassis.until(lambda: chassis.is_silent(0), "silence")
        self.start("cp", lab.SCRAMBLED, fifo, name="writer")
        chassis.until_told("stream_begun", 0)
        chassis.until_told("writer_gone", 0)
        self.assertEqual(chassis.end(), (lab.TERMINATED, ""))

    def test_outputs_that_take_nothing(self):
        """Each is told once, and the one that takes all gets all."""
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        nobody = f"udp://127.0.0.1:{lab.Ports.next()}"
        names = [str(fifo), "/dev/full", nobody]
        cards = "".join(f'cardInsert {slot}, "{lab.SCRAMBLED}"\n' for slot in range(4))
        chassis = self.chassis(
            cards + "wait 3\n", *(word for slot, name in enumerate(names)
                                  for word in ("--output", f"{slot}:{name}")),
            "--output", "3:out.ts")
        status, said = chassis.wait()
        self.assertEqual(status, lab.LOST, said)
        self.assertEqual(len(said.splitlines()), len(names), said)
        for slot, name in enumerate(names):
            self.assertIn(f"ci-chassis: '{name}', the output of slot {slot}, is not whole: ", said)
        for slot in 1, 2:
            self.assertEqual(len(chassis.events("output_lost", slot)), 1)
        whole = chassis.status()["cards"][3]["output"]
        self.assertEqual(whole["lost_packets"], 0)
        self.assertEqual(whole["packets"] * 188, (self.folder / "out.ts").stat().st_size)

    def test_interface_that_goes_and_comes_back(self):
        make = "ip link add live8 type veth peer name live9"
        up = ["ip address add 10.5.0.1/24 dev live8", "ip link set live8 up",
              "ip link set live9 up"]
        for line in [make, *up]:
            subprocess.run(line.split(), check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "live8"], stderr=subprocess.DEVNULL)
        port = lab.Ports.next()
        chassis = self.chassis(f'cardInsert 0, "udp://239.5.5.5:{port}?iface=live8"\nwait 3600\n')
        payload = lab.SCRAMBLED.read_bytes()[:1316]

        def comes(kind):
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
                sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                                  socket.inet_aton("10.5.0.1"))
                sender.sendto(payload, ("239.5.5.5", port))
            return chassis.events(kind, 0)

        chassis.until(lambda: comes("stream_begun"), "the stream")
        subprocess.run("ip link del live8".split(), check=True)
        chassis.until_told("interface_gone", 0)
        chassis.until_told("stream_silent", 0)
        for line in [make, *up]:
            subprocess.run(line.split(), check=True)
        chassis.until_told("interface_back", 0)
        chassis.until(lambda: comes("stream_back"), "the stream again")
        self.assertEqual(chassis.end(), (lab.TERMINATED, ""))


if __name__ == "__main__":
    lab.main()
