"""kelvane.Fixture and the module's helpers over the built library: a whole fixture cycle against
kelvane-sim, a controller written with pyzmq from docs/protocol.md alone, and what needs no
controller (the export list, the text helpers, an unreachable controller, finding the library,
reading a TEC line)."""
import contextlib
import ctypes.util
import json
import re
import subprocess
import sys
import threading
from pathlib import Path

import pytest
import zmq

import kelvane
from conftest import built
from kelvane import _library
from kelvane.simulator import SimMethod

HEADER = Path(__file__).resolve().parents[2] / "include" / "kelvane" / "kelvane.h"


def test_a_fixture_cycle_with_texts_no_replies_and_tec_readings(simulator, tmp_path):
    trace = tmp_path / "cycle.trace"
    with kelvane.Fixture("127.0.0.1", simulator.port, trace=trace, log="off") as fixture:
        assert fixture.connected and fixture.initial_fixture() and "done" in fixture.fixture_init()
        assert [fixture.tray_down(), fixture.tray_in(), fixture.position_sensors(), fixture.dut_sensor(),
                fixture.tray_down(), fixture.fixture_lock("ON"), fixture.set_fan_speed(3, 40),
                fixture.fan_speed(3)] == ["Please IN first!", "IN OK", "1;0;1;0", "dut_sensor_on", "DOWN OK",
                                          "Unknown state!", True, "40"]
        assert "done" in fixture.fixture_lock("on") and "done" in fixture.set_io(10, 1)
        state = simulator.control(SimMethod.STATE)
        assert (state["lock"], state["io"]["10"]) == ("on", 1)

        assert fixture.tec_record(1).endswith(",(null)\r\n")
        reading = fixture.tec_reading(2)
        assert reading.complete and reading.item is None, reading
        assert all(20 < sensor < 30 for sensor in reading.sensors) and reading.pwm < 0 < reading.current
        simulator.control(SimMethod.SET, {"tec_faults": [{"kind": "send_refused", "slot": 3, "times": 1}]})
        reading = fixture.tec_reading(3)
        assert (reading.missing, reading.sensors, reading.pwm) == (("sensor1",), (None,) * 4, None)

        simulator.control(SimMethod.SCRIPT, {"method": "vantrel.get_fan_speed", "action": "error",
                                         "error": {"code": 1, "message": "busy"}})
        assert fixture.fan_speed(3) is None, "no reply"
    assert not fixture.connected
    assert trace.read_text().count('"method":"vantrel.set_fan_speed"') == 1
    fixture.close()
    with pytest.raises(ValueError, match="closed"):
        fixture.tray_up()


def test_exports_helpers_lookup_and_an_unreachable_controller(monkeypatch):
    declared = set(re.findall(r"KELVANE_API\s+[^;(]*?\b(\w+)\s*\(", HEADER.read_text()))
    listing = subprocess.run(["nm", "-D", "--defined-only", built("KELVANE_LIBRARY")],
                             check=True, capture_output=True, text=True).stdout
    exported = {fields[2].split("@")[0] for fields in map(str.split, listing.splitlines())
                if len(fields) == 3 and fields[1] in ("T", "W", "i") and not fields[2].startswith("_")}
    assert len(declared) >= 18, "the header parse found too few functions"
    assert declared == exported == _library.EXPORTS, "header, library and package differ"

    assert [kelvane.string_from_hex(text) for text in ("414243", "", "41ff42")] == ["ABC", None, "A\ufffdB"]
    assert (kelvane.is_pure_float(" -1e-3 "), kelvane.is_pure_float("1.5V")) == (True, False)
    with pytest.raises(ValueError):
        kelvane.is_pure_float("1\0")
    with pytest.raises(ValueError, match="port"):
        kelvane.Fixture("127.0.0.1", 65536)

    monkeypatch.setenv("KELVANE_LIBRARY", "/nonexistent/libKelvane.so.0")
    with pytest.raises(kelvane.LibraryNotFound, match="KELVANE_LIBRARY=/nonexistent"):
        _library._open([])
    monkeypatch.delenv("KELVANE_LIBRARY")
    monkeypatch.setattr(_library, "FILE_NAMES", ("libKelvane-absent.so.0",))
    monkeypatch.setattr(ctypes.util, "find_library", lambda name: None)
    with pytest.raises(kelvane.LibraryNotFound) as failure:
        _library._open([])
    assert f"{sys.prefix}/lib/libKelvane-absent.so.0\n" in str(failure.value)
    assert str(failure.value).endswith("libKelvane-absent.so.0 through the system loader")

    # An item name may hold commas; a header is no reading.
    assert kelvane.parse_tec_record("01/02/2026 03:04:05.006,1,2,3,4,5,6,Soak, 2\r\n").item == "Soak, 2"
    with pytest.raises(ValueError):
        kelvane.parse_tec_record(kelvane.tec.CSV_HEADER)


def test_a_station_opens_every_fixture_of_a_range_and_closes_them_together(station):
    with kelvane.open_station(["127.0.2.2", "127.0.2.1-2"], station.port, log="off") as fixtures:
        assert [fixture.ip for fixture in fixtures] == ["127.0.2.1", "127.0.2.2"]
        assert [fixture.tray_in() for fixture in fixtures] == ["IN OK", "IN OK"]
    assert not any(fixture.connected for fixture in fixtures)
    with pytest.raises(kelvane.FixtureUnreachable, match="127.0.2.3:"):
        kelvane.open_station("127.0.2.1-3", station.port, log="off")
    with pytest.raises(ValueError, match="127.0.1.1-48"):
        kelvane.station_addresses(["127.0.2.1", "127.0.2.3-1"])


@contextlib.contextmanager
def controller(*replies):
    """A pyzmq REP controller on a free loopback port, served on a thread, answering with the reply
    bodies ({"result": ...} or {"error": {...}}) in turn, None falling silent for good; its port
    and the requests it took, with their frame counts."""
    context = zmq.Context()  # terminated at the end, which frees the port at once
    socket = context.socket(zmq.REP)
    socket.linger, requests, stop = 0, [], threading.Event()

    def serve():
        for reply in replies:
            while not socket.poll(50):
                if stop.is_set():
                    return
            frames = socket.recv_multipart()
            requests.append((len(frames), json.loads(frames[-1])))
            if reply is None:
                return
            socket.send(json.dumps({"jsonrpc": "2.0", "id": requests[-1][1]["id"], **reply}).encode())
    port = socket.bind_to_random_port("tcp://127.0.0.1")
    thread = threading.Thread(target=serve, daemon=True)
    thread.start()
    yield port, requests
    stop.set()
    thread.join(timeout=10)
    socket.close()
    context.term()


def test_a_pyzmq_controller_gets_requests_shaped_as_documented_and_a_silent_one_is_unreachable():
    with controller({"result": "normal"}, {"result": "fixture_init done"},
                    {"error": {"code": 5, "message": "done? no: jammed"}}) as (port, requests):
        with kelvane.Fixture("127.0.0.1", port) as fixture:
            assert fixture.connected
            assert (fixture.initial_fixture(), fixture.initial_fixture()) == (True, False), \
                "an error mentioning done is no success"
    frames, messages = zip(*requests)
    assert [m["method"] for m in messages] == ["server.mode"] + ["vantrel.fixture_init"] * 2
    assert set(frames) == {1}, "REP hides the delimiter: one JSON frame per request"
    ids = [m["id"] for m in messages]
    assert ids == sorted(set(ids)), "ids are unique and count up"
    assert {(m["jsonrpc"], str(m["params"]), "kwargs" in m) for m in messages} == {("2.0", "[]", False)}, \
        "kwargs only when keyword arguments are given"

    with controller(None) as (port, requests), pytest.raises(kelvane.FixtureUnreachable):
        kelvane.Fixture("127.0.0.1", port)
    assert [message["method"] for _, message in requests] == ["server.mode"]
