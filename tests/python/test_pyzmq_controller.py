"""libKelvane driving a controller written in Python with pyzmq, from docs/protocol.md alone.

The controller is a REP socket on 127.0.0.1:7805 (the port the C interface always uses), run
on a thread of this process; the library is loaded through ctypes as a station host loads it.
The tests bind the fixed port, so they must not run beside other tests that use 7805.
"""
import ctypes
import json
import os
import threading
import time
import unittest

import zmq

ENDPOINT = "tcp://127.0.0.1:7805"
HOST = b"127.0.0.1"


def load_library():
    path = os.environ.get("KELVANE_LIBRARY")
    if not path or not os.path.exists(path):
        raise RuntimeError(f"KELVANE_LIBRARY must name the built library (got {path!r})")
    lib = ctypes.CDLL(path)
    lib.createKelvaneDev.restype = ctypes.c_void_p
    lib.createKelvaneDev.argtypes = [ctypes.c_char_p]
    lib.destroyKelvaneDev.restype = None
    lib.destroyKelvaneDev.argtypes = [ctypes.c_void_p]
    lib.getConnectFlag.restype = ctypes.c_int
    lib.getConnectFlag.argtypes = [ctypes.c_void_p]
    lib.initialFixture.restype = ctypes.c_bool
    lib.initialFixture.argtypes = [ctypes.c_void_p]
    return lib


class PyzmqController:
    """A REP controller. `answers` maps a method to a reply body ({"result": ...} or
    {"error": {...}}) or to a callable taking the request and giving one; unknown methods get
    -32601. A body with "delay" is sent that many seconds late. Every request is recorded."""

    def __init__(self, answers):
        self.answers = answers
        self.requests = []
        self._context = zmq.Context()
        self._socket = self._context.socket(zmq.REP)
        self._socket.setsockopt(zmq.LINGER, 0)
        self._socket.bind(ENDPOINT)
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def close(self):
        self._stop.set()
        self._thread.join(timeout=10)
        self._socket.close()
        self._context.term()

    def _serve(self):
        while not self._stop.is_set():
            if not self._socket.poll(50):
                continue
            frames = self._socket.recv_multipart()
            reply = self._reply_to(frames)
            delay = reply.pop("delay", 0)
            if self._stop.wait(delay):
                return
            self._socket.send(json.dumps(reply).encode("utf-8"))

    def _reply_to(self, frames):
        try:
            request = json.loads(frames[-1])
        except ValueError:
            return {"jsonrpc": "2.0", "id": None,
                    "error": {"code": -32700, "message": "unreadable request"}}
        self.requests.append({"frames": len(frames), "message": request})
        answer = self.answers.get(request.get("method"))
        if callable(answer):
            answer = answer(request)
        if answer is None:
            answer = {"error": {"code": -32601, "message": "method not found"}}
        reply = {"jsonrpc": "2.0", "id": request.get("id")}
        reply.update(answer)
        return reply


READY = {"server.mode": {"result": "normal"}}


class PyzmqControllerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.lib = load_library()

    def start_controller(self, answers):
        controller = PyzmqController(answers)
        self.addCleanup(controller.close)
        return controller

    def create_device(self):
        started = time.monotonic()
        handle = self.lib.createKelvaneDev(HOST)
        self.assertTrue(handle, "createKelvaneDev never returns NULL")
        self.addCleanup(self.lib.destroyKelvaneDev, handle)
        return handle, time.monotonic() - started

    def test_session_starts_and_initialises_with_requests_shaped_as_documented(self):
        controller = self.start_controller(
            dict(READY, **{"vantrel.fixture_init": {"result": "fixture_init done"}}))
        handle, _ = self.create_device()
        self.assertEqual(self.lib.getConnectFlag(handle), 1)
        self.assertTrue(self.lib.initialFixture(handle))

        messages = [request["message"] for request in controller.requests]
        self.assertEqual([m["method"] for m in messages], ["server.mode", "vantrel.fixture_init"])
        for message in messages:
            self.assertEqual(message["jsonrpc"], "2.0")
            self.assertIsInstance(message["id"], int)
            self.assertEqual(message["params"], [], "params is present even without arguments")
            self.assertNotIn("kwargs", message, "kwargs only when keyword arguments are given")
        self.assertLess(messages[0]["id"], messages[1]["id"], "ids are unique and count up")
        self.assertTrue(all(r["frames"] == 1 for r in controller.requests),
                        "REP hides the delimiter: one JSON frame per request")

    def test_initial_fixture_is_true_only_for_a_reply_holding_done(self):
        replies = iter([{"result": "busy"}, {"result": None}, {"result": "DONE"},
                        {"error": {"code": 5, "message": "done? no: jammed"}}, {"result": "done"}])
        self.start_controller(dict(READY, **{"vantrel.fixture_init": lambda _: next(replies)}))
        handle, _ = self.create_device()
        results = [self.lib.initialFixture(handle) for _ in range(5)]
        self.assertEqual(results, [False, False, False, False, True])

    def test_silent_controller_fails_creation_within_the_default_timeout_and_late_reply_is_harmless(self):
        controller = self.start_controller(
            {"server.mode": {"result": "normal", "delay": 3.8},
             "vantrel.fixture_init": {"result": "done"}})
        handle, took = self.create_device()
        self.assertEqual(self.lib.getConnectFlag(handle), 0)
        self.assertGreaterEqual(took, 2.9, "the probe waits the 3 s default timeout")
        self.assertLess(took, 8.0)
        self.assertEqual(len(controller.requests), 1)

    def test_nothing_listening_fails_creation_within_about_a_second(self):
        handle, took = self.create_device()
        self.assertEqual(self.lib.getConnectFlag(handle), 0)
        self.assertLess(took, 3.0)
        self.assertFalse(self.lib.initialFixture(handle))


if __name__ == "__main__":
    unittest.main(verbosity=2)
