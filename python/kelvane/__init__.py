"""Drive a Kelvane test fixture from Python through libKelvane's C interface.

    import kelvane
    with kelvane.Fixture("10.0.1.20") as fixture:
        fixture.tray_up()
        fixture.tray_in()

    with kelvane.open_station("127.0.1.1-8") as station:   # eight fixtures, closed together
        results = [fixture.tray_in() for fixture in station]

libKelvane is found through the environment variable KELVANE_LIBRARY, else in the lib folders of
the installation prefixes, else by the system's loader. The TEC parts (parse_tec_record,
read_tec_csv and the kelvane-tec-plot command) need no library.
"""
from kelvane._library import LibraryNotFound
from kelvane.fixture import Fixture, FixtureUnreachable, is_pure_float, string_from_hex
from kelvane.station import Station, open_station, station_addresses
from kelvane.tec import SwitchOn, TecRecord, parse_tec_record, read_tec_csv

__all__ = ["Fixture", "FixtureUnreachable", "LibraryNotFound", "Station", "SwitchOn", "TecRecord",
           "is_pure_float", "open_station", "parse_tec_record", "read_tec_csv", "station_addresses",
           "string_from_hex"]
__version__ = "0.1.0"
