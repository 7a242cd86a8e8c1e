"""kelvanectl as a station engineer and a script use it: exit statuses, the one-line JSON
reports, the messages on standard error, and the progress line that only a terminal gets."""
import json
import os
import pty
import signal
import subprocess
import tempfile
import unittest

from kelvane_host import Simulator, required_path

UNREACHABLE = "cannot reach the fixture controller at 127.0.0.1:7805"


def kelvanectl(*args, stderr=subprocess.PIPE):
    return subprocess.run([required_path("KELVANECTL"), *args], stdout=subprocess.PIPE,
                          stderr=stderr, text=True, timeout=60)


class WithoutControllerTest(unittest.TestCase):
    def test_unreachable_controller_exits_2_and_text_helpers_and_bad_usage_need_none(self):
        plain = kelvanectl("tray-in")
        self.assertEqual((2, ""), (plain.returncode, plain.stdout))
        self.assertIn(UNREACHABLE, plain.stderr)
        report = kelvanectl("--json", "connect")
        line = json.loads(report.stdout)
        self.assertEqual((2, "connect", 0, False), (report.returncode, line["command"], line["result"], line["ok"]))
        self.assertIn(UNREACHABLE, line["error"])

        decoded = kelvanectl("hex", "414243")
        self.assertEqual((0, "ABC\n"), (decoded.returncode, decoded.stdout))
        checked = json.loads(kelvanectl("--json", "is-float", "1.5V").stdout)
        self.assertEqual((False, True), (checked["result"], checked["ok"]))
        for usage in [(), ("hex", ""), ("lock", "ON"), ("fan", "set", "1")]:
            self.assertEqual(64, kelvanectl(*usage).returncode, usage)


class WithSimulatorTest(unittest.TestCase):
    def setUp(self):
        self.sim = Simulator()
        self.addCleanup(self.sim.close)

    def test_json_reports_one_object_per_command_and_the_fixture_moves(self):
        moved = kelvanectl("tray-in", "--json")
        self.assertEqual((0, ""), (moved.returncode, moved.stderr), "the library's log stays hidden without --log")
        line = json.loads(moved.stdout)
        self.assertEqual(["command", "result", "ok", "seconds"], list(line))
        self.assertEqual(("tray-in", "IN OK", True), (line["command"], line["result"], line["ok"]))
        self.assertEqual("IN", self.sim.state()["tray"]["horizontal"])
        self.assertIn("Connect Fixture seccussful", kelvanectl("--log", "sensors").stderr)

        self.assertEqual(0, kelvanectl("fan", "set", "3", "40").returncode)
        self.assertEqual("40", json.loads(kelvanectl("--json", "fan", "get", "3").stdout)["result"])
        self.assertEqual(0, kelvanectl("lock", "on").returncode)
        self.assertEqual((40, "on"), (self.sim.state()["fans"]["3"], self.sim.state()["lock"]))

    def test_refusals_exit_1_and_say_what_the_fixture_answered(self):
        refused = kelvanectl("tray-down")
        self.assertEqual(1, refused.returncode)
        self.assertIn("Please IN first!", refused.stderr)
        self.sim.control("sim.script", {"method": "vantrel.fixture_up", "reply": "up_refused: jammed"},
                         {"method": "vantrel.set_fan_speed", "reply": "busy"})
        jammed = kelvanectl("--json", "tray-up")
        line = json.loads(jammed.stdout)
        self.assertEqual((1, False, "up_refused: jammed"), (jammed.returncode, line["ok"], line["result"]))
        self.assertEqual(1, kelvanectl("fan", "set", "1", "10").returncode)

        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        trace = os.path.join(folder.name, "refusals.trace")
        self.assertEqual(1, kelvanectl("--trace", trace, "tray-down").returncode)
        self.sim.control("sim.script", {"method": "vantrel.get_fan_speed", "action": "error",
                                        "error": {"code": 5, "message": "fan gone"}})
        self.assertEqual(1, kelvanectl("fan", "get", "2", "--trace", trace).returncode)
        timeline = kelvanectl("trace", trace).stdout.splitlines()
        self.assertRegex(timeline[0], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z server\.mode +\[\] +result ")
        self.assertRegex(timeline[-1], r"vantrel\.get_fan_speed +\[2\] +error .* 5 fan gone$")
        stats = {line.split()[0]: line.split()[1:4] for line in kelvanectl("trace", trace, "--stats").stdout.splitlines()}
        self.assertEqual(["2", "0", "0"], stats["server.mode"])
        self.assertEqual(["1", "1", "0"], stats["vantrel.get_fan_speed"])

    def test_tec_reading_plain_split_missing_and_watched_until_ctrl_c(self):
        plain = kelvanectl("tec", "1")
        fields = plain.stdout.rstrip("\n").split(",")
        self.assertEqual((0, 8, "(null)"), (plain.returncode, len(fields), fields[7]), plain.stdout)
        result = json.loads(kelvanectl("--json", "tec", "2").stdout)["result"]
        self.assertEqual(["timestamp", "sensors", "pwm", "current", "item"], list(result))
        self.assertTrue(all(20 < sensor < 30 for sensor in result["sensors"]), result)
        self.sim.control("sim.set", {"tec_faults": [{"kind": "send_refused", "slot": 3}]})
        missing = kelvanectl("--json", "tec", "3")
        line = json.loads(missing.stdout)
        self.assertEqual((1, True), (missing.returncode, line["result"]["missing"]))
        self.assertTrue(line["result"]["line"].endswith("(null),(null) get null value."), line)

        watch = subprocess.Popen([required_path("KELVANECTL"), "tec", "1", "--watch", "0.2"],
                                 stdout=subprocess.PIPE, text=True)
        readings = [watch.stdout.readline(), watch.stdout.readline()]
        watch.send_signal(signal.SIGINT)
        self.assertEqual(0, watch.wait(timeout=10))
        watch.stdout.close()
        self.assertNotEqual(readings[0][:23], readings[1][:23], "two readings, two time stamps")

    def test_progress_line_on_a_terminal_is_wiped_when_the_move_ends(self):
        main, terminal = pty.openpty()
        moved = kelvanectl("tray-in", stderr=terminal)
        os.close(terminal)
        shown = b""
        try:
            while chunk := os.read(main, 4096):
                shown += chunk
        except OSError:  # the terminal's other end is closed: all read
            pass
        os.close(main)
        self.assertEqual((0, "IN OK"), (moved.returncode, moved.stdout.split(" (")[0]))
        self.assertIn(b"tray-in", shown)
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown)


if __name__ == "__main__":
    unittest.main(verbosity=2)
