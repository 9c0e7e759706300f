"""All of the server through TLS, with Python's own and OpenSSL's client."""

import contextlib
import http.client
import os
import re
import signal
import socket
import ssl
import subprocess
import tempfile
import time
import unittest
import zlib

from server_support import (PATIENCE, SERVER, Process, Server, Simulator, WebSocket, raw_exchange,
                            reap)

CAMERA = "/api/v1/cameras/0"
SIM = "sim?sensor=64x64"


def tearDownModule():
    reap()


def openssl(*words, **more):
    return subprocess.run(["openssl", *words], check=True, capture_output=True, **more)


class Files:
    """Certificates of a root that vouches for another one, which does for the server."""

    def __init__(self, folder):
        self.folder = folder
        self.issue("root", None, "basicConstraints=critical,CA:TRUE")
        self.issue("middle", "root", "basicConstraints=critical,CA:TRUE")
        self.issue("leaf", "middle", "subjectAltName=IP:127.0.0.1,DNS:localhost")
        with open(self.path("chain.pem"), "wb") as chain:
            for name in ("leaf.pem", "middle.pem"):
                with open(self.path(name), "rb") as file:
                    chain.write(file.read())

    def path(self, name):
        return os.path.join(self.folder, name)

    def issue(self, name, by, extension):
        certificate, key = self.path(name + ".pem"), self.path(name + ".key")
        with open(self.path("extensions"), "w", encoding="ascii") as file:
            file.write(extension + "\n")
        request = ["-newkey", "rsa:2048", "-nodes", "-subj", "/CN=" + name, "-keyout", key]
        if by is None:
            openssl("req", "-x509", *request, "-days", "1", "-addext", extension, "-out", certificate)
            return
        asked = openssl("req", *request).stdout
        openssl("x509", "-req", "-days", "1", "-CA", self.path(by + ".pem"), "-CAkey",
                self.path(by + ".key"), "-CAcreateserial", "-extfile", self.path("extensions"),
                "-out", certificate, input=asked)


class SecretServer(Server):
    def __init__(self, files, *words):
        self.context = ssl.create_default_context(cafile=files.path("root.pem"))
        self.files = files
        super().__init__(*words, "--tls", files.path("chain.pem") + "," + files.path("leaf.key"))

    def connection(self, timeout=PATIENCE, source=None):
        return http.client.HTTPSConnection("127.0.0.1", self.port, timeout=timeout,
                                           context=self.context, source_address=source)

    def wrapped(self):
        plain = socket.create_connection(("127.0.0.1", self.port), PATIENCE)
        return self.context.wrap_socket(plain, server_hostname="127.0.0.1")

    def watch(self, **more):
        return WebSocket(self.port, CAMERA + "/live", context=self.context, **more)


class Secret(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.made = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.made.cleanup)
        cls.files = Files(cls.made.name)

    def start(self, *words):
        server = SecretServer(self.files, *words)
        self.addCleanup(server.retire)
        server.open()
        return server

    def refused(self, *words):
        """What is said by a server that does not start, and its code."""
        result = subprocess.run([SERVER, *words], capture_output=True, text=True, timeout=PATIENCE)
        self.assertEqual(result.stdout, "")
        return result.returncode, result.stderr


class Answers(Secret):
    def test_a_client_that_trusts_the_root_is_answered(self):
        server = self.start(SIM)
        server.line(r"serving 1 camera at https://127\.0\.0\.1:\d+/")
        with server.wrapped() as connection:
            self.assertIn(connection.version(), ("TLSv1.2", "TLSv1.3"))
            for number in range(3):  # one behind the other, in one connection
                connection.sendall(b"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
                received = b""
                while not received.endswith(b"ok\n"):
                    piece = connection.recv(4096)
                    self.assertTrue(piece, received)
                    received += piece
                self.assertIn(b" 200 ", received, number)

    def test_old_versions_are_not_spoken(self):
        server = self.start(SIM)
        place = "127.0.0.1:%d" % server.port
        for version, code in (("-tls1", 1), ("-tls1_1", 1), ("-tls1_2", 0), ("-tls1_3", 0)):
            words = ["openssl", "s_client", "-connect", place, version, "-cipher", "ALL:@SECLEVEL=0",
                     "-CAfile", self.files.path("root.pem"), "-verify_return_error"]
            result = subprocess.run(words, input=b"", capture_output=True, timeout=PATIENCE)
            self.assertEqual(result.returncode, code, (version, result.stderr))

    def test_frames_come_as_the_camera_sent_them(self):
        camera = Simulator(sensor="2048x1024")
        self.addCleanup(camera.retire)
        server = self.start(camera.target)
        watcher = server.watch()
        self.addCleanup(watcher.close)
        watcher.settle()
        for number in (1, 2, 3):
            self.assertEqual(server.expose(exposure=0.001)["state"], "complete")
            truth = camera.frame(number)["crc"]
            body = server.get("%s/exposures/%d/frame.raw" % (CAMERA, number)).body
            self.assertEqual(zlib.crc32(body), truth)
            facts, pixels = watcher.frame()
            self.assertEqual((zlib.crc32(pixels), facts["missed"]), (truth, 0))

    def test_events_come_as_they_happen(self):
        server = self.start(SIM)
        connection = server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", CAMERA + "/events")
        response = connection.getresponse()
        self.assertIn(b"events of camera 0", response.readline())
        server.ask("PUT", CAMERA + "/properties/gain", {"value": 3})
        for line in response:
            if line == b"event: property\n":
                return
        self.fail("the events ended")

    def test_a_body_that_is_too_long_is_answered(self):
        server = self.start(SIM)
        answer = server.ask("PUT", CAMERA + "/properties/gain", b"x" * 1000000)
        self.assertEqual((answer.status, answer.kind), (413, "too-long"))


class Callers(Secret):
    def holder(self, server, source):
        connection = server.connection(source=(source, 0))
        self.addCleanup(connection.close)
        connection.request("POST", CAMERA + "/lease", '{"take": true}',
                           {"Content-Type": "application/json"})
        body = connection.getresponse().read()
        return re.search(rb'"holder":"([^"]*)"', body).group(1).decode()

    def test_a_caller_is_known_by_its_own_address(self):
        server = self.start(SIM)
        for source in ("127.0.0.1", "127.0.0.5", "127.1.2.3"):
            self.assertEqual(self.holder(server, source), source)

    def test_nobody_comes_in_behind_the_front(self):
        camera = Simulator()
        self.addCleanup(camera.retire)
        server = self.start(camera.target)
        ports = self.ports(server.process.pid) - {server.port}
        self.assertEqual(len(ports), 1)
        inside = ports.pop()
        answer = raw_exchange(inside, b"GET /api/v1/cameras HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                      b"Connection: close\r\n\r\n")
        self.assertIn(b" 403 ", answer)
        self.assertNotIn(b"cameras\":", answer)
        watcher = WebSocket(inside, CAMERA + "/live")
        self.addCleanup(watcher.close)
        self.assertEqual(watcher.status, 403)

    @staticmethod
    def ports(process):
        """On which it listens."""
        inodes = set()
        for name in os.listdir("/proc/%d/fd" % process):
            try:
                match = re.match(r"socket:\[(\d+)\]",
                                 os.readlink("/proc/%d/fd/%s" % (process, name)))
            except FileNotFoundError:  # closed since
                continue
            if match:
                inodes.add(match.group(1))
        with open("/proc/net/tcp", encoding="ascii") as file:
            rows = [line.split() for line in file.readlines()[1:]]
        return {int(row[1].split(":")[1], 16) for row in rows
                if row[3] == "0A" and row[9] in inodes}

    def test_tokens_cookies_and_sites_are_as_without(self):
        path = self.files.path("token")
        with open(path, "w", encoding="ascii") as file:
            file.write("0123456789abcdef\n")
        os.chmod(path, 0o600)
        code, said = self.refused(SIM, "--listen", "0.0.0.0:0", "--tls", self.words())
        self.assertEqual(code, 1)
        self.assertIn("--token-file", said)
        server = SecretServer(self.files, SIM, "--token-file", path)
        self.addCleanup(server.retire)
        self.assertEqual(server.get("/api/v1/cameras").status, 401)
        answer = server.ask("POST", "/api/v1/session", {"token": "0123456789abcdef"})
        cookie = answer.headers["set-cookie"]
        self.assertRegex(cookie, "; Secure$")
        key = {"Cookie": cookie.split(";")[0], "Host": "camera.example:8443"}
        self.assertEqual(server.get("/api/v1/cameras", headers=key).status, 200)
        for origin, status in (("https://camera.example:8443", 200), ("https://evil.example", 403)):
            answer = server.ask("POST", CAMERA + "/lease", {}, dict(key, Origin=origin))
            self.assertEqual(answer.status, status, answer.body)

    def words(self):
        return self.files.path("chain.pem") + "," + self.files.path("leaf.key")


class Strangers(Secret):
    def test_who_speaks_no_tls_is_told_so(self):
        server = self.start(SIM)
        answer = raw_exchange(server.port, b"GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        self.assertTrue(answer.startswith(b"HTTP/1.1 400 "), answer)
        self.assertIn(b"https", answer)
        for garbage in (b"\0" * 100000, b"\x16\x03\x01\xff\xff" + b"x" * 70000, b"SSH-2.0-x\r\n"):
            with contextlib.suppress(ConnectionResetError):
                raw_exchange(server.port, garbage)  # it ends
        self.assertEqual(server.get("/healthz").status, 200)

    def test_who_says_nothing_holds_nobody_up(self):
        server = self.start(SIM)  # which serves 40 at once
        silent = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(300)]
        for stranger in silent[::2]:
            stranger.sendall(b"\x16\x03\x01\x02\x00\x01")  # and begins to, at that
        begun = time.monotonic()
        self.assertEqual(server.get("/healthz").status, 200)
        self.assertLess(time.monotonic() - begun, 8)  # less than they may be silent
        silent[0].settimeout(PATIENCE)
        self.assertEqual(silent[0].recv(1), b"")  # it made room
        for stranger in silent:
            stranger.close()

    def test_who_takes_nothing_holds_nobody_up(self):
        camera = Simulator(sensor="2048x2048")
        self.addCleanup(camera.retire)
        server = self.start(camera.target)
        server.expose(exposure=0.001)
        lazy = [server.wrapped() for _ in range(10)]
        for stranger in lazy:
            stranger.sendall(b"GET %s/exposures/1/frame.raw HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
                             % CAMERA.encode())
        truth = camera.frame(1)["crc"]
        self.assertEqual(zlib.crc32(server.get(CAMERA + "/exposures/1/frame.raw").body), truth)
        for stranger in lazy:
            stranger.close()

    def test_more_than_are_served_at_once_come_one_behind_the_other(self):
        server = self.start(SIM, "--connections", "4")
        first = [server.wrapped() for _ in range(4)]
        for connection in first:
            connection.sendall(b"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            self.assertTrue(connection.recv(4096))
        waiting = socket.create_connection(("127.0.0.1", server.port), PATIENCE)
        first[0].close()
        with server.context.wrap_socket(waiting, server_hostname="127.0.0.1") as late:
            late.sendall(b"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
            self.assertTrue(late.recv(4096))
        for connection in first:
            connection.close()

    def test_it_ends_with_all_of_them_there(self):
        server = self.start(SIM)
        places = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(5)]
        places += [server.wrapped() for _ in range(3)]
        places[-1].sendall(b"GET %s/events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" % CAMERA.encode())
        self.assertTrue(places[-1].recv(4096))
        watcher = server.watch()
        watcher.settle()
        self.assertEqual(server.end(), 0)
        watcher.close()
        for place in places:
            place.close()


class Starts(Secret):
    def test_what_is_wrong_with_certificate_and_key_is_said(self):
        path = self.files.path
        openssl("rsa", "-aes256", "-passout", "pass:secret", "-in", path("leaf.key"), "-out",
                path("locked.key"))
        openssl("ecparam", "-genkey", "-name", "prime256v1", "-out", path("other-kind.key"))
        with open(path("empty"), "wb"):
            pass
        os.mkfifo(path("pipe"))
        cases = [("none.pem", "leaf.key", 5, "none.pem: cannot be read: No such file"),
                 ("leaf.pem", "none.key", 5, "none.key: cannot be read: No such file"),
                 ("empty", "leaf.key", 5, "empty: cannot be read: it is empty"),
                 ("", "leaf.key", 5, "cannot be read"),
                 ("pipe", "leaf.key", 5, "pipe: cannot be read: it is no regular file"),
                 ("leaf.pem", "pipe", 5, "pipe: cannot be read: it is no regular file"),
                 ("leaf.key", "leaf.key", 1, "leaf.key: is no certificate in PEM"),
                 ("leaf.pem", "leaf.pem", 1, "leaf.pem: is no key in PEM"),
                 ("leaf.pem", "middle.key", 1, "middle.key: is not the key of"),
                 ("leaf.pem", "other-kind.key", 1, "other-kind.key: is not the key of"),
                 ("leaf.pem", "locked.key", 1, "locked.key: has a passphrase")]
        for certificate, key, code, text in cases:
            with self.subTest((certificate, key)):
                told, said = self.refused(SIM, "--listen", "127.0.0.1:0", "--tls",
                                          path(certificate) + "," + path(key))
                self.assertIn(text, said)
                self.assertEqual(told, code)
        self.assertEqual(self.refused(SIM, "--tls", "one")[0], 1)

    def test_a_key_that_everybody_can_read_is_refused_and_a_group_may(self):
        key = self.files.path("shared.key")
        openssl("rsa", "-in", self.files.path("leaf.key"), "-out", key)
        words = [SIM, "--listen", "127.0.0.1:0", "--tls", self.files.path("chain.pem") + "," + key]
        for mode in (0o644, 0o604, 0o602):
            os.chmod(key, mode)
            code, said = self.refused(*words)
            self.assertEqual(code, 1, oct(mode))
            self.assertIn("shared.key: holds the key, and everybody can read it", said)
        os.chmod(key, 0o640)
        server = Process(SERVER, *words)
        self.addCleanup(server.retire)
        server.line("serving 1 camera at https://")

    def test_a_port_that_is_taken_ends_it(self):
        words = ["--tls", self.files.path("chain.pem") + "," + self.files.path("leaf.key")]
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            place = "127.0.0.1:%d" % taken.getsockname()[1]
            code, said = self.refused(SIM, "--listen", place, *words)
        self.assertEqual((code, said), (1, "vxcamd: cannot listen on %s: Address already in use\n"
                                        % place))
        code, said = self.refused(SIM, "--listen", "127.0.0.999:1", *words)
        self.assertEqual(code, 1)
        self.assertIn("no IPv4 address", said)

    def test_without_threads_it_ends_with_an_error_or_serves(self):
        library = os.environ.get("FEW_THREADS_LIBRARY")
        if not library:
            self.skipTest("no library that withholds threads")
        words = [SERVER, "127.0.0.1:1", "--listen", "127.0.0.1:0", "--connections", "4", "--tls",
                 "%s,%s" % (self.files.path("chain.pem"), self.files.path("leaf.key"))]
        ends = []
        for count in range(16):
            environment = dict(os.environ, LD_PRELOAD=library, FEW_THREADS=str(count))
            with subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                  env=environment) as process:
                if process.stdout.readline():  # it serves
                    process.send_signal(signal.SIGTERM)
                said = process.communicate(timeout=PATIENCE)[1]
                ends.append(process.returncode)
            self.assertIn(ends[-1], (0, 1, 5), (count, said))
            if ends[-1] != 0:
                self.assertIn("vxcamd: ", said)
        self.assertNotEqual(ends[0], 0)
        self.assertEqual(ends[-1], 0)

    def test_both_may_stand_in_one_file(self):
        both = self.files.path("both.pem")
        with open(both, "wb") as file:
            for name in ("leaf.key", "chain.pem"):
                with open(self.files.path(name), "rb") as part:
                    file.write(part.read())
        os.chmod(both, 0o600)
        server = Process(SERVER, SIM, "--listen", "127.0.0.1:0", "--tls", both + "," + both)
        self.addCleanup(server.retire)
        server.line("serving 1 camera at https://")

    def test_it_listens_on_addresses_of_ipv6(self):
        if not os.path.exists("/proc/net/if_inet6"):
            self.skipTest("no IPv6 here")
        words = "%s,%s" % (self.files.path("chain.pem"), self.files.path("leaf.key"))
        server = Process(SERVER, SIM, "--listen", "[::1]:0", "--tls", words)
        self.addCleanup(server.retire)
        port = server.line(r"serving 1 camera at https://\[::1\]:(\d+)/").group(1)
        context = ssl.create_default_context(cafile=self.files.path("root.pem"))
        context.check_hostname = False
        connection = http.client.HTTPSConnection("::1", int(port), timeout=PATIENCE, context=context)
        self.addCleanup(connection.close)
        connection.request("POST", CAMERA + "/lease", "{}", {"Content-Type": "application/json"})
        self.assertIn(b'"holder":"::1"', connection.getresponse().read())


if __name__ == "__main__":
    unittest.main()
