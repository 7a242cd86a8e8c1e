"""open_station: the fixtures of a station opened together and closed together."""
import ipaddress
import re
from concurrent.futures import ThreadPoolExecutor
from typing import Iterable, List, Union

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


def open_station(ips: Union[str, Iterable[str]], port: int = CONTROLLER_PORT, **options) -> Station:
    """Opens a Fixture for every address `ips` names (see station_addresses), all at once, with
    the same `port` and Fixture options::

        with kelvane.open_station("127.0.1.1-8") as station:
            for fixture in station:
                print(fixture.ip, fixture.tray_in())

    When any of them cannot be opened, the others are closed again and the first error (in
    address order) is raised, e.g. FixtureUnreachable naming its address."""
    addresses = station_addresses(ips)
    if not addresses:
        return Station()
    with ThreadPoolExecutor(max_workers=len(addresses)) as pool:
        opening = [pool.submit(Fixture, address, port, **options) for address in addresses]
    station, errors = Station(), []
    for future in opening:
        if future.exception():
            errors.append(future.exception())
        else:
            station.append(future.result())
    if errors:
        station.close()
        raise errors[0]
    return station
