"""A station's test plan: a tray cycle, a TEC soak and rehearsed faults, each test run once per
fixture of the station.

    pytest examples/pytest --kelvane-sim 2                   # on the desk: two simulated fixtures
    pytest examples/pytest --kelvane-ip 10.0.1.20-27         # on the line: the station's eight

Every TEC reading lands in the JUnit XML (--junitxml) as a property tec.slot<N>. The rehearsed
faults need the simulator; against real fixtures they are skipped.
"""
import time

import pytest

from kelvane.simulator import SimMethod
from kelvane.tec import below_floor, sensors_apart

SLOTS = (1, 2)
SOAK_READINGS = 3
SOAK_PAUSE_SECONDS = 0.2


def test_tray_cycle(kelvane_fixture):
    assert kelvane_fixture.tray_up() == "UP OK"
    assert kelvane_fixture.tray_in() == "IN OK"
    assert kelvane_fixture.tray_down() == "DOWN OK"
    assert "done" in kelvane_fixture.fixture_lock("on")
    assert kelvane_fixture.position_sensors() == "1;0;0;1"  # IN;OUT;UP;DOWN
    assert "done" in kelvane_fixture.fixture_lock("off")
    assert kelvane_fixture.tray_up() == "UP OK"
    assert kelvane_fixture.tray_out() == "OUT OK"


@pytest.mark.parametrize("slot", SLOTS)
def test_tec_soak(kelvane_fixture, slot):
    """A few readings of the slot while it holds its set point: each complete, no sensor below
    the floor, sensors 1 to 3 agreeing."""
    for _ in range(SOAK_READINGS):
        reading = kelvane_fixture.tec_reading(slot)
        assert reading.complete, f"no answer for {reading.missing}"
        assert not below_floor(reading) and not sensors_apart(reading), reading.sensors
        time.sleep(SOAK_PAUSE_SECONDS)


def test_rehearsed_missing_dut_keeps_the_tray_up(kelvane_fixture, kelvane_sim):
    kelvane_sim.control(kelvane_fixture, SimMethod.SET, {"dut": False})
    assert kelvane_fixture.tray_up() == "UP OK" and kelvane_fixture.tray_in() == "IN OK"
    assert kelvane_fixture.dut_sensor() == "dut_sensor_off"
    assert kelvane_fixture.tray_down() == "Can not down,Because DUT state is not right!"
    assert kelvane_sim.control(kelvane_fixture, SimMethod.STATE)["tray"]["vertical"] == "UP"


def test_rehearsed_cold_sensor_is_caught(kelvane_fixture, kelvane_sim):
    kelvane_sim.control(kelvane_fixture, SimMethod.SET, {"tec_faults": [{"kind": "low_reading", "slot": 1}]})
    assert below_floor(kelvane_fixture.tec_reading(1)), "a sensor at 18 °C passed the floor check"
