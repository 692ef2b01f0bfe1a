"""samples/live shows a receiver that is judged, and leaves nothing behind."""
import os
import pathlib
import signal
import subprocess

import lab

SCRIPT = lab.ROOT / "samples/live"


class Sample(lab.Case):
    def sample(self, *arguments):
        """In a process group of its own, as a terminal starts it."""
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir()
        program = subprocess.Popen(
            [SCRIPT, *arguments], cwd=self.folder, stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True,
            env={**os.environ, "TMPDIR": str(self.temporary)})
        self.addCleanup(end_group, program)
        return program

    def expect_nothing_left(self):
        self.assertEqual(list(self.temporary.iterdir()), [])
        sockets = [line for table in ("udp", "udp6") for line in
                   pathlib.Path(f"/proc/self/net/{table}").read_text().splitlines()[1:]]
        self.assertEqual(sockets, [])

    def expect_ends(self, program, ending):
        os.killpg(program.pid, ending)
        out, err = program.communicate(timeout=lab.BOUND)
        self.assertEqual((program.returncode, err), (128 + ending, ""))
        self.assertIn("no alarm stands", out)
        self.expect_nothing_left()

    def test_shows_a_program_that_is_descrambled_and_then_is_not(self):
        events = self.folder / "events"
        program = self.sample("--events", str(events))

        def states():
            return [(event["programs"], event["state"]) for event in lab.events_of(events)
                    if event["kind"] == "program_state"]
        lab.until(lambda: len(states()) > 1, "two states of programs")
        self.assertEqual(states(), [([101, 102, 103, 104], "descrambled"),
                                    ([102], "not descrambled")])
        self.expect_ends(program, signal.SIGTERM)

    def test_ends_what_it_started_on_ctrl_c(self):
        program = self.sample("--for", "3600")
        self.assertIn("ci-chassis probe rtp://", program.stdout.readline())
        self.assertIn("has begun", program.stdout.readline())
        self.expect_ends(program, signal.SIGINT)

    def test_tells_why_its_sender_has_ended(self):
        build = self.folder / "build"
        (build / "samples").mkdir(parents=True)
        (build / "ci-chassis").symlink_to(lab.BUILD / "ci-chassis")
        os.environ["BUILD"] = str(build)
        self.addCleanup(os.environ.update, BUILD=str(lab.BUILD))
        program = self.sample()
        _, err = program.communicate(timeout=lab.BOUND)
        self.assertEqual(program.returncode, 4)
        self.assertIn("the sender has ended", err)
        self.assertIn("headend.ts", err)
        self.expect_nothing_left()


def end_group(program):
    if program.poll() is None:
        os.killpg(program.pid, signal.SIGKILL)
        program.wait()


if __name__ == "__main__":
    lab.main()
