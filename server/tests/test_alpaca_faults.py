"""Alpaca when something goes wrong, with several cameras, and how clients find the server."""

import json
import socket
import statistics
import time
import unittest
import zlib

from alpaca_client import (
    DRIVER, ERROR, FORM, IDLE, INVALID_OPERATION, INVALID_VALUE, NOT_CONNECTED, Client, Refused)
from alpaca_walk import Camera, Walk
from server_support import PATIENCE, Server, Simulator, raw_exchange, reap, until

QUERY = b"alpacadiscovery1"
EVERYBODY = "127.255.255.255"
DISCOVERY_PORT = 32227


def tearDownModule():
    reap()


class Faults(Camera):
    camera_options = ("--fault", "missing-packet:readout=2,packet=7",
                      "--fault", "reset:readout=4,packet=9")

    def fail(self):
        """The number of the error by which an exposure ends, and by which members it is told."""
        self.client.put("startexposure", Duration=0.01, Light="true")

        def number():
            try:
                self.assertIs(self.client.get("imageready"), False)
            except Refused as refused:
                return refused.number
            return 0
        return until(number, "a failure")

    def check_failed(self, number):
        for member in ("imageready", "percentcompleted"):
            self.assertIn(self.client.number(self.client.get, member), (number, NOT_CONNECTED))
        for call in (self.client.image_bytes, self.client.image_json):
            self.assertIn(self.client.number(call), (INVALID_OPERATION, number, NOT_CONNECTED))

    def test_a_failed_exposure_is_told_until_the_next_begins(self):
        self.expose()
        number = self.fail()
        self.assertTrue(DRIVER <= number <= 0xFFF, hex(number))
        for _ in range(3):
            self.check_failed(number)
            self.assertIn(self.client.get("camerastate"), (IDLE, ERROR))
        self.expose()
        image = self.client.image_bytes()[0]
        self.assertEqual(zlib.crc32(image.T.astype("<u2").tobytes()), self.truth()["crc"])
        lost = self.fail()
        self.assertTrue(DRIVER <= lost <= 0xFFF or lost == NOT_CONNECTED, hex(lost))
        self.assertNotEqual(lost, number)
        self.check_failed(lost)
        until(lambda: self.client.get("connected"), "connected again")
        self.expose()
        image = self.client.image_bytes()[0]
        self.assertEqual(zlib.crc32(image.T.astype("<u2").tobytes()), self.truth()["crc"])

    def test_a_camera_that_is_gone_is_not_connected(self):
        camera = Simulator()
        server = Server(camera.target, "--alpaca", "--discovery-port", "0")
        client = Client(server.port)
        self.addCleanup(client.close)
        self.addCleanup(server.retire)
        server.open()
        client.put("connected", Connected="true")
        self.assertEqual(camera.end(), 0)
        until(lambda: not client.get("connected"), "noticed")
        for member in ("camerastate", "ccdtemperature", "binx", "numx", "maxadu"):
            self.assertEqual(client.number(client.get, member), NOT_CONNECTED)
        number = client.number(client.put, "startexposure", Duration=0, Light="true")
        self.assertEqual(number, NOT_CONNECTED)


class Absent(unittest.TestCase):
    def serve(self, target):
        server = Server(target, "--alpaca", "--discovery-port", "0")
        self.addCleanup(server.retire)
        client = Client(server.port)
        self.addCleanup(client.close)
        return client

    def test_connecting_to_a_camera_that_is_not_there_is_the_drivers_error(self):
        camera = Simulator()
        self.assertEqual(camera.end(), 0)
        client = self.serve(camera.target)
        self.assertIs(client.get("connected"), False)
        self.assertGreaterEqual(client.number(client.put, "connected", Connected="true"), DRIVER)
        client.put("connect")
        until(lambda: client.number(client.get, "connecting") >= DRIVER, "a failure")
        self.assertIs(client.get("connected"), False)

    def test_a_temperature_that_nobody_told_keeps_nobody_waiting(self):
        camera = Simulator("--heartbeat", "0")
        self.addCleanup(camera.retire)
        client = self.serve(camera.target)
        client.put("connected", Connected="true")
        began = time.monotonic()
        self.assertEqual(client.number(client.get, "ccdtemperature"), INVALID_VALUE)
        self.assertLess(time.monotonic() - began, 1)
        self.assertNotIn("CCDTemperature", [each["Name"] for each in client.get("devicestate")])


class Cameras(unittest.TestCase):
    def test_a_camera_keeps_its_id_whatever_else_is_served(self):
        cameras = [Simulator("--serial", each) for each in "567"]
        targets = [camera.target for camera in cameras]
        ids = []
        for order in (targets, targets[::-1], targets[1:2]):
            server = Server(*order, "--alpaca", "--discovery-port", "0")
            client = Client(server.port)
            devices = client.get("/management/v1/configureddevices")
            ids.append(dict(zip(order, (device["UniqueID"] for device in devices))))
            client.close()
            server.retire()
            reap()
        self.assertEqual(ids[0], ids[1])
        self.assertEqual(ids[2], {targets[1]: ids[0][targets[1]]})
        self.assertEqual(len(set(ids[0].values())), 3)
        for camera in cameras:
            camera.retire()

    def test_each_camera_has_its_number_its_name_and_its_images(self):
        cameras = [Simulator("--serial", each, "--seed", each) for each in "567"]
        names = []
        for turn in (1, 2):
            server = Server(*(camera.target for camera in cameras), "--alpaca")
            self.addCleanup(server.retire)
            for number in range(len(cameras)):
                server.open(number)
            clients = [Client(server.port, device=number) for number in range(len(cameras))]
            devices = clients[0].get("/management/v1/configureddevices")
            self.assertEqual([device["DeviceNumber"] for device in devices], [0, 1, 2])
            names.append([device["UniqueID"] for device in devices])
            self.assertEqual(len(set(names[-1])), 3)
            clients[1].put("connected", Connected="true")
            self.assertEqual([client.get("connected") for client in clients], [False, True, False])
            for client, camera in zip(clients, cameras):
                client.put("connected", Connected="true")
                client.put("startexposure", Duration=0.01, Light="true")
            for client, camera in zip(clients, cameras):
                until(lambda: client.get("imageready"), "an image")
                image = client.image_bytes()[0]
                crc = zlib.crc32(image.T.astype("<u2").tobytes())
                self.assertEqual(crc, camera.frame(turn)["crc"])
                client.raw("GET", "/api/v1/camera/3/name").check_refusal()
                client.close()
            server.retire()
            reap()
        self.assertEqual(names[0], names[1], "the same for ever")
        for camera in cameras:
            camera.retire()


class Network(Walk):
    options = ("--discovery-port", str(DISCOVERY_PORT))

    def ask(self, *queries, to=EVERYBODY):
        """What this server answers to these queries, the last a good one; others share the port."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
            asking.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            asking.bind(("127.0.0.1", 0))
            asking.settimeout(PATIENCE)
            for query in queries:
                asking.sendto(query, (to, DISCOVERY_PORT))
            mine = []
            deadline = time.monotonic() + PATIENCE
            while not mine or asking.gettimeout() < 1:
                self.assertLess(time.monotonic(), deadline)
                try:
                    data, sender = asking.recvfrom(1000)
                except TimeoutError:
                    break
                self.assertEqual(sender, ("127.0.0.1", DISCOVERY_PORT))
                if json.loads(data)["AlpacaPort"] == self.server.port:
                    mine.append(data)
                    asking.settimeout(0.2)
            return mine

    def test_discovery_tells_the_port_for_each_good_query(self):
        good = {b'{"AlpacaPort":%d}' % self.server.port, b'{"AlpacaPort": %d}' % self.server.port}
        self.assertIn(self.ask(QUERY)[0], good)
        self.assertEqual(len(self.ask(QUERY, QUERY)), 2)
        longer = [QUERY + more for more in (bytes(48), b"\xff" * 48, b" and more")]
        self.assertEqual(len(self.ask(*longer)), 3)

    def test_discovery_answers_nothing_else(self):
        bad = [b"", b"\0", QUERY[:-1], QUERY.upper(), b"AlpacaDiscovery1", b"alpacadiscovery",
               b" " + QUERY, b"alpacadiscovery\0", b"alpaca discovery1", b'{"AlpacaPort":1}',
               b"x" * 60000, bytes(16)]
        self.assertEqual(len(self.ask(*bad, QUERY)), 1)

    def test_servers_share_the_port_of_discovery(self):
        other = Server(self.camera.target, "--alpaca", *self.options)
        self.addCleanup(other.retire)
        self.assertEqual(len(self.ask(QUERY)), 1)

    def exchange(self, *lines, body=b"", timeout=PATIENCE):
        data = "\r\n".join(lines + ("Host: localhost", "Connection: close", "", "")).encode() + body
        return raw_exchange(self.server.port, data, timeout)

    def test_a_body_that_waits_to_be_asked_for_is(self):
        with socket.create_connection(("127.0.0.1", self.server.port), PATIENCE) as connection:
            connection.sendall(("PUT /api/v1/camera/0/binx HTTP/1.1\r\nHost: localhost\r\n"
                                "Content-Type: %s\r\nContent-Length: 6\r\n"
                                "Expect: 100-continue\r\n\r\n" % FORM).encode())
            self.assertIn(b" 100 ", connection.recv(1000).split(b"\r\n")[0])
            connection.sendall(b"BinX=3")
            self.assertIn(b" 200 ", connection.recv(1000).split(b"\r\n")[0])
        self.assertEqual(self.client.get("binx"), 3)

    def test_a_body_in_chunks_is_taken_or_refused(self):
        answer = self.exchange("PUT /api/v1/camera/0/binx HTTP/1.1", "Content-Type: " + FORM,
                               "Transfer-Encoding: chunked", body=b"6\r\nBinX=4\r\n0\r\n\r\n")
        self.assertIn(answer.split(b" ")[1], (b"200", b"411"))
        self.assertEqual(self.client.get("binx"), 4 if b" 200 " in answer[:20] else 1)

    def test_numbers_of_requests_begin_with_one(self):
        server = Server(self.camera.target, "--alpaca", "--discovery-port", "0")
        self.addCleanup(server.retire)
        client = Client(server.port)
        self.addCleanup(client.close)
        client.get("/management/apiversions")
        self.assertEqual(client.server_transaction, 1)
        client.get("connected")
        self.assertEqual(client.server_transaction, 2)


class Busy(Camera):
    sensor = "1024x1024"

    def whole_sensor(self):
        self.client.set(NumX=1024, NumY=1024)

    def test_nobody_waits_for_an_image_that_is_read_slowly(self):
        until(lambda: self.client.number(self.client.get, "ccdtemperature") == 0, "a temperature")
        self.expose()
        with socket.socket() as slow:
            slow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            slow.connect(("127.0.0.1", self.server.port))
            slow.sendall(b"GET /api/v1/camera/0/imagearray HTTP/1.1\r\nHost: localhost\r\n\r\n")
            slow.settimeout(PATIENCE)
            self.assertIn(b" 200 ", slow.recv(20))
            self.client.put("startexposure", Duration=0.3, Light="true")
            others = [Client(self.server.port) for _ in range(8)]
            times, start = [], time.monotonic()
            while not self.client.get("imageready"):
                for other in others:
                    for member in ("camerastate", "imageready", "ccdtemperature"):
                        began = time.monotonic()
                        other.get(member)
                        times.append(time.monotonic() - began)
            for other in others:
                other.close()
        self.assertLess(statistics.median(times), 0.5)
        self.assertLess(time.monotonic() - start, 10)
