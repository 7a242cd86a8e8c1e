"""What the Python tests share: the library as a ctypes host loads it, and a kelvane-sim
process on the C interface's fixed port with a pyzmq client for its "sim." methods.

Not a test module itself (no "test_" prefix); the tests import it from their own folder.
"""
import ctypes
import itertools
import json
import os
import select
import subprocess

import zmq

CONTROLLER_ENDPOINT = "tcp://127.0.0.1:7805"
START_SECONDS = 5.0
CONTROL_TIMEOUT_MS = 3000


def required_path(variable):
    path = os.environ.get(variable)
    if not path or not os.path.exists(path):
        raise RuntimeError(f"{variable} must name the built file (got {path!r}); run through ctest")
    return path


def load_library():
    """libKelvane with the prototypes a station's sequencer would declare."""
    lib = ctypes.CDLL(required_path("KELVANE_LIBRARY"))
    handle = ctypes.c_void_p
    text = ctypes.c_char_p
    prototypes = {
        "createKelvaneDev": (handle, [text]),
        "destroyKelvaneDev": (None, [handle]),
        "getConnectFlag": (ctypes.c_int, [handle]),
        "initialFixture": (ctypes.c_bool, [handle]),
        "checkPositionSensor": (text, [handle]),
        "checkDUTSensor": (text, [handle]),
        "trayUp": (text, [handle]),
        "trayDown": (text, [handle]),
        "trayIn": (text, [handle]),
        "trayOut": (text, [handle]),
        "fixtureInit": (text, [handle]),
        "fixtureLock": (text, [handle, text]),
        "setIO": (text, [handle, ctypes.c_int, ctypes.c_int]),
        "setFanSpeed": (ctypes.c_int, [handle, ctypes.c_int, ctypes.c_int]),
        "getFanSpeed": (text, [handle, ctypes.c_int]),
        "isPureFloat": (ctypes.c_bool, [text]),
    }
    for name, (result, arguments) in prototypes.items():
        function = getattr(lib, name)
        function.restype = result
        function.argtypes = arguments
    return lib


class Simulator:
    """kelvane-sim bound to 127.0.0.1:7805, stopped by close()."""

    def __init__(self, *extra_args):
        self.process = subprocess.Popen(
            [required_path("KELVANE_SIM"), "--bind", CONTROLLER_ENDPOINT, "--quiet", *extra_args],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        line = self._first_line()
        if not line.startswith("listening on "):
            self.close()
            raise RuntimeError(f"kelvane-sim did not start on {CONTROLLER_ENDPOINT} (port busy?): {line!r}")
        self.context = zmq.Context()
        self.socket = self.context.socket(zmq.DEALER)
        self.socket.setsockopt(zmq.LINGER, 0)
        self.socket.setsockopt(zmq.RCVTIMEO, CONTROL_TIMEOUT_MS)
        self.socket.connect(CONTROLLER_ENDPOINT)
        self.ids = itertools.count(1)

    def _first_line(self):
        ready, _, _ = select.select([self.process.stdout], [], [], START_SECONDS)
        return self.process.stdout.readline().decode(errors="replace") if ready else ""

    def control(self, method, *params):
        """The result of a "sim." call; raises on an error reply."""
        request_id = next(self.ids)
        request = {"jsonrpc": "2.0", "id": request_id, "method": method, "params": list(params)}
        self.socket.send_multipart([b"", json.dumps(request).encode()])
        while True:
            reply = json.loads(self.socket.recv_multipart()[-1])
            if reply.get("id") == request_id:
                break
        if "error" in reply:
            raise RuntimeError(f"{method}: {reply['error']}")
        return reply["result"]

    def state(self):
        return self.control("sim.state")

    def methods_called(self):
        return [entry["method"] for entry in self.control("sim.journal")]

    def close(self):
        if getattr(self, "socket", None) is not None:
            self.socket.close()
            self.context.term()
            self.socket = None
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process.stdout.close()
        self.process.stderr.close()

