"""What the package's tests share: the built files ctest names in the environment, the package
installed into a virtual environment, kelvane-sim on free loopback ports with a pyzmq client for
its "sim." methods, and headless Chromium for the pages."""
import http.client
import itertools
import json
import os
import shutil
import socket
import subprocess
import sys
from pathlib import Path

import pytest
import zmq

PACKAGE = Path(__file__).resolve().parents[1]


def built(variable):
    path = os.environ.get(variable)
    if not path or not os.path.exists(path):
        raise RuntimeError(f"{variable} must name the built file (got {path!r}); run through ctest")
    return path


def without_source_tree():
    """The environment less PYTHONPATH, so that an installed package is the one imported."""
    return {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}


@pytest.fixture(scope="session")
def installed_package(tmp_path_factory):
    """The folder of a virtual environment over the system's packages, the package installed offline."""
    folder = tmp_path_factory.mktemp("installed")
    shutil.copytree(PACKAGE, folder / "source", ignore=shutil.ignore_patterns("tests", "build", "*.egg-info"))
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", folder / "venv"],
                   check=True)
    subprocess.run([folder / "venv" / "bin" / "python", "-m", "pip", "install", "--quiet", "--no-build-isolation",
                    "--no-index", folder / "source"], check=True)
    return folder / "venv"


class Simulator:
    """kelvane-sim with `fixtures` fixtures from `bind` on (`port`: fixture 1's) and more options if
    given, stopped by close()."""

    def __init__(self, *options, fixtures=1, bind="tcp://127.0.0.1:*"):
        self.process = subprocess.Popen(
            [built("KELVANE_SIM"), "--bind", bind, "--fixtures", str(fixtures), "--quiet", *options],
            stdout=subprocess.PIPE)
        lines = [self.process.stdout.readline().decode(errors="replace") for _ in range(fixtures)]
        if not all(line.startswith("listening on ") for line in lines):
            self.process.kill()
            raise RuntimeError(f"kelvane-sim did not start: {lines!r}")
        self.endpoints = [line.split()[-1] for line in lines]
        self.port = int(self.endpoints[0].rsplit(":", 1)[1])
        self.sockets, self.ids = {}, itertools.count(1)

    def control(self, method, *params, fixture=1):
        """The result of a "sim." call to `fixture`; raises on an error reply or none within 3 s."""
        if fixture not in self.sockets:
            self.sockets[fixture] = zmq.Context.instance().socket(zmq.DEALER)
            self.sockets[fixture].linger, self.sockets[fixture].rcvtimeo = 0, 3000
            self.sockets[fixture].connect(self.endpoints[fixture - 1])
        request_id, reply = next(self.ids), {}
        self.sockets[fixture].send_multipart([b"", json.dumps(
            {"jsonrpc": "2.0", "id": request_id, "method": method, "params": list(params)}).encode()])
        while reply.get("id") != request_id:
            reply = json.loads(self.sockets[fixture].recv_multipart()[-1])
        if "error" in reply:
            raise RuntimeError(f"{method}: {reply['error']}")
        return reply["result"]

    def close(self):
        for each in self.sockets.values():
            each.close()
        self.process.terminate()
        self.process.wait(timeout=5)
        self.process.stdout.close()


@pytest.fixture
def simulator():
    sim = Simulator()
    yield sim
    sim.close()


@pytest.fixture
def station():
    """Fixtures 127.0.2.1 and .2 (addresses no other test uses) on one free port; .3 has none."""
    with socket.socket() as probe:
        probe.bind(("127.0.2.1", 0))
        port = probe.getsockname()[1]
    sim = Simulator(fixtures=2, bind=f"tcp://127.0.2.1:{port}")
    yield sim
    sim.close()


@pytest.fixture
def browser(tmp_path):
    """Headless Chromium through Selenium, with a fresh profile and nothing fetched of its own."""
    browser_path, driver_path = shutil.which("chromium"), shutil.which("chromedriver")
    if not browser_path or not driver_path:
        pytest.skip("the browser tests need chromium and chromedriver (Debian chromium, chromium-driver)")
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    options = webdriver.ChromeOptions()
    options.binary_location = browser_path
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--window-size=1000,930", f"--user-data-dir={tmp_path / 'profile'}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(executable_path=driver_path), options=options)
    yield driver
    driver.quit()


def page_faults(browser):
    """What a page of ours must never do: fetch from elsewhere, log a severe error."""
    external = browser.execute_script(
        "return performance.getEntriesByType('resource').map(e => e.name).filter(n => !n.startsWith(location.origin))")
    return external + [entry for entry in browser.get_log("browser") if entry["level"] == "SEVERE"]


def http_request(port, method, path, body=None, **headers):
    """The status and the JSON answer (None for none) of a request to a page's server."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=5)
    connection.request(method, path, body=body, headers=headers)
    reply = connection.getresponse()
    text = reply.read()
    return reply.status, json.loads(text) if text else None
