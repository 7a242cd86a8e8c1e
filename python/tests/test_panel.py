"""kelvane-sim's live panel (--http): the page in headless Chromium follows a fixture cycle run
through the library, its controls reach the fixture, and control posts from elsewhere are refused.
KELVANE_PANEL_SCREENSHOT names where the page's screenshot goes (docs/images/panel.png)."""
import json
import os
import re

import pytest

import kelvane
from conftest import PACKAGE, Simulator, http_request, page_faults
from kelvane.simulator import SimMethod


@pytest.fixture
def panel():
    sim = Simulator("--http", "0", "--tec-slots", "2")
    line = sim.process.stdout.readline().decode()
    found = re.fullmatch(r"panel at (http://127\.0\.0\.1:(\d+)/)\n", line)
    assert found, line
    sim.url, sim.http_port = found[1], int(found[2])
    yield sim
    sim.close()


def test_the_control_method_names_are_the_ones_the_simulator_takes():
    header = PACKAGE.parent / "src" / "protocol" / "include" / "kelvane" / "protocol" / "sim_methods.hpp"
    named = re.findall(r'^inline constexpr std::string_view \w+ = "(sim\.\w+)";$', header.read_text(), re.M)
    assert sorted(named) == sorted(SimMethod.ALL) and len(named) > 5


def test_foreign_control_posts_are_refused_bad_bodies_named_and_no_http_thread_without_it(panel, simulator):
    if os.path.isdir(f"/proc/{simulator.process.pid}/task"):  # Linux: without --http, no HTTP threads
        threads = lambda sim: len(os.listdir(f"/proc/{sim.process.pid}/task"))
        assert threads(simulator) == 3 < threads(panel)
    own, json_type = f"127.0.0.1:{panel.http_port}", {"Content-Type": "application/json"}
    post = lambda body, **headers: http_request(panel.http_port, "POST", "/api/control", body, **headers)
    remove_dut = json.dumps({"fixture": 1, "method": SimMethod.SET, "params": {"dut": False}})
    for headers in [{**json_type, "Origin": "http://evil.example"},
                    {**json_type, "Host": f"evil.example:{panel.http_port}"}, {"Content-Type": "text/plain"}]:
        assert post(remove_dut, **headers)[0] == 403, headers
    for body, problem in [("{", "not JSON"), (json.dumps({"fixture": 2, "method": SimMethod.RESET}), "1 to 1"),
                          ('{"fixture": 1, "method": "vantrel.fixture_in"}', "sim.")]:
        status, answer = post(body, Host=own, **json_type)
        assert status == 400 and problem in answer["error"], answer
    assert http_request(panel.http_port, "GET", f"/api/control?fixture=1&method={SimMethod.RESET}")[0] == 404
    status, fixtures = http_request(panel.http_port, "GET", "/api/fixtures")
    assert status == 200 and fixtures[0]["state"]["dut"] is True and fixtures[0]["address"].startswith("127.0.0.1:")


def test_the_page_follows_a_cycle_and_its_controls_reach_the_fixture(panel, browser, tmp_path):
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait

    browser.get(panel.url)
    until = lambda condition: WebDriverWait(browser, 10).until(lambda _: condition())
    tray = lambda: browser.find_element(By.ID, "tray").get_attribute("data-state")
    until(lambda: tray() == "OUT UP")
    with kelvane.Fixture("127.0.0.1", panel.port, log="off") as fixture:
        assert fixture.initial_fixture() and "done" in fixture.fixture_init() and fixture.tray_in() == "IN OK"
        until(lambda: tray() == "IN UP")
        button = browser.find_element(By.ID, "dut-toggle")
        for shown, sensor, after in [("Remove DUT", "dut_sensor_on", "Insert DUT"),
                                     ("Insert DUT", "dut_sensor_off", "Remove DUT")]:
            assert (button.text, fixture.dut_sensor()) == (shown, sensor)
            button.click()
            until(lambda: button.text == after)
        assert fixture.tray_down() == "DOWN OK" and "done" in fixture.fixture_lock("on")
        fixture.set_fan_speed(1, 60)
        panel.control("vantrel.led_blink_control", "STATUS", "GREEN")
        for _ in range(4):
            fixture.tec_reading(1), fixture.tec_reading(2)
        until(lambda: tray() == "IN DOWN")
    browser.find_element(By.ID, "tec-low").click()
    until(lambda: "low_reading" in browser.find_element(By.ID, "tec").text)
    browser.save_screenshot(os.environ.get("KELVANE_PANEL_SCREENSHOT", str(tmp_path / "panel.png")))
    assert page_faults(browser) == []
