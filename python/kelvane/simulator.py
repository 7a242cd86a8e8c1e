"""Simulator: a kelvane-sim process standing in for a station's fixtures, and its control surface.

    with Simulator(2) as sim:                           # fixtures at 127.0.1.1 and 127.0.1.2
        station = Station(Fixture(ip, port) for ip, port in sim.endpoints)
        sim.control(1, SimMethod.SET, {"dut": False})   # rehearse a fault on fixture 1

Each fixture listens on a free port the system picks, so any number of simulators run side by
side on one machine. The control requests go through the simulator's panel (HTTP on loopback),
which needs nothing beyond the standard library.
"""
from __future__ import annotations

import json
import os
import shutil
import subprocess
import tempfile
import threading
import urllib.error
import urllib.request
from typing import TYPE_CHECKING, Any, List, Optional, Set, Tuple, Union

if TYPE_CHECKING:
    from kelvane.fixture import Fixture

SIM_VARIABLE = "KELVANE_SIM"
# Fixture k at 127.0.1.k, as on a station, each on a port of its own.
FIRST_FIXTURE = "tcp://127.0.1.1:*"
START_SECONDS = 10
CONTROL_SECONDS = 10
# Loopback needs no proxy, whatever the environment's http_proxy says.
_DIRECT = urllib.request.build_opener(urllib.request.ProxyHandler({}))


class SimMethod:
    """The simulator's control methods (docs/simulator.md): the names the simulator and its C++
    tests take from src/protocol/include/kelvane/protocol/sim_methods.hpp, copied here for Python
    (a test of the package pins the copy)."""
    SCRIPT = "sim.script"
    CLEAR_SCRIPTS = "sim.clear_scripts"
    JOURNAL = "sim.journal"
    CLEAR_JOURNAL = "sim.clear_journal"
    STATE = "sim.state"
    SET = "sim.set"
    RESET = "sim.reset"
    REPLAY_REPORT = "sim.replay_report"
    ALL = (SCRIPT, CLEAR_SCRIPTS, JOURNAL, CLEAR_JOURNAL, STATE, SET, RESET, REPLAY_REPORT)


class SimulatorNotStarted(RuntimeError):
    """kelvane-sim could not be found or did not start; the message names what was tried."""


def simulator_program() -> Tuple[str, str]:
    """The kelvane-sim to run, from KELVANE_SIM or else PATH, and how it was found."""
    named = os.environ.get(SIM_VARIABLE)
    if named:
        return named, f"{SIM_VARIABLE}={named}"
    found = shutil.which("kelvane-sim")
    if not found:
        raise SimulatorNotStarted(f"kelvane-sim not found: {SIM_VARIABLE} is not set and no "
                                  "kelvane-sim is on PATH")
    return found, found


class Simulator:
    """kelvane-sim with `fixtures` fixtures, started at once and stopped by close().

    `endpoints` lists each fixture's (address, port), fixture 1 first; `panel` is the URL of the
    live panel; `controlled` holds the numbers of the fixtures control() was sent to."""

    def __init__(self, fixtures: int) -> None:
        program, self.program = simulator_program()
        self._errors = tempfile.TemporaryFile()
        try:
            self.process = subprocess.Popen(
                [program, "--fixtures", str(fixtures), "--bind", FIRST_FIXTURE, "--http", "127.0.0.1:0",
                 "--quiet"], stdout=subprocess.PIPE, stderr=self._errors, text=True)
        except OSError as error:
            self._errors.close()
            raise SimulatorNotStarted(f"{self.program} could not be run: {error}") from None
        # A program that never prints its ports is stopped rather than waited for.
        watchdog = threading.Timer(START_SECONDS, self.process.kill)
        watchdog.start()
        lines = [self.process.stdout.readline() for _ in range(fixtures + 1)]
        watchdog.cancel()
        listening = [line.split("tcp://", 1)[-1].strip().rsplit(":", 1) for line in lines[:-1]
                     if line.startswith("listening on tcp://")]
        if len(listening) != fixtures or not lines[-1].startswith("panel at "):
            self._stop()
            self._errors.seek(0)
            told = self._errors.read().decode(errors="replace").strip() or "no message"
            self.close()
            raise SimulatorNotStarted(f"{self.program} did not start (exit status "
                                      f"{self.process.returncode}): {told}")
        self.endpoints: List[Tuple[str, int]] = [(address, int(port)) for address, port in listening]
        self.panel = lines[-1].split()[-1]
        self.controlled: Set[int] = set()

    def control(self, k: Union[int, "Fixture"], method: str, params: Optional[Any] = None) -> Any:
        """Sends the control request `method` ("sim.set", "sim.state", ...: SimMethod names them)
        to fixture `k` (1 for the first, or a Fixture connected to it) and returns its reply.
        `params`: one dictionary (the method's one argument, as sim.set takes it), a list of
        arguments, or None for none. Raises RuntimeError with the simulator's answer when it
        refuses the request."""
        if not isinstance(k, int):
            k = self.endpoints.index((k.ip, k.port)) + 1
        body = {"fixture": k, "method": method, **({} if params is None else {"params": params})}
        request = urllib.request.Request(self.panel + "api/control", json.dumps(body).encode(),
                                         {"Content-Type": "application/json"})
        self.controlled.add(k)
        try:
            with _DIRECT.open(request, timeout=CONTROL_SECONDS) as reply:
                return json.load(reply)["result"]
        except urllib.error.HTTPError as refusal:
            answer = refusal.read().decode(errors="replace")
            raise RuntimeError(f"{method} to fixture {k}: {answer}") from None

    def close(self) -> None:
        """Stops the simulator; closing again does nothing."""
        self._stop()
        self.process.stdout.close()
        self._errors.close()

    def _stop(self) -> None:
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def __enter__(self) -> "Simulator":
        return self

    def __exit__(self, *exception) -> None:
        self.close()
