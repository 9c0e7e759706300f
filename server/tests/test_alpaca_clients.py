"""Several Alpaca clients at one camera: one controls, all see, and nobody ends another's work."""

from server_support import reap, until
from test_alpaca import INVALID_OPERATION, MEMBERS, NOT_CONNECTED, Alpaca

LEASE = "/api/v1/cameras/0/lease"
CHANGES = ("startexposure", "abortexposure", "gain", "offset", "cooleron", "setccdtemperature", "binx",
           "biny", "startx", "starty", "numx", "numy", "readoutmode")


def tearDownModule():
    reap()


class Several(Alpaca):
    """Clients have numbers: the last one of the address that they ask from."""

    def of(self, client, ask, *words, **more):
        self.server.source = "127.0.0.%d" % client
        try:
            return ask(*words, **more)
        finally:
            self.server.source = None

    def get(self, member, query="", client=1):
        return self.of(client, super().get, member, query)

    def put(self, member, client=1, **parameters):
        return self.of(client, super().put, member, **parameters)

    def refused(self, answer, holder):
        self.assertIn(" at 127.0.0.%d'" % holder, self.error(answer, INVALID_OPERATION))

    def connected(self, client):
        return self.good(self.get("connected", client=client))["Value"]

    def start(self, client, seconds=60):
        self.good(self.put("connected", Connected="true", client=client))
        self.good(self.put("gain", Gain=1, client=client))
        self.good(self.put("startexposure", Duration=seconds, Light="true", client=client))


class Clients(Several):
    def test_only_the_one_who_controls_changes_anything(self):
        self.start(7)
        self.good(self.put("connected", Connected="true", client=8))
        for member in CHANGES:
            for other in (8, 9):
                with self.subTest(member, other=other):
                    self.refused(self.put(member, **MEMBERS[member][1], client=other), 7)
        self.assertEqual(self.value("camerastate"), 2)
        self.good(self.put("binx", BinX=2, client=7))
        self.assertEqual(self.good(self.get("binx", client=8))["Value"], 2)
        self.good(self.put("abortexposure", client=7))

    def test_a_client_ends_its_own_connection_alone(self):
        self.start(7)
        self.good(self.put("connect", client=8))
        until(lambda: not self.value("connecting"), "connected")
        for client, leave in ((9, ("disconnect", {})), (9, ("connected", {"Connected": "false"})),
                              (8, ("disconnect", {})), (8, ("connected", {"Connected": "false"}))):
            self.good(self.put(leave[0], client=client, **leave[1]))
            self.assertIs(self.connected(7), True)
            self.assertEqual(self.value("camerastate"), 2)
            self.assertIn("127.0.0.7", self.server.get(LEASE).json["holder"])

    def test_whoever_controls_leaves_the_camera_to_the_others(self):
        self.good(self.put("connected", Connected="true", client=8))
        self.start(7)
        self.good(self.put("disconnect", client=7))
        self.assertTrue(self.server.get("/api/v1/cameras/0/exposures/1").json["over"])
        self.assertIs(self.server.get(LEASE).json["held"], False)
        self.assertIs(self.connected(8), True)
        self.good(self.put("startexposure", Duration=60, Light="true", client=8))
        self.good(self.put("disconnect", client=8))
        self.assertTrue(self.server.get("/api/v1/cameras/0/exposures/2").json["over"])
        self.assertIs(self.connected(8), False)
        self.error(self.get("camerastate"), NOT_CONNECTED)

    def test_an_image_outlives_the_connection_of_whoever_took_it(self):
        self.good(self.put("connected", Connected="true", client=8))
        self.start(7, 0.001)
        self.image_ready()
        self.good(self.put("disconnect", client=7))
        self.assertIs(self.value("imageready"), True)

    def test_numbers_tell_nobody_apart(self):
        self.connect()
        self.set(Gain=1)
        for number in ({}, {"ClientID": 8}, {"clientid": 9}, {"ClientID": 4294967295}):
            self.good(self.put("gain", Gain=2, **number))
        self.good(self.put("connected", Connected="false", ClientID=8))
        self.assertIs(self.value("connected"), False)


class Vanished(Several):
    options = ("--discovery-port", "0", "--lease", "1")

    def test_one_that_vanished_keeps_nobody_from_control(self):
        self.start(7)

        def taken():
            # Who asks as another one does not hold the lease for the one who has gone.
            self.get("camerastate", client=8)
            return self.put("abortexposure", client=8).json["ErrorNumber"] == 0
        until(taken, "the lease has run out")
        self.refused(self.put("gain", Gain=2, client=7), 8)

    def test_so_many_that_vanished_keep_nobody_out(self):
        for client in range(100, 200):
            self.good(self.put("connected", Connected="true", client=client))
        self.start(7)
        self.good(self.put("disconnect", client=7))
        self.assertIs(self.connected(7), True)
