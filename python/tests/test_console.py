"""kelvanectl console against a simulated station of two fixtures: the page in headless Chromium
moves the second fixture's tray and reads a TEC slot through the library; requests without the
token, from elsewhere or as a form are refused, bad operations named, a second move refused while
one runs; Ctrl-C ends it at once, a move under way or not. KELVANE_CONSOLE_SCREENSHOT names where
the page's screenshot goes."""
import contextlib
import http.client
import json
import os
import re
import signal
import subprocess
import threading
import time

import pytest

from conftest import built, page_faults

FIRST, SECOND = "127.0.2.1", "127.0.2.2"


@pytest.fixture
def console(station):
    process = subprocess.Popen([built("KELVANECTL"), "--ip", f"{FIRST}-2", "--port", str(station.port), "console"],
                               stdout=subprocess.PIPE, text=True)
    line = process.stdout.readline()
    found = re.fullmatch(r"console at (http://127\.0\.0\.1:(\d+)/)#token=([0-9a-f]{64})\n", line)
    assert found, line
    process.url, process.http_port, process.token = line.split()[-1], int(found[2]), found[3]
    yield process
    if process.poll() is None:
        process.kill()
    process.wait()


def post(console, body, **headers):
    """The status and the JSON answer of a POST /api/op."""
    connection = http.client.HTTPConnection("127.0.0.1", console.http_port, timeout=5)
    connection.request("POST", "/api/op", body=body, headers={"Host": f"127.0.0.1:{console.http_port}", **headers})
    reply = connection.getresponse()
    return reply.status, json.loads(reply.read() or "{}")


def test_the_page_drives_one_fixture_refusals_change_nothing_and_ctrl_c_ends_it_mid_move(station, console, browser,
                                                                                     tmp_path):
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait

    tray_in = json.dumps({"fixture": FIRST, "op": "tray-in"})
    token, as_json = {"X-Kelvane-Token": console.token}, {"Content-Type": "application/json"}
    for headers in [as_json, {**token, **as_json, "Origin": "http://evil.example"},
                    {**token, "Content-Type": "application/x-www-form-urlencoded"}]:
        assert post(console, tray_in, **headers)[0] == 403, headers
    for op, args, problem in [("bogus", [], "unknown op"), ("lock", ["maybe"], "state must be on or off"),
                              ("fan", ["set", 1], "fan set takes: fan, speed"), ("tec", [0], "slot must be 1 or more")]:
        status, answer = post(console, json.dumps({"fixture": FIRST, "op": op, "args": args}), **token, **as_json)
        assert status == 400 and problem in answer["error"], answer
    horizontal = lambda fixture: station.control("sim.state", fixture=fixture)["tray"]["horizontal"]

    browser.set_window_size(1100, 1400)
    browser.get(console.url)
    section = f'[data-fixture="{SECOND}"]'
    WebDriverWait(browser, 10).until(lambda _: browser.find_element(By.CSS_SELECTOR, f'[data-open="{SECOND}"]')).click()
    tray = lambda: browser.find_element(By.CSS_SELECTOR, f"{section} .tray-group").get_attribute("data-state")
    result = lambda: browser.find_element(By.CSS_SELECTOR, f"{section} [data-result]").text
    history = lambda: browser.find_element(By.CSS_SELECTOR, f"{section} .history").text
    WebDriverWait(browser, 10).until(lambda _: tray() == "OUT UP")
    browser.find_element(By.CSS_SELECTOR, f'{section} [data-op="tray-in"]').click()
    WebDriverWait(browser, 10).until(lambda _: result() == "IN OK")
    assert (horizontal(1), horizontal(2)) == ("OUT", "IN")
    WebDriverWait(browser, 10).until(lambda _: tray() == "IN UP")

    for reading in (1, 2):  # the second one adds to the history's line of the first
        browser.find_element(By.CSS_SELECTOR, f'{section} [data-op="tec"]').click()
        WebDriverWait(browser, 10).until(lambda _: "(×2)" in history() if reading == 2 else result().endswith("(null)"))
    temperatures = [float(field) for field in result().split(",")[1:5]]
    assert len(temperatures) == 4 and all(15 < celsius < 40 for celsius in temperatures), result()
    browser.save_screenshot(os.environ.get("KELVANE_CONSOLE_SCREENSHOT", str(tmp_path / "console.png")))
    assert page_faults(browser) == []

    # A move that never ends (its sensor stalled): the page disables the fixture's move buttons
    # and a second move is refused; Ctrl-C still ends the console at once.
    station.control("sim.set", {"stall": "in"}, fixture=1)

    def move_in():
        with contextlib.suppress(OSError):  # the console ends before the move does
            post(console, tray_in, **token, **as_json)
    threading.Thread(target=move_in, daemon=True).start()
    button = browser.find_element(By.CSS_SELECTOR, f'[data-fixture="{FIRST}"] [data-op="tray-out"]')
    WebDriverWait(browser, 10).until(lambda _: button.get_attribute("disabled"))
    status, answer = post(console, json.dumps({"fixture": FIRST, "op": "tray-out"}), **token, **as_json)
    assert status == 409 and "one move at a time" in answer["error"], answer
    started = time.monotonic()
    console.send_signal(signal.SIGINT)
    assert console.wait(timeout=5) == 0 and time.monotonic() - started < 1
