"""The kelvane pytest plugin: a station's test plan written as pytest tests, run against the
station's fixtures or against kelvane-sim (docs/pytest.md).

Installing the package registers it (its pytest11 entry point); `-p no:kelvane` turns it off. It
does nothing unless the run names fixtures (--kelvane-ip or --kelvane-sim, or their ini keys) or
a test asks for one of its fixtures.
"""
from __future__ import annotations

import contextlib
import os
import re
import signal
import tempfile
import threading
from pathlib import Path
from typing import Iterator, List, Optional, Tuple, Union

import pytest

from kelvane.fixture import CONTROLLER_PORT, Fixture, reading_observers
from kelvane.simulator import SimMethod, Simulator, SimulatorNotStarted
from kelvane.station import Station, open_each, station_addresses
from kelvane.tec import AGREEMENT_BAND_CELSIUS, FLOOR_CELSIUS, TecRecord, below_floor, sensors_apart

RUN = "kelvane-run"
NO_FIXTURES = ("no fixtures to test: name a station's with --kelvane-ip ADDRESS (or the kelvane_ip "
               "ini key), or start N simulated ones with --kelvane-sim N")
OPTIONS = (("ip", "ADDRESS", "a fixture controller's address, or a range of its last octet "
            "(127.0.1.1-8); repeatable"),
           ("port", "PORT", f"the fixture controllers' port with --kelvane-ip (default {CONTROLLER_PORT})"),
           ("sim", "N", "start kelvane-sim (KELVANE_SIM, else from PATH) with N fixtures on free "
            "loopback ports for the run"),
           ("trace", "DIR", "write each test's controller calls to DIR/<test>.trace"))
MOST_SIMULATED = 64  # kelvane-sim's limit
CHECKS = ((below_floor, f"a sensor below {FLOOR_CELSIUS:g} °C"),
          (sensors_apart, f"sensors 1 to 3 more than {AGREEMENT_BAND_CELSIUS:g} °C apart"))


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("kelvane", "Kelvane fixtures (see docs/pytest.md)")
    for name, metavar, text in OPTIONS:
        group.addoption(f"--kelvane-{name}", metavar=metavar, help=text,
                        action="append" if name == "ip" else "store")
        parser.addini(f"kelvane_{name}", text, type="args" if name == "ip" else None)


def pytest_configure(config: pytest.Config) -> None:
    ips, fixtures, port, trace = _settings(config)
    if not (ips or fixtures):
        return
    if ips and fixtures:
        raise pytest.UsageError("--kelvane-ip and --kelvane-sim: give one of them")
    if fixtures and port:
        raise pytest.UsageError("--kelvane-port goes with --kelvane-ip: simulated fixtures take free ports")
    try:
        addresses = station_addresses(ips or [])
    except ValueError as error:
        raise pytest.UsageError(f"--kelvane-ip: {error}") from None
    run = KelvaneRun(addresses, _whole("port", port or CONTROLLER_PORT, 65535),
                     _whole("sim", fixtures, MOST_SIMULATED), Path(trace) if trace else None)
    config.pluginmanager.register(run, RUN)
    config.add_cleanup(run.close)
    if fixtures:
        _stop_on_sigterm(config)


def _settings(config: pytest.Config) -> Tuple[List[str], Optional[str], Optional[str], Optional[str]]:
    """ips, sim, port and trace: from the command line, else from the ini file. Fixtures named on
    the command line (ips or sim) replace those the ini file names."""
    def line(name):
        return config.getoption(f"kelvane_{name}")

    def ini(name):
        return config.getini(f"kelvane_{name}") or None

    named = line if line("ip") or line("sim") else ini
    return named("ip"), named("sim"), line("port") or ini("port"), line("trace") or ini("trace")


def _whole(name: str, text: Union[str, int, None], most: int) -> Optional[int]:
    if text is None:
        return None
    if not (str(text).isdigit() and 1 <= int(text) <= most):
        raise pytest.UsageError(f"--kelvane-{name} takes a whole number from 1 to {most}, not {text!r}")
    return int(text)


def _stop_on_sigterm(config: pytest.Config) -> None:
    """A run ended by SIGTERM (a job cancelled) ends as one interrupted by Ctrl-C does, stopping its
    simulator, rather than leaving it running."""
    main = threading.current_thread() is threading.main_thread()  # where signals are handled
    if main and signal.getsignal(signal.SIGTERM) is signal.SIG_DFL:
        signal.signal(signal.SIGTERM, _interrupt)
        config.add_cleanup(lambda: signal.signal(signal.SIGTERM, signal.SIG_DFL))


def _interrupt(signal_number, frame) -> None:
    raise KeyboardInterrupt


@contextlib.contextmanager
def _output_dropped(config: pytest.Config) -> Iterator[None]:
    """The library's log of opening the fixtures would land amid the run's header: it is captured
    and dropped, where pytest captures output."""
    capture = config.pluginmanager.getplugin("capturemanager")
    if capture is None:
        yield
        return
    capture.resume_global_capture()
    try:
        yield
    finally:
        capture.suspend_global_capture()
        capture.read_global_capture()


class KelvaneRun:
    """The fixtures of one run (a station's, or those of a simulator started for it), opened at its
    start and closed at its end, and what its tests record: TEC readings and controller calls."""

    def __init__(self, addresses: List[str], port: int, simulated: Optional[int],
                 trace_folder: Optional[Path]) -> None:
        self.addresses, self.port, self.simulated = addresses, port, simulated
        self.trace_folder = trace_folder
        self.sim: Optional[Simulator] = None
        self.endpoints: List[Tuple[str, int]] = []
        self.opened: List[Union[Fixture, BaseException]] = []
        self.run_trace: Optional[Path] = None
        self.test: Optional[pytest.Item] = None
        self.failed_checks: List[str] = []

    @pytest.hookimpl(tryfirst=True)  # before the header is written
    def pytest_sessionstart(self, session: pytest.Session) -> None:
        if self.simulated:
            try:
                self.sim = Simulator(self.simulated)
            except SimulatorNotStarted as error:
                raise pytest.UsageError(f"--kelvane-sim: {error}") from None
            self.endpoints = self.sim.endpoints
            self.addresses = [address for address, _ in self.endpoints]
        else:
            self.endpoints = [(address, self.port) for address in self.addresses]
        options = {}
        if self.trace_folder:
            # The fixtures trace into one file of this run; each test's lines move to a file of its own.
            self.trace_folder.mkdir(parents=True, exist_ok=True)
            handle, name = tempfile.mkstemp(".trace", ".kelvane-run-", self.trace_folder)
            os.close(handle)
            self.run_trace = options["trace"] = Path(name)
        with _output_dropped(session.config):
            self.opened = open_each(self.endpoints, **options)
        if self.run_trace:
            os.truncate(self.run_trace, 0)  # each test's trace holds its own calls only

    def pytest_report_header(self) -> List[str]:
        lines = [f"kelvane: simulator {self.sim.program}, {self.simulated} fixture"
                 f"{'s' if self.simulated > 1 else ''}, panel at {self.sim.panel}"] if self.sim else []
        flags = [f"{address}:{port} (connect flag {int(isinstance(opened, Fixture) and opened.connected)})"
                 for (address, port), opened in zip(self.endpoints, self.opened)]
        lines.append("kelvane: fixtures " + ", ".join(flags))
        if self.trace_folder:
            lines.append(f"kelvane: each test's trace in {self.trace_folder}")
        return lines

    def pytest_generate_tests(self, metafunc: pytest.Metafunc) -> None:
        if "kelvane_fixture" in metafunc.fixturenames:
            metafunc.parametrize("kelvane_fixture", self.addresses, indirect=True, ids=self.addresses)

    def station(self) -> Station:
        for opened in self.opened:
            if not isinstance(opened, Fixture):
                raise opened.with_traceback(None)
        return Station(self.opened)

    def fixture(self, address: str) -> Fixture:
        opened = self.opened[self.addresses.index(address)]
        if not isinstance(opened, Fixture):
            raise opened.with_traceback(None)
        return opened

    @pytest.hookimpl(hookwrapper=True)
    def pytest_runtest_protocol(self, item: pytest.Item) -> Iterator[None]:
        self.test = item
        reading_observers.append(self.record_reading)
        yield
        reading_observers.remove(self.record_reading)
        self.test = None
        self._keep_trace(item)

    def record_reading(self, fixture: Fixture, slot: int, line: str, record: TecRecord) -> None:
        """A TEC reading becomes a JUnit property of the test, and a failed check a line of its
        report."""
        if self.test is None:
            return
        line = line.rstrip("\r\n")
        self.test.user_properties.append((f"tec.slot{slot}", line))
        failed = [text for check, text in CHECKS if check(record)]
        if failed:
            self.failed_checks.append(
                f"{fixture.ip}:{fixture.port} slot {slot}: {' and '.join(failed)}: {line}")

    @pytest.hookimpl(tryfirst=True)
    def pytest_runtest_makereport(self, item: pytest.Item, call: pytest.CallInfo) -> None:
        if self.failed_checks:
            item.add_report_section(call.when, "kelvane", "\n".join(self.failed_checks))
            self.failed_checks = []

    def _keep_trace(self, item: pytest.Item) -> None:
        if self.run_trace is None:
            return
        # The library moves a full trace to "<file>.1"; emptied after each test, it holds one test's.
        rotated = Path(f"{self.run_trace}.1")
        calls = b"".join(part.read_bytes() for part in (rotated, self.run_trace) if part.exists())
        rotated.unlink(missing_ok=True)
        if self.run_trace.exists():
            os.truncate(self.run_trace, 0)  # the library appends: its next line starts the file again
        if calls:
            # Named from the test file's own name on, so the name does not depend on pytest's rootdir.
            test_file, _, test = item.nodeid.partition("::")
            name = re.sub(r"[^\w.\[\]-]+", "_", f"{Path(test_file).name}::{test}")
            (self.trace_folder / f"{name}.trace").write_bytes(calls)

    def close(self) -> None:
        for opened in self.opened:
            if isinstance(opened, Fixture):
                opened.close()
        if self.sim:
            self.sim.close()
        if self.run_trace:
            self.run_trace.unlink(missing_ok=True)
            Path(f"{self.run_trace}.1").unlink(missing_ok=True)


def _run(request: pytest.FixtureRequest) -> KelvaneRun:
    run = request.config.pluginmanager.get_plugin(RUN)
    if run is None:
        pytest.skip(NO_FIXTURES)
    return run


@pytest.fixture(scope="session")
def kelvane_station(request: pytest.FixtureRequest) -> Station:
    """Every fixture of the run, open, in address order; closed at the end of the run."""
    return _run(request).station()


@pytest.fixture
def kelvane_fixture(request: pytest.FixtureRequest) -> Fixture:
    """One fixture of the run, open: a test using it runs once per fixture, named by its address."""
    return _run(request).fixture(request.param)


@pytest.fixture
def kelvane_sim(request: pytest.FixtureRequest) -> Iterator[Simulator]:
    """The simulator of --kelvane-sim: control(k, method, params) sends fixture k a sim.* request.
    The fixtures a test sent requests to are reset (sim.reset) after it."""
    sim = _run(request).sim
    if sim is None:
        pytest.skip("kelvane_sim rehearses on the simulator (--kelvane-sim N); this run drives real fixtures")
    yield sim
    for k in sorted(sim.controlled):
        sim.control(k, SimMethod.RESET)
    sim.controlled.clear()
