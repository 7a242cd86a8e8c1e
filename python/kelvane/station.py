"""open_station: the fixtures of a station opened together and closed together."""
import ipaddress
import re
from concurrent.futures import ThreadPoolExecutor
from typing import Iterable, List, Tuple, Union

from kelvane.fixture import CONTROLLER_PORT, Fixture

# "127.0.1.1-48": 127.0.1.1 to 127.0.1.48.
_RANGE = re.compile(r"(?P<first>.+)-(?P<last>\d{1,3})")


def station_addresses(ips: Union[str, Iterable[str]]) -> List[str]:
    """The addresses `ips` name, each once, in address order. Each item is an address, or a range
    of an IPv4 address's last octet ("127.0.1.1-48"); a malformed range raises ValueError."""
    named = []
    for value in [ips] if isinstance(ips, str) else ips:
        if "-" not in value:
            named.append(value)
            continue
        match = _RANGE.fullmatch(value)
        try:
            first = ipaddress.IPv4Address(match["first"]) if match else None
        except ValueError:
            first = None
        if first is None or not first.packed[3] <= int(match["last"]) <= 255:
            raise ValueError(f"{value!r} is no range of an IPv4 address's last octet, "
                             "e.g. 127.0.1.1-48 (ascending, to .255 at most)")
        named += [str(first + step) for step in range(int(match["last"]) - first.packed[3] + 1)]

    def order(address):
        try:
            return (0, int(ipaddress.IPv4Address(address)), address)
        except ValueError:
            return (1, 0, address)
    return sorted(set(named), key=order)


class Station(list):
    """The Fixtures of a station in address order, closed together: by close(), or at the end of
    a with block."""

    def close(self) -> None:
        for fixture in self:
            fixture.close()

    def __enter__(self) -> "Station":
        return self

    def __exit__(self, *exception) -> None:
        self.close()


def open_each(endpoints: Iterable[Tuple[str, int]], **options) -> List[Union[Fixture, Exception]]:
    """Opens a Fixture for every (address, port) of `endpoints`, all at once, with the same Fixture
    options. In the list returned, a fixture that could not be opened has its error in its place."""
    endpoints = list(endpoints)
    if not endpoints:
        return []
    with ThreadPoolExecutor(max_workers=len(endpoints)) as pool:
        opening = [pool.submit(Fixture, address, port, **options) for address, port in endpoints]
    return [future.exception() or future.result() for future in opening]


def open_station(ips: Union[str, Iterable[str]], port: int = CONTROLLER_PORT, **options) -> Station:
    """Opens a Fixture for every address `ips` names (see station_addresses), all at once, with
    the same `port` and Fixture options::

        with kelvane.open_station("127.0.1.1-8") as station:
            for fixture in station:
                print(fixture.ip, fixture.tray_in())

    When any of them cannot be opened, the others are closed again and the first error (in
    address order) is raised, e.g. FixtureUnreachable naming its address."""
    opened = open_each(((address, port) for address in station_addresses(ips)), **options)
    station = Station(fixture for fixture in opened if isinstance(fixture, Fixture))
    if len(station) < len(opened):
        station.close()
        raise next(error for error in opened if not isinstance(error, Fixture))
    return station
