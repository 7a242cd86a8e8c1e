"""The pytest plugin as a plan's author meets it: the example plan run twice at once on simulators
of its own, runs without fixtures, with an unreachable one or a simulator that does not start,
the ini keys and an interrupted run, and the plugin found through the installed package."""
import os
import re
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

import kelvane
from conftest import without_source_tree

EXAMPLE = Path(__file__).resolve().parents[2] / "examples" / "pytest"
PLAN = '''
import time, pytest
from kelvane.simulator import SimMethod
def test_fixture(kelvane_fixture): pass
def test_station(kelvane_station): pass
def test_fault(kelvane_sim): kelvane_sim.control(1, SimMethod.SET, {"dut": False})
def test_after_the_fault(kelvane_fixture, kelvane_sim):
    assert kelvane_fixture.dut_sensor() == "dut_sensor_on"
    with pytest.raises(RuntimeError, match='sim.set to fixture 1: .*unknown setting'):
        kelvane_sim.control(1, SimMethod.SET, {"x": 1})
def test_waiting(kelvane_sim):
    open("sim.pid", "w").write(str(kelvane_sim.process.pid))
    time.sleep(120)
'''


def pytest_run(folder, *arguments, python=sys.executable, **popen):
    """pytest started in `folder`, its output piped."""
    return subprocess.Popen([python, "-m", "pytest", "-p", "no:cacheprovider", "-rs", *arguments],
                            cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **popen)


def finished(run, timeout=240):
    """The run's exit status and output, once it ended."""
    output = run.communicate(timeout=timeout)[0]
    return run.returncode, output


def test_the_example_plan_twice_at_once_with_readings_failed_checks_and_traces(tmp_path):
    runs = [pytest_run(tmp_path, EXAMPLE, "-p", "kelvane.pytest_plugin", "--kelvane-sim", "2", "-rP",
                       f"--junitxml={tmp_path}/run{n}.xml", f"--kelvane-trace={tmp_path}/traces{n}")
            for n in (1, 2)]
    ports = set()
    for n, run in enumerate(runs, 1):
        status, output = finished(run)
        assert status == 0, output
        header = re.search(r"kelvane: fixtures 127\.0\.1\.1:(\d+) \(connect flag 1\), "
                           r"127\.0\.1\.2:(\d+) \(connect flag 1\)", output)
        ports.update(header.groups())
        assert f"kelvane: simulator KELVANE_SIM={os.environ['KELVANE_SIM']}, 2 fixtures, panel at http://" in output
        assert re.search(r"Captured kelvane call -+\n127\.0\.1\.2:\d+ slot 1: a sensor below 21.5 °C and sensors 1 to 3 "
                         r"more than 3 °C apart: \S", output)

        cases = {case.get("name"): case for case in ElementTree.parse(tmp_path / f"run{n}.xml").iter("testcase")}
        assert len(cases) == 10, list(cases)
        soak = [(item.get("name"), item.get("value")) for item in cases["test_tec_soak[127.0.1.2-2]"].iter("property")]
        assert [name for name, _ in soak] == ["tec.slot2"] * 3
        assert all(kelvane.parse_tec_record(line).complete for _, line in soak)
        cold = next(cases["test_rehearsed_cold_sensor_is_caught[127.0.1.1]"].iter("property"))
        assert kelvane.tec.below_floor(kelvane.parse_tec_record(cold.get("value")))

        traces = {path.name: path for path in (tmp_path / f"traces{n}").iterdir()}
        assert len(traces) == 10, "one per test, none left of the run's own"
        for address in ("127.0.1.1", "127.0.1.2"):  # the first test, and one after another
            calls = traces[f"test_station_plan.py_test_tray_cycle[{address}].trace"].read_text().splitlines()
            assert '"vantrel.fixture_up"' in calls[0] and any('"vantrel.fixture_down"' in call for call in calls)
            assert all(f'"tcp://{address}:' in call for call in calls), "the test's calls and no others"
    assert len(ports) == 4, "each run's fixtures on ports of their own"


def test_runs_without_fixtures_unreachable_ones_a_missing_simulator_and_bad_usage(tmp_path, installed_package):
    (tmp_path / "test_plan.py").write_text(PLAN)
    run = lambda *arguments, **popen: finished(pytest_run(tmp_path, "-p", "kelvane.pytest_plugin", *arguments, **popen))
    status, output = run("test_plan.py::test_fixture", "test_plan.py::test_station")
    assert status == 0 and output.count("skipped") == 1, output
    assert output.count("SKIPPED [1] test_plan.py:") == output.count("name a station's with --kelvane-ip ADDRESS") == 2

    status, output = run("test_plan.py::test_fixture", "test_plan.py::test_station", "--kelvane-ip", "127.0.0.1",
                         "--kelvane-port", "1")
    assert status == 1 and "kelvane: fixtures 127.0.0.1:1 (connect flag 0)" in output, output
    assert output.count("cannot reach the fixture controller at 127.0.0.1:1 (is it powered") == 2
    assert "ERROR at setup of test_fixture[127.0.0.1]" in output

    status, output = run("--kelvane-sim", "1", env=dict(os.environ, KELVANE_SIM="/nonexistent/kelvane-sim"))
    assert status == 4 and "--kelvane-sim: KELVANE_SIM=/nonexistent/kelvane-sim could not be run" in output
    for usage in [("--kelvane-ip", "127.0.1.3-1"), ("--kelvane-ip", "127.0.0.1", "--kelvane-sim", "1"),
                  ("--kelvane-sim", "0"), ("--kelvane-sim", "1", "--kelvane-port", "7805")]:
        status, output = run(*usage)
        assert status == 4 and "ERROR: --kelvane-" in output, (usage, output)

    for off, shown in [((), True), (("-p", "no:kelvane"), False)]:
        status, output = finished(pytest_run(tmp_path, *off, "--help", python=installed_package / "bin" / "python",
                                             env=without_source_tree()))
        assert status == 0 and ("--kelvane-sim=N" in output) == shown, output


def test_the_ini_keys_a_reset_after_a_rehearsed_fault_and_a_run_ended_by_sigterm(tmp_path):
    (tmp_path / "test_plan.py").write_text(PLAN)
    (tmp_path / "pytest.ini").write_text("[pytest]\nkelvane_sim = 1\n")
    run = pytest_run(tmp_path, "-p", "kelvane.pytest_plugin", *(f"test_plan.py::test_{name}" for name in
                                                                 ("fault", "after_the_fault", "waiting")))
    pid = tmp_path / "sim.pid"
    for _ in range(600):
        if run.poll() is not None or (pid.exists() and pid.read_text()):
            break
        time.sleep(0.1)
    simulator = int(pid.read_text())
    run.send_signal(signal.SIGTERM)
    status, output = finished(run, 30)
    with pytest.raises(ProcessLookupError):  # the simulator did not outlive the run
        os.kill(simulator, signal.SIGKILL)
    assert status == 2 and "2 passed" in output, output
