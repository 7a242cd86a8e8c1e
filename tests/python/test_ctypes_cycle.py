"""libKelvane loaded with ctypes, as a Python test sequencer loads it, driving kelvane-sim on
127.0.0.1:7805; the results are checked against the fixture state the simulator reports, so a
result text that claims a move the fixture did not make is caught."""
import unittest

from kelvane_host import Simulator, load_library


class CtypesCycleTest(unittest.TestCase):
    def setUp(self):
        self.lib = load_library()
        self.sim = Simulator()
        self.addCleanup(self.sim.close)
        self.device = self.lib.createKelvaneDev(b"127.0.0.1")
        self.addCleanup(self.lib.destroyKelvaneDev, self.device)

    def tray(self):
        tray = self.sim.state()["tray"]
        return tray["horizontal"], tray["vertical"]

    def test_cycle_results_match_the_fixture_state(self):
        lib, device = self.lib, self.device
        self.assertEqual(1, lib.getConnectFlag(device))
        self.assertTrue(lib.initialFixture(device))
        self.assertIn(b"done", lib.fixtureInit(device))
        self.assertEqual(b"IN OK", lib.trayIn(device))
        self.assertEqual(("IN", "UP"), self.tray())
        self.assertEqual(b"DOWN OK", lib.trayDown(device))
        self.assertEqual(("IN", "DOWN"), self.tray())
        self.assertEqual(b"1;0;0;1", lib.checkPositionSensor(device))

        self.assertEqual(b"done", lib.fixtureLock(device, b"on"))
        self.assertEqual(1, lib.setFanSpeed(device, 2, 70))
        self.assertEqual(b"done", lib.setIO(device, 11, 1))
        state = self.sim.state()
        self.assertEqual((True, 0, "on", 70, 1), (state["initialised"], state["io"]["10"], state["lock"],
                                                  state["fans"]["2"], state["io"]["11"]))

        self.assertEqual(b"done", lib.fixtureLock(device, b"off"))
        self.assertEqual(b"UP OK", lib.trayUp(device))
        self.assertEqual(b"OUT OK", lib.trayOut(device))
        self.assertEqual(("OUT", "UP"), self.tray())
        self.assertEqual("off", self.sim.state()["lock"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
