"""Fixture: one test fixture driven through libKelvane, and the library's text helpers."""
import ctypes
import os
import weakref
from typing import Callable, List, Optional, Union

from kelvane._library import KelvaneOptions, free, library
from kelvane.tec import TecRecord, parse_tec_record

# getFanSpeed's text when the controller gave no reply.
NO_REPLY = "(null)"
# The port every fixture controller listens on (KELVANE_CONTROLLER_PORT).
CONTROLLER_PORT = 7805


class FixtureUnreachable(ConnectionError):
    """The fixture's controller did not answer when the Fixture was created."""


def _to_c(text: str) -> bytes:
    encoded = text.encode("utf-8")
    if b"\0" in encoded:
        raise ValueError(f"text for the library holds a zero character: {text!r}")
    return encoded


def _to_str(reply: Optional[bytes]) -> Optional[str]:
    # ctypes copies the library's text at once, before this thread calls the library again.
    return None if reply is None else reply.decode("utf-8", errors="replace")


def _options(port: int, timeout: Optional[float], trace: Optional[Union[str, os.PathLike]],
             log: Optional[Union[str, os.PathLike]]) -> KelvaneOptions:
    if not 1 <= port <= 65535:
        raise ValueError(f"port must be from 1 to 65535, not {port}")
    if timeout is not None and not 0 < timeout <= 86400:
        raise ValueError(f"timeout must be above 0 and at most a day, not {timeout}")
    return KelvaneOptions(size=ctypes.sizeof(KelvaneOptions), port=port,
                          callTimeoutMs=0 if timeout is None else max(1, round(timeout * 1000)),
                          traceFile=None if trace is None else _to_c(os.fspath(trace)),
                          log=None if log is None else _to_c(os.fspath(log)))


class Fixture:
    """A test fixture, driven through its controller board.

    Every method is one operation of the fixture: synchronous, on the calling thread, and blocking
    until the controller answered (a tray move until its sensor confirms, up to 5 s for up and
    down, 15 s for in and out). Texts come back as `str`; None means the controller gave no reply.
    A refused move returns the reason, e.g. "Please UP first!"; a move whose sensor did not
    confirm in time returns a text ending in a full-width "！".

    Use it as a context manager, or call close()::

        with kelvane.Fixture("10.0.1.20") as fixture:
            fixture.tray_up()
            print(fixture.tray_in())          # "IN OK"
            print(fixture.tec_reading(1))     # TecRecord(...)

    The library takes no lock around the fixture: calls that move it must not overlap; different
    Fixture objects may be used from different threads.
    """

    def __init__(self, ip: str, port: int = CONTROLLER_PORT, *, timeout: Optional[float] = None,
                 trace: Optional[Union[str, os.PathLike]] = None,
                 log: Optional[Union[str, os.PathLike]] = None) -> None:
        """Connects to the controller at `ip` (e.g. "10.0.1.20") and `port`, waiting a few seconds
        at most.

        `timeout`: seconds a call waits for its reply when the operation sets no wait of its own
        (setting IO lines and TEC readings set theirs); 3 by default. `trace`: a file to append one JSON
        line per controller call to ("kelvanectl trace FILE" reads it); by default the file the
        environment's KELVANE_TRACE names, if any; "" for none. `log`: where the library's
        step-by-step log of this fixture goes: "stderr", "off" or a file to append to; by default
        the process's log (standard error unless KELVANE_LOG says otherwise).

        Raises FixtureUnreachable when the controller does not answer, ValueError for a port or
        timeout out of range, and LibraryNotFound when libKelvane cannot be loaded."""
        options = _options(port, timeout, trace, log)
        self._lib = library()
        handle = self._lib.createKelvaneDevWithOptions(_to_c(ip), ctypes.byref(options))
        if not handle:
            raise MemoryError("libKelvane could not create a device")
        self._handle: Optional[int] = handle
        # Destroys the device also when the object is dropped without close().
        self._finalizer = weakref.finalize(self, self._lib.destroyKelvaneDev, handle)
        self.ip, self.port = ip, port
        if not self.connected:
            self.close()
            raise FixtureUnreachable(f"cannot reach the fixture controller at {ip}:{port} "
                                     "(is it powered and on the network?)")

    def close(self) -> None:
        """Releases the device and its connection. Calls other threads have under way end early
        with their no-reply results. Closing again does nothing."""
        self._finalizer()
        self._handle = None

    def __enter__(self) -> "Fixture":
        return self

    def __exit__(self, *exception) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<kelvane.Fixture {self.ip}:{self.port}{'' if self._handle else ' (closed)'}>"

    def _device(self) -> int:
        if self._handle is None:
            raise ValueError("operation on a closed Fixture")
        return self._handle

    # ---- Session ------------------------------------------------------------------------

    @property
    def connected(self) -> bool:
        """True while the device has a session with its controller."""
        return self._handle is not None and self._lib.getConnectFlag(self._handle) == 1

    def initial_fixture(self) -> bool:
        """Initialises the fixture; True when the controller reports it done."""
        return self._lib.initialFixture(self._device())

    # ---- Sensors ------------------------------------------------------------------------

    def position_sensors(self) -> Optional[str]:
        """The four tray position sensors as "IN;OUT;UP;DOWN" integers, e.g. "0;1;1;0"."""
        return _to_str(self._lib.checkPositionSensor(self._device()))

    def dut_sensor(self) -> Optional[str]:
        """The DUT presence sensor's reply, e.g. "dut_sensor_on"."""
        return _to_str(self._lib.checkDUTSensor(self._device()))

    # ---- Tray motion, lock, initialisation ----------------------------------------------

    def tray_up(self) -> Optional[str]:
        """Raises the tray: "UP OK" on success."""
        return _to_str(self._lib.trayUp(self._device()))

    def tray_down(self) -> Optional[str]:
        """Lowers the tray (needs it IN and a DUT present): "DOWN OK" on success."""
        return _to_str(self._lib.trayDown(self._device()))

    def tray_in(self) -> Optional[str]:
        """Moves the tray in (needs it UP): "IN OK" on success."""
        return _to_str(self._lib.trayIn(self._device()))

    def tray_out(self) -> Optional[str]:
        """Moves the tray out (needs it not DOWN): "OUT OK" on success."""
        return _to_str(self._lib.trayOut(self._device()))

    def fixture_lock(self, state: str) -> Optional[str]:
        """Clamps ("on") or releases ("off") the magnet lock; the controller's reply, which holds
        "done" on success. Any other state gives "Unknown state!" without asking the controller."""
        return _to_str(self._lib.fixtureLock(self._device(), _to_c(state)))

    def fixture_init(self) -> Optional[str]:
        """Puts the IO lines into their initial state; the controller's reply ("done" in it on
        success)."""
        return _to_str(self._lib.fixtureInit(self._device()))

    # ---- Fans and IO lines --------------------------------------------------------------

    def set_fan_speed(self, fan: int, speed: int) -> bool:
        """Sets fan `fan` to `speed`; True when the controller reports it done."""
        return self._lib.setFanSpeed(self._device(), fan, speed) == 1

    def fan_speed(self, fan: int) -> Optional[str]:
        """Fan `fan`'s speed as the controller's reply text, e.g. "40"."""
        text = _to_str(self._lib.getFanSpeed(self._device(), fan))
        return None if text == NO_REPLY else text

    def set_io(self, line: int, state: int) -> Optional[str]:
        """Sets IO line `line` to `state`: the controller's reply when it holds "done", else the
        error of the failed call, else "Fail"."""
        return _to_str(self._lib.setIO(self._device(), line, state))

    # ---- TEC controllers ----------------------------------------------------------------

    def tec_record(self, slot: int) -> Optional[str]:
        """One reading of slot `slot`'s TEC controller (slots count from 1) as the library's CSV
        line, ending in "\\r\\n". Takes five round trips, or about 25 s for a silent slot."""
        return _to_str(self._lib.tecTempRecord(self._device(), slot))

    def tec_reading(self, slot: int) -> Optional[TecRecord]:
        """tec_record() parsed; a reading with answers missing names them in `missing`."""
        line = self.tec_record(slot)
        if line is None:
            return None
        record = parse_tec_record(line)
        for observe in list(reading_observers):
            observe(self, slot, line, record)
        return record


# Told of every reading Fixture.tec_reading takes, as observe(fixture, slot, line, record): how
# the pytest plugin puts a test's readings into its report.
reading_observers: List[Callable[[Fixture, int, str, TecRecord], None]] = []


def string_from_hex(hex_text: str) -> Optional[str]:
    """Decodes hex text two characters at a time ("414243" gives "ABC"); a trailing odd
    character is ignored and the text ends at the first zero byte. None for the empty text.
    Bytes that are not UTF-8 become U+FFFD."""
    address = library().stringFromHexString(_to_c(hex_text))
    if not address:
        return None
    try:
        return ctypes.string_at(address).decode("utf-8", errors="replace")
    finally:
        free(address)


def is_pure_float(text: str) -> bool:
    """True when the whole text is one decimal number ("12", "-0.5", "1e-3"), blanks around it
    allowed; "inf", "nan" and hex numbers are not."""
    return library().isPureFloat(_to_c(text))
