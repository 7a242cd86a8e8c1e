"""kelvanectl as a station engineer and a script use it: exit statuses, the one-line JSON
reports, the messages on standard error, and the progress line that only a terminal gets."""
import functools
import json
import os
import pty
import re
import signal
import subprocess

from conftest import built
from kelvane.simulator import SimMethod

UNREACHABLE = "cannot reach the fixture controller at 127.0.0.1:1 "


def kelvanectl(*args, stderr=subprocess.PIPE):
    return subprocess.run([built("KELVANECTL"), *args], stdout=subprocess.PIPE,
                          stderr=stderr, text=True, timeout=60)


def test_unreachable_controller_exits_2_and_text_helpers_and_bad_usage_need_none():
    plain = kelvanectl("--port", "1", "tray-in")
    assert (plain.returncode, plain.stdout) == (2, "") and UNREACHABLE in plain.stderr
    report = kelvanectl("--json", "connect", "--port", "1")
    line = json.loads(report.stdout)
    assert (report.returncode, line["command"], line["result"], line["ok"]) == (2, "connect", 0, False)
    assert UNREACHABLE in line["error"]

    decoded = kelvanectl("hex", "414243")
    assert (decoded.returncode, decoded.stdout) == (0, "ABC\n")
    checked = json.loads(kelvanectl("--json", "is-float", "1.5V").stdout)
    assert (checked["result"], checked["ok"]) == (False, True)
    for usage in [(), ("hex", ""), ("lock", "ON"), ("fan", "set", "1"), ("--port", "0", "connect"), ("tec", "0")]:
        assert kelvanectl(*usage).returncode == 64, usage
    unknown = kelvanectl("--ip", "127.0.0.1", "tray-frobnicate")
    assert (unknown.returncode, unknown.stderr.splitlines()[0]) == (64, "unknown command tray-frobnicate")


def test_reports_refusals_traces_tec_readings_and_the_progress_line_against_the_simulator(simulator, tmp_path):
    ctl = functools.partial(kelvanectl, "--port", str(simulator.port))

    refused = ctl("tray-down")
    assert refused.returncode == 1 and "Please IN first!" in refused.stderr

    # On a terminal a progress line shows while the tray moves, and is wiped when it ends.
    main, terminal = pty.openpty()
    moved = ctl("tray-in", stderr=terminal)
    os.close(terminal)
    shown = b""
    try:
        while chunk := os.read(main, 4096):
            shown += chunk
    except OSError:  # the terminal's other end is closed: all read
        pass
    os.close(main)
    assert (moved.returncode, moved.stdout.split(" (")[0]) == (0, "IN OK")
    assert b"tray-in" in shown and shown.endswith(b"\r\x1b[K"), shown

    moved = ctl("tray-out", "--json")
    assert (moved.returncode, moved.stderr) == (0, ""), "the library's log stays hidden without --log"
    line = json.loads(moved.stdout)
    assert list(line) == ["command", "result", "ok", "seconds"]
    assert (line["command"], line["result"], line["ok"]) == ("tray-out", "OUT OK", True)
    assert simulator.control(SimMethod.STATE)["tray"]["horizontal"] == "OUT"
    assert "Connect Fixture seccussful" in ctl("--log", "sensors").stderr

    assert ctl("fan", "set", "3", "40").returncode == 0
    assert json.loads(ctl("--json", "fan", "get", "3").stdout)["result"] == "40"
    assert ctl("lock", "on").returncode == 0
    state = simulator.control(SimMethod.STATE)
    assert (state["fans"]["3"], state["lock"]) == (40, "on")
    simulator.control(SimMethod.SCRIPT, {"method": "vantrel.fixture_up", "reply": "up_refused: jammed"},
                      {"method": "vantrel.set_fan_speed", "reply": "busy"})
    jammed = ctl("--json", "tray-up")
    line = json.loads(jammed.stdout)
    assert (jammed.returncode, line["ok"], line["result"]) == (1, False, "up_refused: jammed")
    assert ctl("fan", "set", "1", "10").returncode == 1

    trace = str(tmp_path / "refusals.trace")
    assert ctl("--trace", trace, "tray-down").returncode == 1
    simulator.control(SimMethod.SCRIPT, {"method": "vantrel.get_fan_speed", "action": "error",
                                     "error": {"code": 5, "message": "fan gone"}})
    assert ctl("fan", "get", "2", "--trace", trace).returncode == 1
    timeline = ctl("trace", trace).stdout.splitlines()
    assert re.match(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z server\.mode +\[\] +result ", timeline[0])
    assert re.search(r"vantrel\.get_fan_speed +\[2\] +error .* 5 fan gone$", timeline[-1])
    stats = {line.split()[0]: line.split()[1:4] for line in ctl("trace", trace, "--stats").stdout.splitlines()}
    assert stats["server.mode"] == ["2", "0", "0"] and stats["vantrel.get_fan_speed"] == ["1", "1", "0"]

    plain = ctl("tec", "1")
    fields = plain.stdout.rstrip("\n").split(",")
    assert (plain.returncode, len(fields), fields[7]) == (0, 8, "(null)"), plain.stdout
    result = json.loads(ctl("--json", "tec", "2").stdout)["result"]
    assert list(result) == ["timestamp", "sensors", "pwm", "current", "item"]
    # The simulated TECs cool toward 25 °C from a warmer ambient: the PWM reads negative.
    assert all(20 < sensor < 30 for sensor in result["sensors"]) and result["pwm"] < 0 < result["current"], result
    simulator.control(SimMethod.SET, {"tec_faults": [{"kind": "send_refused", "slot": 3}]})
    missing = ctl("--json", "tec", "3")
    line = json.loads(missing.stdout)
    assert (missing.returncode, line["result"]["missing"]) == (1, True)
    assert line["result"]["line"].endswith("(null),(null) get null value."), line

    watch = subprocess.Popen([built("KELVANECTL"), "--port", str(simulator.port), "tec", "1", "--watch", "0.2"],
                             stdout=subprocess.PIPE, text=True)
    readings = [watch.stdout.readline(), watch.stdout.readline()]
    watch.send_signal(signal.SIGINT)
    assert watch.wait(timeout=10) == 0
    watch.stdout.close()
    assert readings[0][:23] != readings[1][:23], "two readings, two time stamps"


def test_a_station_runs_each_fixture_once_in_address_order_with_the_worst_status(station):
    ctl = functools.partial(kelvanectl, "--port", str(station.port))
    # Mixed, overlapping and out of order; 127.0.2.3 has no fixture.
    every = ctl("--ip", "127.0.2.2", "--ip", "127.0.2.1-3", "--json", "tray-in")
    assert every.returncode == 2, every.stderr
    assert [(line["ip"], line["result"]) for line in map(json.loads, every.stdout.splitlines())] == [
        ("127.0.2.1", "IN OK"), ("127.0.2.2", "IN OK"), ("127.0.2.3", None)]
    assert f"kelvanectl: 127.0.2.3: tray-in: cannot reach the fixture controller at 127.0.2.3:{station.port} " in every.stderr

    assert ctl("--ip", "127.0.2.2", "tray-out").stdout.startswith("OUT OK"), "one fixture: no address"
    mixed = ctl("--ip", "127.0.2.1-2", "tray-in")
    assert (mixed.returncode, mixed.stdout.split(" (")[0]) == (1, "127.0.2.2: IN OK")
    assert "kelvanectl: 127.0.2.1: tray-in: the fixture refused: " in mixed.stderr

    for usage in [("127.0.2.3-1", "sensors"), ("127.0.2.1-256", "sensors"), ("127.0.2.1-", "sensors"),
                  ("x-3", "sensors"), ("127.0.2.1-2", "hex", "41"), ("127.0.2.1-2", "tec", "1", "--watch", "1")]:
        assert ctl("--ip", *usage).returncode == 64, usage
