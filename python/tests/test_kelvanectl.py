"""kelvanectl as a station engineer and a script use it: exit statuses, the one-line JSON reports,
the messages on standard error, the progress line that only a terminal gets, and the console's page
in headless Chromium on a station of two fixtures (KELVANE_CONSOLE_SCREENSHOT names where its
screenshot goes)."""
import contextlib
import functools
import json
import os
import pty
import re
import signal
import subprocess
import threading
import time

import pytest

from conftest import built, http_request, page_faults
from kelvane.simulator import SimMethod

UNREACHABLE = "cannot reach the fixture controller at 127.0.0.1:1 "
FIRST, SECOND = "127.0.2.1", "127.0.2.2"


def kelvanectl(*args, stderr=subprocess.PIPE):
    return subprocess.run([built("KELVANECTL"), *args], stdout=subprocess.PIPE, stderr=stderr, text=True, timeout=60)


def report(run):
    """A --json run's exit status and its one-line report."""
    return run.returncode, json.loads(run.stdout)


def test_unreachable_controller_exits_2_and_text_helpers_and_bad_usage_need_none():
    plain = kelvanectl("--port", "1", "tray-in")
    assert (plain.returncode, plain.stdout) == (2, "") and UNREACHABLE in plain.stderr
    status, line = report(kelvanectl("--json", "connect", "--port", "1"))
    assert (status, line["command"], line["result"], line["ok"]) == (2, "connect", 0, False)
    assert UNREACHABLE in line["error"]

    decoded = kelvanectl("hex", "414243")
    assert (decoded.returncode, decoded.stdout) == (0, "ABC\n")
    status, checked = report(kelvanectl("--json", "is-float", "1.5V"))
    assert (status, checked["result"], checked["ok"]) == (0, False, True)
    for usage in [(), ("hex", ""), ("lock", "ON"), ("fan", "set", "1"), ("--port", "0", "connect"), ("tec", "0"),
                  *(("--ip", bad, "sensors") for bad in ("127.0.2.3-1", "127.0.2.1-256", "127.0.2.1-", "x-3")),
                  ("--ip", "127.0.2.1-2", "hex", "41"), ("--ip", "127.0.2.1-2", "tec", "1", "--watch", "1")]:
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
    with contextlib.suppress(OSError), open(main, "rb", buffering=0) as reader:  # its other end closed: all read
        while chunk := reader.read(4096):
            shown += chunk
    assert (moved.returncode, moved.stdout.split(" (")[0]) == (0, "IN OK")
    assert b"tray-in" in shown and shown.endswith(b"\r\x1b[K"), shown

    moved = ctl("tray-out", "--json")
    assert (moved.returncode, moved.stderr) == (0, ""), "the library's log stays hidden without --log"
    line = report(moved)[1]
    assert list(line) == ["command", "result", "ok", "seconds"]
    assert list(line.values())[:3] == ["tray-out", "OUT OK", True]
    assert "Connect Fixture seccussful" in ctl("--log", "sensors").stderr

    assert [ctl("fan", "set", "3", "40").returncode, ctl("lock", "on").returncode] == [0, 0]
    state, fan = simulator.control(SimMethod.STATE), report(ctl("--json", "fan", "get", "3"))[1]["result"]
    assert (state["tray"]["horizontal"], state["fans"]["3"], state["lock"], fan) == ("OUT", 40, "on", "40")
    simulator.control(SimMethod.SCRIPT, {"method": "vantrel.fixture_up", "reply": "up_refused: jammed"},
                      {"method": "vantrel.set_fan_speed", "reply": "busy"})
    status, line = report(ctl("--json", "tray-up"))
    assert (status, line["ok"], line["result"]) == (1, False, "up_refused: jammed")
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
    result = report(ctl("--json", "tec", "2"))[1]["result"]
    assert list(result) == ["timestamp", "sensors", "pwm", "current", "item"]
    # The simulated TECs cool toward 25 °C from a warmer ambient: the PWM reads negative.
    assert all(20 < sensor < 30 for sensor in result["sensors"]) and result["pwm"] < 0 < result["current"], result
    simulator.control(SimMethod.SET, {"tec_faults": [{"kind": "send_refused", "slot": 3}]})
    status, line = report(ctl("--json", "tec", "3"))
    assert (status, line["result"]["missing"]) == (1, True)
    assert line["result"]["line"].endswith("(null),(null) get null value."), line

    with subprocess.Popen([built("KELVANECTL"), "--port", str(simulator.port), "tec", "1", "--watch", "0.2"],
                          stdout=subprocess.PIPE, text=True) as watch:
        readings = [watch.stdout.readline(), watch.stdout.readline()]
        watch.send_signal(signal.SIGINT)
        assert watch.wait(timeout=10) == 0
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


@pytest.fixture
def console(station):
    process = subprocess.Popen([built("KELVANECTL"), "--ip", f"{FIRST}-2", "--port", str(station.port), "console"],
                               stdout=subprocess.PIPE, text=True)
    line = process.stdout.readline()
    found = re.fullmatch(r"console at (http://127\.0\.0\.1:(\d+)/)#token=([0-9a-f]{64})\n", line)
    assert found, line
    process.url, process.http_port, process.token = line.split()[-1], int(found[2]), found[3]
    yield process
    process.kill()  # nothing, once Ctrl-C ended it
    process.wait()


def post(console, body, headers=None):
    """The status and the JSON answer of a POST /api/op of `body`, with the token as JSON unless told."""
    headers = {"X-Kelvane-Token": console.token, "Content-Type": "application/json"} if headers is None else headers
    return http_request(console.http_port, "POST", "/api/op", json.dumps(body), **headers)


def test_the_page_drives_one_fixture_refusals_change_nothing_and_ctrl_c_ends_it_mid_move(station, console, browser,
                                                                                     tmp_path):
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait

    until = lambda condition: WebDriverWait(browser, 10).until(lambda _: condition())
    find = lambda selector: browser.find_element(By.CSS_SELECTOR, selector)
    tray_in = {"fixture": FIRST, "op": "tray-in"}
    token, as_json = {"X-Kelvane-Token": console.token}, {"Content-Type": "application/json"}
    for headers in [as_json, {**token, **as_json, "Origin": "http://evil.example"},
                    {**token, "Content-Type": "application/x-www-form-urlencoded"}]:
        assert post(console, tray_in, headers)[0] == 403, headers
    for op, args, problem in [("bogus", [], "unknown op"), ("lock", ["maybe"], "state must be on or off"),
                              ("fan", ["set", 1], "fan set takes: fan, speed"), ("tec", [0], "slot must be 1 or more")]:
        status, answer = post(console, {"fixture": FIRST, "op": op, "args": args})
        assert status == 400 and problem in answer["error"], answer
    horizontal = lambda fixture: station.control("sim.state", fixture=fixture)["tray"]["horizontal"]

    browser.set_window_size(1100, 1400)
    browser.get(console.url)
    section = f'[data-fixture="{SECOND}"]'
    until(lambda: find(f'[data-open="{SECOND}"]')).click()
    tray = lambda: find(f"{section} .tray-group").get_attribute("data-state")
    result = lambda: find(f"{section} [data-result]").text
    history = lambda: find(f"{section} .history").text
    until(lambda: tray() == "OUT UP")
    find(f'{section} [data-op="tray-in"]').click()
    until(lambda: result() == "IN OK")
    assert (horizontal(1), horizontal(2)) == ("OUT", "IN")
    until(lambda: tray() == "IN UP")

    for reading in (1, 2):  # the second one adds to the history's line of the first
        find(f'{section} [data-op="tec"]').click()
        until(lambda: "(×2)" in history() if reading == 2 else result().endswith("(null)"))
    temperatures = [float(field) for field in result().split(",")[1:5]]
    assert len(temperatures) == 4 and all(15 < celsius < 40 for celsius in temperatures), result()
    browser.save_screenshot(os.environ.get("KELVANE_CONSOLE_SCREENSHOT", str(tmp_path / "console.png")))
    assert page_faults(browser) == []

    # A move that never ends (its sensor stalled): the page disables the fixture's move buttons
    # and a second move is refused; Ctrl-C still ends the console at once.
    station.control("sim.set", {"stall": "in"}, fixture=1)

    def move_in():
        with contextlib.suppress(OSError):  # the console ends before the move does
            post(console, tray_in)
    threading.Thread(target=move_in, daemon=True).start()
    button = find(f'[data-fixture="{FIRST}"] [data-op="tray-out"]')
    until(lambda: button.get_attribute("disabled"))
    status, answer = post(console, {"fixture": FIRST, "op": "tray-out"})
    assert status == 409 and "one move at a time" in answer["error"], answer
    started = time.monotonic()
    console.send_signal(signal.SIGINT)
    assert console.wait(timeout=5) == 0 and time.monotonic() - started < 1
