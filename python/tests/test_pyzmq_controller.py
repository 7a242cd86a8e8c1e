"""libKelvane driving a controller written in Python with pyzmq, from docs/protocol.md alone.

The controller is a REP socket on a free loopback port, served on a thread of this process; the
library is driven through the package as a station's sequencer drives it."""
import json
import threading

import pytest
import zmq

import kelvane

NOT_FOUND = {"error": {"code": -32601, "message": "method not found"}}


class PyzmqController:
    """A REP controller. `answers` maps a method to a callable taking the request and giving a
    reply body ({"result": ...} or {"error": {...}}), or None to fall silent for good; other
    methods get -32601. Every request is kept with its frame count."""

    def __init__(self, answers):
        self.answers, self.requests = answers, []
        self._context = zmq.Context()  # terminated on close, which frees the port at once
        self._socket = self._context.socket(zmq.REP)
        self._socket.setsockopt(zmq.LINGER, 0)
        self.port = self._socket.bind_to_random_port("tcp://127.0.0.1")
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


@pytest.fixture
def controller():
    """Serves the answers the test gives, one controller at a time; stopped at the test's end."""
    controllers = []
    yield lambda answers: controllers.append(PyzmqController(answers)) or controllers[-1]
    for served in controllers:
        served.close()


def test_requests_are_shaped_as_documented_and_a_silent_controller_is_unreachable(controller):
    replies = iter([{"result": "fixture_init done"}, {"error": {"code": 5, "message": "done? no: jammed"}}])
    served = controller({"server.mode": lambda _: {"result": "normal"},
                         "vantrel.fixture_init": lambda _: next(replies)})
    with kelvane.Fixture("127.0.0.1", served.port) as fixture:
        assert fixture.connected
        assert (fixture.initial_fixture(), fixture.initial_fixture()) == (True, False), \
            "an error mentioning done is no success"

    frames, messages = zip(*served.requests)
    assert [m["method"] for m in messages] == ["server.mode"] + ["vantrel.fixture_init"] * 2
    assert set(frames) == {1}, "REP hides the delimiter: one JSON frame per request"
    ids = [m["id"] for m in messages]
    assert ids == sorted(set(ids)), "ids are unique and count up"
    assert {(m["jsonrpc"], str(m["params"]), "kwargs" in m) for m in messages} == {("2.0", "[]", False)}, \
        "kwargs only when keyword arguments are given"
    served.close()

    silent = controller({"server.mode": lambda _: None})
    with pytest.raises(kelvane.FixtureUnreachable):
        kelvane.Fixture("127.0.0.1", silent.port)
    assert [message["method"] for _, message in silent.requests] == ["server.mode"]
