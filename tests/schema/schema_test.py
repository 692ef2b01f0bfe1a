"""What ci-chassis writes for programs fits its schemas, and says what really happened.

BUILD: the build, with the program and its sample streams.
"""
import copy
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ["BUILD"])
FAULTS = sorted(p for p in (ROOT / "samples/faults").iterdir() if p.suffix != ".expected")
EXIT_DONE = 0
NO_ENTITLEMENT = 0x20  # codes of the module
UNKNOWN = 0xEE


def validator(name):
    schema = json.loads((ROOT / "docs" / f"{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


EVENT = validator("events")
STATUS = validator("status")

# What no script of samples/faults brings about; the scripts of RARE do.
RARE = """
cardInsert 0, "{headend}", 2500000
progAssign 0, 101, 1
camInsert 0, 0, 0x0500
note "caf\u00e9 \\\\ \u65e5\u672c"
wait 12
camEntitle 0, 0, 103, 0
pidDrop 0, 0x1FFE, 1
camGarbage 0, 0, 1
progAssign 0, 102, 1
wait 12
camRemove 0, 0
wait 2
"""


class Run:
    """A run of the program, as fast as it goes."""

    def __init__(self, *arguments):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            events, status = folder / "events", folder / "status"
            done = subprocess.run(
                [BUILD / "ci-chassis", *arguments, "--events", events, "--status-json", status],
                cwd=ROOT / "samples", capture_output=True, text=True, check=False, timeout=120)
            assert done.returncode == EXIT_DONE, done.stderr
            self.timeline = done.stdout
            self.events = [json.loads(line) for line in events.read_text().splitlines()]
            self.status = json.loads(status.read_text())

    def of_kind(self, kind):
        return [event for event in self.events if event["kind"] == kind]


def written(text):
    with tempfile.NamedTemporaryFile("w", suffix=".script", delete=False) as file:
        file.write(text.format(headend=BUILD / "samples/headend.ts"))
    return file.name


class SchemaTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        rare = written(RARE)
        fast = "--speed", "max", "--script"
        cls.runs = {path.name: Run(*fast, path) for path in FAULTS}
        cls.runs["demo"] = Run("--debug", *fast, ROOT / "samples/demo")
        cls.runs["rare"] = Run(*fast, rare)
        cls.runs["probe"] = Run("probe", BUILD / "samples/headend.ts", ROOT / "samples/headend-clear.ts")
        os.unlink(rare)

    def test_every_event_fits(self):
        for name, run in self.runs.items():
            self.assertTrue(run.events, name)
            for event in run.events:
                errors = [error.message for error in EVENT.iter_errors(event)]
                self.assertEqual(errors, [], f"{name}: {event}")

    def test_events_are_counted_and_in_order(self):
        for name, run in self.runs.items():
            numbers = [event["number"] for event in run.events]
            self.assertEqual(numbers, list(range(1, len(numbers) + 1)), name)
            for key in ("chassis_ms", "time"):
                times = [event[key] for event in run.events]
                self.assertEqual(times, sorted(times), name)

    def test_every_status_fits(self):
        for name, run in self.runs.items():
            errors = [error.message for error in STATUS.iter_errors(run.status)]
            self.assertEqual(errors, [], name)
        self.assertTrue(any(run.status["alarms"] for run in self.runs.values()))
        self.assertTrue(any(run.status["cards"] for run in self.runs.values()))

    def test_the_schema_refuses_what_is_not_so(self):
        event = self.runs["demo"].of_kind("alarm_raised")[0]
        for broken in ({"fault": None}, {"alarm": "0"}, {"resets": 1}, {"kind": "alarm"},
                       {"number": 0}, {"time": "today"}, {"slot": 6}, {"unknown": 1}):
            self.assertFalse(EVENT.is_valid(event | broken), broken)
        for name in ("fault", "identifiers", "number", "what", "tone"):
            self.assertFalse(EVENT.is_valid({k: v for k, v in event.items() if k != name}), name)
        status = self.runs["demo"].status
        for change in (lambda s: s.update(extra=1), lambda s: s["cards"][0].pop("bitrate"),
                       lambda s: s["cards"][0]["cams"].pop(),
                       lambda s: s["cards"][0]["programs"][0]["pids"][0].update(pid=8192)):
            broken = copy.deepcopy(status)
            change(broken)
            self.assertFalse(STATUS.is_valid(broken))

    def test_each_kind_is_told_but_for_those_of_broken_files_and_cams(self):
        told = {event["kind"] for run in self.runs.values() for event in run.events}
        known = set(EVENT.schema["properties"]["kind"]["enum"])
        self.assertEqual(known - told, {
            # a person at the console; a script that judges otherwise
            "console_line", "not_as_expected",
            # a damaged file, and one that is no longer there; tables beyond their limits
            "stream_damaged", "stream_ended", "transport_errors", "tables_cut", "output_lost",
            # a FIFO in place of a file
            "writer_came", "writer_gone",
            # datagrams: no script has a network
            "sender_changed", "input_foreign", "buffer_small", "interface_gone", "interface_back",
            # streams that fall silent or lose something, and a run that had another speed
            "stream_silent", "stream_back", "input_lost", "went_live",
            # a receiver that is bad
            "streams_unmatched", "probe_unaligned", "reset_advised", "reset_command_failed",
            # what the module never does, or this CAM
            "ca_pmt_refused", "ca_pmt_incomplete", "ca_info_refused",
            "ca_info_unasked", "reply_refused", "reply_unasked", "reply_cut", "reply_changed",
            "cam_ignores"})

    def test_the_words_are_those_of_the_timeline(self):
        for name, run in self.runs.items():
            for event in run.events:
                if event["kind"] not in ("module_print", "module_debug"):
                    self.assertIn(event["what"], run.timeline, name)

    def test_a_lost_entitlement(self):
        run = self.runs["entitlement-lost"]
        lost = [e for e in run.of_kind("program_state") if e.get("cause") == "no entitlement"]
        self.assertTrue(lost)
        self.assertEqual((lost[0]["status"], lost[0]["state"], lost[0]["tone"]),
                         (NO_ENTITLEMENT, "not descrambled", "bad"))
        self.assertEqual(lost[0]["names"], ["Laboratory 2"])
        taken = next(e for e in run.of_kind("script_line") if e["what"].startswith("camEntitle"))
        self.assertIn(str(lost[0]["programs"][0]), taken["what"])
        self.assertGreater(lost[0]["chassis_ms"], taken["chassis_ms"])

    def test_an_alarm_that_is_cleared_has_the_number_it_was_raised_with(self):
        pairs = 0
        for name, run in self.runs.items():
            raised = {event["alarm"]: event for event in run.of_kind("alarm_raised")}
            cleared = run.of_kind("alarm_cleared")
            for event in cleared:
                first = raised[event["alarm"]]
                self.assertEqual(first["fault"], event["fault"], name)
                self.assertEqual(event["stood_ms"], event["chassis_ms"] - first["chassis_ms"])
                pairs += 1
            stand = set(raised) - {event["alarm"] for event in cleared}
            self.assertEqual(stand, {alarm["alarm"] for alarm in run.status["alarms"]}, name)
        self.assertGreater(pairs, 3)

    def test_the_status_has_what_the_last_events_said(self):
        cards = 0
        for name, run in self.runs.items():
            for card in run.status["cards"]:
                last = {}
                for event in run.of_kind("program_state"):
                    for program in event["programs"]:
                        if event["slot"] == card["slot"]:
                            last[program] = event
                for program in card["programs"]:
                    event = last.get(program["program"])
                    # Programs lose their status together with their CAM, whose line tells it.
                    if event is not None and program.get("status", UNKNOWN) != UNKNOWN:
                        self.assertEqual(program["status"], event["status"], name)
                        cards += 1
        self.assertGreater(cards, 20)

    def test_programs_have_the_names_of_the_stream(self):
        for name, run in self.runs.items():
            for card in run.status["cards"]:
                for program in card["programs"]:
                    self.assertEqual((program["name"], program["provider"]),
                                     (f"Laboratory {program['program'] - 100}", "Laboratory"), name)

    def test_a_person_s_text_comes_back_as_it_was(self):
        self.assertEqual(self.runs["rare"].of_kind("remark")[0]["what"],
                         "caf\u00e9 \\ \u65e5\u672c")


class StandardOutputTest(unittest.TestCase):
    @staticmethod
    def run_with(*arguments):
        return subprocess.run(
            [BUILD / "ci-chassis", "--script", ROOT / "samples/demo", "--speed", "max", *arguments],
            cwd=ROOT, capture_output=True, text=True, check=True, timeout=120).stdout

    def test_events_take_the_place_of_timeline_and_table(self):
        lines = self.run_with("--events", "-").splitlines()
        self.assertGreater(len(lines), 50)
        for line in lines:
            self.assertTrue(EVENT.is_valid(json.loads(line)), line)

    def test_so_does_the_status(self):
        status = json.loads(self.run_with("--status-json", "-"))
        self.assertTrue(STATUS.is_valid(status))
        self.assertEqual(status["chassis_ms"], 135000)


if __name__ == "__main__":
    unittest.main()
