"""Several Alpaca clients at one camera: one controls, all see, and nobody ends another's work."""

import http.client
import json
import urllib.parse

from server_support import PATIENCE, reap, until
from test_alpaca import DEVICE, INVALID_OPERATION, MEMBERS, NOT_CONNECTED, Alpaca

LEASE = "/api/v1/cameras/0/lease"
CHANGES = ("startexposure", "abortexposure", "gain", "offset", "cooleron", "setccdtemperature", "binx",
           "biny", "startx", "starty", "numx", "numy", "readoutmode")


def tearDownModule():
    reap()


class Several(Alpaca):
    def refused(self, answer, holder):
        self.assertIn("Alpaca client %s at 127.0.0.1'" % holder,
                      self.error(answer, INVALID_OPERATION))

    def connected(self, client):
        return self.good(self.get("connected", "?ClientID=%d" % client))["Value"]

    def start(self, client, seconds=60):
        self.good(self.put("connected", Connected="true", ClientID=client))
        self.good(self.put("gain", Gain=1, ClientID=client))
        self.good(self.put("startexposure", Duration=seconds, Light="true", ClientID=client))

    def put_from(self, address, member, **parameters):
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=PATIENCE,
                                                source_address=(address, 0))
        self.addCleanup(connection.close)
        connection.request("PUT", DEVICE + member, urllib.parse.urlencode(parameters),
                           {"Content-Type": "application/x-www-form-urlencoded"})
        return json.loads(connection.getresponse().read())


class Clients(Several):
    def test_only_the_one_who_controls_changes_anything(self):
        self.start(7)
        self.good(self.put("connected", Connected="true", ClientID=8))
        for member in CHANGES:
            for other in ({"ClientID": 8}, {"ClientID": 9}, {}):
                with self.subTest(member, **other):
                    self.refused(self.put(member, **MEMBERS[member][1], **other), 7)
        answer = self.put_from("127.0.0.2", "abortexposure", ClientID=7)
        self.assertEqual(answer["ErrorNumber"], INVALID_OPERATION, answer)
        self.assertEqual(self.value("camerastate"), 2)
        self.good(self.put("binx", BinX=2, ClientID=7))
        self.assertEqual(self.good(self.get("binx", "?ClientID=8"))["Value"], 2)
        self.good(self.put("abortexposure", ClientID=7))

    def test_a_client_ends_its_own_connection_alone(self):
        self.start(7)
        self.good(self.put("connect", ClientID=8))
        until(lambda: not self.value("connecting"), "connected")
        for client, leave in ((9, ("disconnect", {})), (9, ("connected", {"Connected": "false"})),
                              (8, ("disconnect", {})), (8, ("connected", {"Connected": "false"}))):
            self.good(self.put(leave[0], ClientID=client, **leave[1]))
            self.assertIs(self.connected(7), True)
            self.assertEqual(self.value("camerastate"), 2)
            self.assertIn("client 7 ", self.server.get(LEASE).json["holder"])

    def test_whoever_controls_leaves_the_camera_to_the_others(self):
        self.good(self.put("connected", Connected="true", ClientID=8))
        self.start(7)
        self.good(self.put("disconnect", ClientID=7))
        self.assertTrue(self.server.get("/api/v1/cameras/0/exposures/1").json["over"])
        self.assertIs(self.server.get(LEASE).json["held"], False)
        self.assertIs(self.connected(8), True)
        self.good(self.put("startexposure", Duration=60, Light="true", ClientID=8))
        self.good(self.put("disconnect", ClientID=8))
        self.assertTrue(self.server.get("/api/v1/cameras/0/exposures/2").json["over"])
        self.assertIs(self.connected(8), False)
        self.error(self.get("camerastate"), NOT_CONNECTED)

    def test_an_image_outlives_the_connection_of_whoever_took_it(self):
        self.good(self.put("connected", Connected="true", ClientID=8))
        self.start(7, 0.001)
        self.image_ready()
        self.good(self.put("disconnect", ClientID=7))
        self.assertIs(self.value("imageready"), True)

    def test_clients_without_number_are_those_of_their_address(self):
        self.connect()
        self.set(Gain=1)
        self.refused(self.put("gain", Gain=2, ClientID=8), 0)
        self.assertEqual(self.put_from("127.0.0.2", "gain", Gain=2)["ErrorNumber"], INVALID_OPERATION)
        self.set(Gain=3)


class Vanished(Several):
    options = ("--discovery-port", "0", "--lease", "1")

    def test_one_that_vanished_keeps_nobody_from_control(self):
        self.start(7)

        def taken():
            # Who asks as another one does not hold the lease for the one who has gone.
            self.get("camerastate", "?ClientID=8")
            return self.put("abortexposure", ClientID=8).json["ErrorNumber"] == 0
        until(taken, "the lease has run out")
        self.refused(self.put("gain", Gain=2, ClientID=7), 8)

    def test_so_many_that_vanished_keep_nobody_out(self):
        for client in range(100, 200):
            self.good(self.put("connected", Connected="true", ClientID=client))
        self.start(7)
        self.good(self.put("disconnect", ClientID=7))
        self.assertIs(self.connected(7), True)
