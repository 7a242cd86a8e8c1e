"""What the Python tests share: the library as a ctypes host loads it, and a kelvane-sim
process on the C interface's fixed port with a pyzmq client for its "sim." methods.
Not a test module itself (no "test_" prefix)."""
import ctypes
import itertools
import json
import os
import subprocess

import zmq

# KELVANE_CONTROLLER_PORT of kelvane.h: the C interface always connects there.
CONTROLLER_ENDPOINT = "tcp://127.0.0.1:7805"


def required_path(variable):
    path = os.environ.get(variable)
    if not path or not os.path.exists(path):
        raise RuntimeError(f"{variable} must name the built file (got {path!r}); run through ctest")
    return path


def load_library():
    """libKelvane with the prototypes a station's sequencer would declare."""
    lib = ctypes.CDLL(required_path("KELVANE_LIBRARY"))
    handle, text, number = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
    prototypes = {"createKelvaneDev": (handle, [text]), "destroyKelvaneDev": (None, [handle]),
                  "getConnectFlag": (number, [handle]), "initialFixture": (ctypes.c_bool, [handle]),
                  "fixtureLock": (text, [handle, text]), "setIO": (text, [handle, number, number]),
                  "setFanSpeed": (number, [handle, number, number]),
                  "getFanSpeed": (text, [handle, number])}
    for name in ["checkPositionSensor", "checkDUTSensor", "trayUp", "trayDown", "trayIn", "trayOut",
                 "fixtureInit"]:
        prototypes[name] = (text, [handle])
    for name, (result, arguments) in prototypes.items():
        getattr(lib, name).restype = result
        getattr(lib, name).argtypes = arguments
    return lib


class Simulator:
    """kelvane-sim bound to 127.0.0.1:7805, stopped by close()."""

    def __init__(self):
        self.process = subprocess.Popen(
            [required_path("KELVANE_SIM"), "--bind", CONTROLLER_ENDPOINT, "--quiet"], stdout=subprocess.PIPE)
        line = self.process.stdout.readline().decode(errors="replace")
        self.context = zmq.Context()
        self.socket = self.context.socket(zmq.DEALER)
        self.socket.setsockopt(zmq.LINGER, 0)
        self.socket.setsockopt(zmq.RCVTIMEO, 3000)
        self.socket.connect(CONTROLLER_ENDPOINT)
        self.ids = itertools.count(1)
        if not line.startswith("listening on "):
            self.close()
            raise RuntimeError(f"kelvane-sim did not start on {CONTROLLER_ENDPOINT} (port busy?): {line!r}")

    def control(self, method, *params):
        """The result of a "sim." call; raises on an error reply or none within 3 s."""
        request_id = next(self.ids)
        request = {"jsonrpc": "2.0", "id": request_id, "method": method, "params": list(params)}
        self.socket.send_multipart([b"", json.dumps(request).encode()])
        reply = {}
        while reply.get("id") != request_id:
            reply = json.loads(self.socket.recv_multipart()[-1])
        if "error" in reply:
            raise RuntimeError(f"{method}: {reply['error']}")
        return reply["result"]

    def state(self):
        return self.control("sim.state")

    def close(self):
        self.socket.close()
        self.context.term()
        self.process.terminate()
        self.process.wait(timeout=5)
        self.process.stdout.close()
