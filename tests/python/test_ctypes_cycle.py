"""libKelvane loaded with ctypes, as a Python test sequencer loads it, driving kelvane-sim on
127.0.0.1:7805; each step is checked against the fixture state the simulator reports, so a
result text that claims a move the fixture did not make is caught."""
import unittest

from kelvane_host import Simulator, load_library


class CtypesCycleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.lib = load_library()
        cls.sim = Simulator()
        cls.device = cls.lib.createKelvaneDev(b"127.0.0.1")

    @classmethod
    def tearDownClass(cls):
        cls.lib.destroyKelvaneDev(cls.device)
        cls.sim.close()

    def setUp(self):
        self.sim.control("sim.reset")

    def tray(self):
        tray = self.sim.state()["tray"]
        return tray["horizontal"], tray["vertical"]

    def test_cycle_results_match_the_fixture_state_after_each_step(self):
        lib, device = self.lib, self.device
        self.assertEqual(1, lib.getConnectFlag(device))
        self.assertTrue(lib.initialFixture(device))
        self.assertIn(b"done", lib.fixtureInit(device))
        state = self.sim.state()
        self.assertTrue(state["initialised"])
        self.assertEqual(0, state["io"]["10"], "fixtureInit sets IO line 10 to 0")

        self.assertEqual(b"IN OK", lib.trayIn(device))
        self.assertEqual(("IN", "UP"), self.tray())
        self.assertEqual(b"dut_sensor_on", lib.checkDUTSensor(device))
        self.assertEqual(b"DOWN OK", lib.trayDown(device))
        self.assertEqual(("IN", "DOWN"), self.tray())
        self.assertEqual(b"1;0;0;1", lib.checkPositionSensor(device))

        self.assertEqual(b"done", lib.fixtureLock(device, b"on"))
        self.assertEqual("on", self.sim.state()["lock"])
        self.assertEqual(1, lib.setFanSpeed(device, 2, 70))
        self.assertEqual(b"70", lib.getFanSpeed(device, 2))
        self.assertEqual(b"done", lib.setIO(device, 11, 1))
        state = self.sim.state()
        self.assertEqual(70, state["fans"]["2"])
        self.assertEqual(1, state["io"]["11"])

        self.assertEqual(b"done", lib.fixtureLock(device, b"off"))
        self.assertEqual(b"UP OK", lib.trayUp(device))
        self.assertEqual(b"OUT OK", lib.trayOut(device))
        state = self.sim.state()
        self.assertEqual("off", state["lock"])
        self.assertEqual(("OUT", "UP"), (state["tray"]["horizontal"], state["tray"]["vertical"]))


if __name__ == "__main__":
    unittest.main(verbosity=2)
