"""libKelvane driving a controller written in Python with pyzmq, from docs/protocol.md alone.

The controller is a REP socket on the C interface's fixed port, served on a thread of this
process; the library is loaded through ctypes as a station host loads it."""
import json
import threading
import unittest

import zmq

from kelvane_host import CONTROLLER_ENDPOINT, load_library

NOT_FOUND = {"error": {"code": -32601, "message": "method not found"}}


class PyzmqController:
    """A REP controller. `answers` maps a method to a callable taking the request and giving a
    reply body ({"result": ...} or {"error": {...}}), or None to fall silent for good; other
    methods get -32601. Every request is kept with its frame count."""

    def __init__(self, answers):
        self.answers, self.requests = answers, []
        self._context = zmq.Context()
        self._socket = self._context.socket(zmq.REP)
        self._socket.setsockopt(zmq.LINGER, 0)
        self._socket.bind(CONTROLLER_ENDPOINT)
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
            request = json.loads(frames[-1])
            self.requests.append((len(frames), request))
            body = self.answers.get(request["method"], lambda _: NOT_FOUND)(request)
            if body is None:
                return
            self._socket.send(json.dumps({"jsonrpc": "2.0", "id": request["id"], **body}).encode())


class PyzmqControllerTest(unittest.TestCase):
    def create_device(self, answers=None):
        """A device created while a controller with `answers` (None: nothing) listens."""
        controller = None
        if answers is not None:
            controller = PyzmqController(answers)
            self.addCleanup(controller.close)
        lib = load_library()
        handle = lib.createKelvaneDev(b"127.0.0.1")
        self.assertTrue(handle, "createKelvaneDev never returns NULL")
        self.addCleanup(lib.destroyKelvaneDev, handle)
        return lib, handle, controller

    def test_requests_are_shaped_as_documented_and_an_error_mentioning_done_is_no_success(self):
        replies = iter([{"result": "fixture_init done"}, {"error": {"code": 5, "message": "done? no: jammed"}}])
        lib, handle, controller = self.create_device(
            {"server.mode": lambda _: {"result": "normal"}, "vantrel.fixture_init": lambda _: next(replies)})
        self.assertEqual(1, lib.getConnectFlag(handle))
        self.assertEqual((True, False), (lib.initialFixture(handle), lib.initialFixture(handle)))

        frames, messages = zip(*controller.requests)
        self.assertEqual(["server.mode"] + ["vantrel.fixture_init"] * 2, [m["method"] for m in messages])
        self.assertEqual({1}, set(frames), "REP hides the delimiter: one JSON frame per request")
        ids = [m["id"] for m in messages]
        self.assertEqual(sorted(set(ids)), ids, "ids are unique and count up")
        for message in messages:
            self.assertEqual(("2.0", []), (message["jsonrpc"], message["params"]))
            self.assertNotIn("kwargs", message, "kwargs only when keyword arguments are given")

    def test_creation_without_an_answer_gives_a_device_without_session(self):
        lib, handle, _ = self.create_device()
        self.assertEqual((0, False), (lib.getConnectFlag(handle), lib.initialFixture(handle)))

        lib, handle, silent = self.create_device({"server.mode": lambda _: None})
        self.assertEqual(0, lib.getConnectFlag(handle))
        self.assertEqual(["server.mode"], [message["method"] for _, message in silent.requests])


if __name__ == "__main__":
    unittest.main(verbosity=2)
