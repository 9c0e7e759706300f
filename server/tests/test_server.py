"""The server itself: who may ask, how it ends, and clients that mean harm."""

import base64
import json
import os
import re
import select
import signal
import socket
import subprocess
import tempfile
import time
import unittest

from server_support import (PATIENCE, SERVER, Process, Server, Simulator, WebSocket, raw_exchange, reap, until)

CAMERA = "/api/v1/cameras/0"
TOKEN = "correct-horse-battery-staple"
SIM = "sim?sensor=64x48"
REFUSED = 'vxcamd_http_answers_total{door="rest",status="%d"}'
PAGES = os.environ.get("VXCAMD_PAGES")  # folder of the manual page, where it is made
VXCAM = os.environ.get("VXCAM")  # the command line, where it is built


def tearDownModule():
    reap()


def run(*options):
    return subprocess.run([SERVER, *options], capture_output=True, text=True, timeout=PATIENCE,
                          env=dict(os.environ, DBGD_DISABLE="1"))


class WithServer(unittest.TestCase):
    def start(self, *options, targets=(SIM,)):
        server = Server(*targets, *options)
        self.addCleanup(server.retire)
        return server

    def token_file(self, text=TOKEN, mode=0o600):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = os.path.join(folder.name, "token")
        with open(path, "w", encoding="ascii") as file:
            file.write(text + "\n")
        os.chmod(path, mode)
        return path


class LeftToItself(Server):
    """With an environment that forbids no debug daemon."""

    @staticmethod
    def environment():
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        environment = dict(os.environ, DBGD_BIND="127.0.0.1", DBGD_PORTNUM=str(port),
                           DBGD_ANNOUCE_GROUP="127.0.0.1:7020")
        environment.pop("DBGD_DISABLE", None)
        return environment

    def listening(self):
        """All its ports of TCP."""
        folder = "/proc/%d/" % self.process.pid
        mine = {os.readlink(folder + "fd/" + name) for name in os.listdir(folder + "fd")}
        ports = set()
        with open(folder + "net/tcp", encoding="ascii") as table:
            for words in (line.split() for line in table):
                if words[3] == "0A" and "socket:[%s]" % words[9] in mine:
                    ports.add(int(words[1].split(":")[1], 16))
        return ports


class CommandLine(WithServer):
    def assertRefused(self, code, text, *options):
        result = run(*options)
        self.assertEqual(result.returncode, code, result)
        self.assertIn(text, result.stderr)

    def test_other_hosts_need_a_token(self):
        self.assertRefused(1, "--token-file", SIM, "--listen", "0.0.0.0:0")
        server = self.start("--listen", "0.0.0.0:0", "--token-file", self.token_file())
        self.assertEqual(server.get("/api/v1/cameras").status, 401)

    def test_a_token_that_others_can_read_or_guess_is_refused(self):
        self.assertRefused(1, "chmod", SIM, "--token-file", self.token_file(mode=0o644))
        self.assertRefused(1, "16", SIM, "--token-file", self.token_file("short"))
        self.assertRefused(1, "chmod", SIM, "--token-file", self.token_file(mode=0o440))
        nothing = self.token_file()
        os.truncate(nothing, 0)
        self.assertRefused(1, "16", SIM, "--token-file", nothing)
        self.assertRefused(5, "/nowhere", SIM, "--token-file", "/nowhere")

    def test_a_token_comes_in_a_regular_file_alone(self):
        folder = os.path.dirname(self.token_file())
        pipe, link = (os.path.join(folder, name) for name in ("pipe", "link"))
        os.mkfifo(pipe, 0o600)
        os.symlink("token", link)
        for path in (pipe, folder, "/dev/null"):
            self.assertRefused(5, "no regular file", SIM, "--token-file", path)
        self.addCleanup(os.environ.pop, "CREDENTIALS_DIRECTORY")
        os.environ["CREDENTIALS_DIRECTORY"] = folder
        self.assertRefused(5, "no regular file", SIM, "--token-file", pipe)
        self.start("--token-file", link)

    def test_the_unit_of_the_service_manager_starts_it(self):
        unit = os.path.join(os.path.dirname(os.environ["VXCAMD"]), "vxcamd.service")
        with open(unit, encoding="utf-8") as file:
            line = next(line for line in file if line.startswith("ExecStart="))
        camera = Simulator()
        self.addCleanup(camera.retire)
        known = {"${CREDENTIALS_DIRECTORY}/token": [self.token_file()], "$CAMERAS": [camera.target],
                 "$OPTIONS": ["--alpaca", "--discovery-port", "0", "--at-end", "finish"]}
        words = [each for word in line.split("=", 1)[1].split()[1:]
                 for each in known.get(word, [word])]
        server = self.start(*words, targets=())
        self.assertEqual(server.get("/api/v1/cameras").status, 401)
        self.assertEqual(
            server.get("/api/v1/cameras", headers={"Authorization": "Bearer " + TOKEN}).status, 200)

    def test_a_token_that_the_service_manager_hands_over_is_taken(self):
        """Its access list shows as the rights of a group."""
        path, elsewhere = (self.token_file(mode=0o440) for _ in range(2))
        self.addCleanup(os.environ.pop, "CREDENTIALS_DIRECTORY")
        os.environ["CREDENTIALS_DIRECTORY"] = os.path.dirname(path)
        server = self.start("--token-file", path)
        answer = server.get("/api/v1/cameras", headers={"Authorization": "Bearer " + TOKEN})
        self.assertEqual(answer.status, 200)
        self.assertRefused(1, "chmod", SIM, "--token-file", elsewhere)
        os.chmod(path, 0o444)
        self.assertRefused(1, "chmod", SIM, "--token-file", path)

    def test_what_makes_no_sense_is_refused(self):
        self.assertRefused(1, "TARGET")
        self.assertRefused(1, "twice", "127.0.0.1:9", "127.0.0.1:9")
        self.assertRefused(1, "port", SIM, "--listen", "127.0.0.1:99999")
        for option in ("--lease", "--keep", "--pixel-size"):
            for word in ("nan", "x", "", "-1", "1e9", "2 "):
                self.assertRefused(1, "%s: " % option, SIM, "--listen", "127.0.0.1:0", "--alpaca",
                                   option, word)
        self.assertRefused(1, "--lease: 1 to 86400 is needed, not 'x'", SIM, "--lease", "x")
        for words in (("--pixel-size", "5"), ("--discovery-port", "0"), ("--alpaca-without-token",),
                      ("--alpaca-interface", "3")):
            self.assertRefused(1, words[0] + " requires --alpaca", SIM, "--listen", "127.0.0.1:0",
                               *words)
        self.assertRefused(1, "not ':8080'", SIM, "--listen", ":8080")
        self.assertRefused(1, "ADDRESS:PORT", SIM, "--listen", "nonsense")
        self.assertRefused(1, "no IPv4 address", SIM, "--listen", "nonsense:80", "--token-file",
                           self.token_file())
        self.assertRefused(1, "Cannot assign requested address", SIM, "--listen", "198.51.100.1:0",
                           "--token-file", self.token_file())
        with socket.create_server(("127.0.0.1", 0)) as other:
            self.assertRefused(1, "Address already in use", SIM, "--listen",
                               "127.0.0.1:%d" % other.getsockname()[1])

    def test_it_opens_no_port_but_its_own(self):
        server = LeftToItself("127.0.0.1:9")
        self.addCleanup(server.retire)
        self.assertEqual(server.listening(), {server.port})

    def test_help_and_version_are_printed(self):
        self.assertIn("--token-file", run("--help").stdout)
        self.assertRegex(run("--version").stdout, r"^vxcamd \d+\.\d+\.\d+\n$")

    @unittest.skipUnless(PAGES, "which pages are meant is not said")
    def test_the_manual_page_and_the_completion_know_every_option(self):
        options = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", run("--help").stdout, re.M))
        self.assertGreater(len(options), 15)
        page = os.path.join(PAGES, "vxcamd.1")
        told = subprocess.run(["groff", "-man", "-ww", "-b", "-z", page], capture_output=True, text=True, check=True)
        self.assertEqual(told.stderr, "")
        told = subprocess.run(["groff", "-man", "-Tascii", "-P-c", "-P-b", "-P-u", "-P-o", page],
                              capture_output=True, text=True, check=True).stdout
        for part in ("shares cameras", "127.0.0.1:8080", "EXIT STATUS", "vxcamd sim", *options):
            self.assertIn(part, told)
        script = 'source "$0"; COMPREPLY=(); _vxcamd vxcamd "$1" "$2"; printf "%s\\n" "${COMPREPLY[@]}"'
        offers = lambda *words: subprocess.run(
            ["bash", "--norc", "-c", script, os.path.join(PAGES, "vxcamd.bash"), *words],
            capture_output=True, text=True, check=True).stdout.split()
        self.assertEqual(set(offers("--", "vxcamd")), options)
        self.assertEqual(offers("a", "--at-end"), ["abort"])


class Ending(WithServer):
    def test_it_ends_in_order_and_aborts_what_runs(self):
        server = self.start()
        server.open()
        server.ask("POST", CAMERA + "/exposures", {"exposure": 600})
        watcher = WebSocket(server.port, CAMERA + "/live")
        begun = time.monotonic()
        self.assertEqual(server.end(), 0)
        self.assertLess(time.monotonic() - begun, 10)
        watcher.close()

    def test_a_second_signal_ends_it_also_while_it_waits_for_a_camera(self):
        camera = Simulator()
        self.addCleanup(camera.end, signal.SIGKILL)
        server = Server(camera.target)
        server.open()
        camera.process.send_signal(signal.SIGSTOP)
        sent = 'vxcamd_sent_bytes_total{camera="0"}'
        before = server.metric(sent)
        client = server.connection()
        self.addCleanup(client.close)
        client.request("PUT", CAMERA + "/properties/gain", '{"value": 2}',
                       {"Content-Type": "application/json"})
        until(lambda: server.metric(sent) > before, "the camera is asked")
        server.process.send_signal(signal.SIGTERM)
        server.line("ending")

        def has_ended():
            server.process.send_signal(signal.SIGTERM)
            return server.process.poll() is not None
        until(has_ended, "the end")
        self.assertEqual(server.end(), 1)
        self.assertEqual(server.errors, ["vxcamd: ends at once"])

    def test_a_camera_that_is_not_there_is_named_once_and_when_it_is_back(self):
        attempts = []
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
            server = self.start(targets=(SIM, "127.0.0.1:%d" % port))
            while len(attempts) < 3:  # each of them fails
                attempts.append(listener.accept()[0])
                attempts[-1].close()
        name = r"vxcamd: camera 1 \(127\.0\.0\.1:%d\)" % port
        until(lambda: len(server.errors) == 1, "it is told")
        self.assertRegex(server.errors[0], name + ": .")
        camera = Simulator(port=port)
        until(lambda: len(server.errors) == 2, "it is there")
        self.assertRegex(server.errors[1], name + ": is there, after [0-9]+s$")
        server.open(1)
        camera.end(signal.SIGKILL)
        until(lambda: len(server.errors) == 3, "it is gone")
        self.assertRegex(server.errors[2], name + ": the connection is lost$")
        self.addCleanup(Simulator(port=port).retire)
        until(lambda: len(server.errors) == 4, "it is back")
        self.assertRegex(server.errors[3], name + ": is there, after [0-9]+s$")

    def test_the_log_of_the_library_is_shown_where_that_is_wanted(self):
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        server = self.start("--verbose", targets=("127.0.0.1:%d" % port,))
        until(lambda: any("ERR:" in line for line in server.errors), "a line of the library")

    def test_it_ends_at_once_when_nobody_is_connected(self):
        times = []
        for _ in range(3):
            server = self.start("--listen", "0.0.0.0:0", "--token-file", self.token_file())
            begun = time.monotonic()
            self.assertEqual(server.end(), 0)
            times.append(time.monotonic() - begun)
        self.assertLess(min(times), 1)

    def test_it_finishes_what_runs_where_it_is_told_to(self):
        server = self.start("--at-end", "finish")
        server.open()
        server.ask("POST", CAMERA + "/exposures", {"exposure": 1.5})
        server.process.send_signal(signal.SIGTERM)
        server.line("ending")
        answer = server.ask("POST", CAMERA + "/exposures", {})
        self.assertEqual(answer.status, 503 if answer.kind == "ending" else 409)
        self.assertEqual(server.get("/healthz").body, b"ok\n")
        exposure = server.get(CAMERA + "/exposures/1?wait=10").json
        self.assertEqual(exposure["state"], "complete")
        self.assertEqual(server.get(CAMERA + "/exposures/1/frame.fits").status, 200)
        self.assertEqual(server.end(), 0)

    def test_a_second_signal_ends_it_at_once(self):
        server = self.start("--at-end", "finish")
        server.open()
        server.ask("POST", CAMERA + "/exposures", {"exposure": 600})
        server.process.send_signal(signal.SIGTERM)
        server.line("ending")
        self.assertEqual(server.end(signal.SIGINT), 0)


class Tokens(WithServer):
    def setUp(self):
        self.server = self.start("--token-file", self.token_file())

    def status(self, headers, path="/api/v1/cameras"):
        return self.server.get(path, headers=headers).status

    def socket_status(self, headers):
        socket_ = WebSocket(self.server.port, CAMERA + "/live", headers)
        socket_.close()
        return socket_.status

    def test_only_the_right_token_opens(self):
        basic = lambda pair: {"Authorization": "Basic " + base64.b64encode(pair).decode()}
        token = TOKEN.encode()
        for headers in ({"Authorization": "Bearer " + TOKEN}, {"Authorization": "bearer " + TOKEN},
                        basic(b"me:" + token), {"Cookie": "a=b; vxcamd=" + TOKEN}):
            self.assertEqual(self.status(headers), 200, headers)
        for headers in ({}, {"Authorization": TOKEN}, {"Authorization": "Bearer"},
                        {"Authorization": "Bearer " + TOKEN[:-1]}, {"Cookie": "vxcamd="},
                        {"Authorization": "Bearer " + TOKEN + "x"}, basic(token), basic(b"\xff"),
                        {"Authorization": "Bearer " + TOKEN.upper()}, basic(token + b":"),
                        {"Cookie": "xvxcamd=" + TOKEN}, {"Authorization": "Basic %%%"}):
            self.assertEqual(self.status(headers), 401, headers)
            self.assertEqual(self.status(headers, "/metrics"), 401)
        self.assertEqual(self.status({}, "/healthz"), 200)
        self.assertEqual(self.socket_status({}), 401)

    def test_the_token_is_traded_for_a_cookie(self):
        answer = self.server.ask("POST", "/api/v1/session", {"token": TOKEN})
        cookie = answer.headers["set-cookie"]
        for part in ("HttpOnly", "SameSite=Strict"):
            self.assertIn(part, cookie)
        headers = {"Cookie": cookie.split(";")[0]}
        self.assertEqual(self.status(headers), 200)
        self.assertEqual(self.socket_status(headers), 101)
        self.assertEqual(self.server.ask("POST", "/api/v1/session", {"token": "x"}).status, 401)

    def test_no_secret_is_printed(self):
        key = {"Authorization": "Bearer " + TOKEN}
        self.server.get("/api/v1/cameras?token=" + TOKEN, headers=key)
        self.server.get("/" + TOKEN, headers={"Authorization": "Bearer x" + TOKEN})
        raw_exchange(self.server.port, b"GARBAGE " + TOKEN.encode() + b"\r\n\r\n")
        lease = self.server.ask("POST", CAMERA + "/lease", {}, key).json["key"]
        self.server.end()
        printed = "\n".join(self.server.lines + self.server.errors)
        self.assertNotIn(TOKEN, printed)
        self.assertNotIn(lease, printed)


class Sites(WithServer):
    def test_pages_of_other_sites_change_nothing(self):
        server = self.start()
        server.open()
        here = "http://127.0.0.1:%d" % server.port
        for origin, status in ((here, 200), ("http://evil.example", 403), ("null", 403),
                               ("http://127.0.0.1:1", 403), (here + ".evil.example", 403)):
            with self.subTest(origin):
                headers = {"Origin": origin}
                put = server.ask("PUT", CAMERA + "/properties/gain", {"value": 1}, headers)
                self.assertEqual(put.status, status)
                socket_ = WebSocket(server.port, CAMERA + "/live", headers)
                self.assertEqual(socket_.status, 101 if status == 200 else 403)
                socket_.close()

    def test_names_that_others_answer_for_are_refused(self):
        server = self.start()
        for host, status in (("localhost:1", 200), ("127.0.0.1", 200), ("[::1]:80", 200),
                             ("LocalHost", 200), ("evil.example", 403), ("127.0.0.1.evil.example:80", 403)):
            answer = server.get("/api/v1/cameras", headers={"Host": host})
            self.assertEqual(answer.status, status, host)

    def test_what_needs_no_token_is_not_for_pages_of_other_sites(self):
        server = self.start("--alpaca", "--alpaca-without-token", "--discovery-port", "0",
                            "--token-file", self.token_file())
        connected = "/api/v1/camera/0/connected"

        def status(host, method="PUT", path=connected, **headers):
            form = {"Content-Type": "application/x-www-form-urlencoded"}
            return server.ask(method, path, "Connected=false" if method == "PUT" else None,
                              {"Host": host, **form, **headers}).status
        evil = "evil.example:%d" % server.port
        here = "127.0.0.1:%d" % server.port
        for host in ("evil.example", evil):
            self.assertEqual(status(host, Origin="http://" + host), 403)
            self.assertEqual(status(host), 403)
            self.assertEqual(status(host, "GET"), 403)
            self.assertEqual(status(host, "GET", "/management/apiversions"), 403)
            self.assertEqual(status(host, Authorization="Bearer x"), 403)
            self.assertEqual(status(host, Authorization="Bearer " + TOKEN), 200)
            self.assertEqual(status(host, "GET", "/"), 200)  # the page asks for the token
        self.assertEqual(status(here, Origin="http://" + evil), 403)
        self.assertEqual(status(here, Origin="http://" + here), 200)
        for host in (here, "LOCALHOST:1", "192.168.1.7"):
            self.assertEqual(status(host), 200)


class Paths(WithServer):
    def test_no_path_leads_out_of_the_server(self):
        server = self.start()
        for path in ("/../../etc/passwd", "/..%2f..%2fetc/passwd", "/%2e%2e/etc/passwd", "//etc/passwd",
                     "/api/v1/../../etc/passwd", "/api/v1/cameras/0/../../../../etc/passwd",
                     "/.git/config", "/api/v1/cameras/%00", "/setup/../etc/passwd", "/%c0%ae/"):
            data = raw_exchange(server.port, b"GET " + path.encode() +
                                b" HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
            self.assertIn(data.split(b" ")[1], (b"404", b"400", b"403"), path)
            self.assertNotIn(b"root:", data)

    def test_frames_are_not_told_without_a_websocket(self):
        answer = self.start().get(CAMERA + "/live")
        self.assertEqual((answer.status, answer.kind), (426, "websocket"))
        self.assertEqual(answer.headers["upgrade"], "websocket")

    def test_every_refusal_is_told_in_the_words_of_its_door(self):
        server = self.start("--alpaca", "--discovery-port", "0")
        paths = (CAMERA + "/properties/gain", "/api/v1/camera/0/gain")
        head = b"PUT %s HTTP/1.1\r\nHost: 127.0.0.1\r\n"
        for lines, status, kind in ((b"Content-Length: 65537\r\n", 413, "too-long"),
                                    (b"Transfer-Encoding: chunked\r\n", 411, "length")):
            for path, is_json in zip(paths, (True, False)):
                data = raw_exchange(server.port, head % path.encode() + lines + b"\r\n", 3)
                told, _, body = data.partition(b"\r\n\r\n")
                self.assertEqual(int(told.split()[1]), status)
                self.assertEqual(b"application/json" in told, is_json)
                self.assertEqual(b"text/plain" in told, not is_json)
                if is_json:
                    error = json.loads(body)["error"]
                    self.assertEqual((error["kind"], error["code"], error["sub_code"]), (kind, 0, 0))
        for path in ("/api/v1//cameras/0", "/api/v1//cameras/0/properties/gain", "/api//v1/cameras/0"):
            answer = server.get(path)
            self.assertEqual((answer.status, answer.kind), (400, "usage"), path)
        answer = server.get(CAMERA + "/properties/gain%00x")
        self.assertEqual((answer.status, answer.kind), (400, "usage"))

    def test_a_path_means_what_its_percent_signs_stand_for(self):
        server = self.start()
        server.open()
        told = server.get("/api/v1/cameras/0/properties/gain").json
        for path in ("/api/v1/cameras/0/properties/g%61in", "/%61%70i/v1/cameras/%30/properties/gain"):
            self.assertEqual(server.get(path).json, told, path)
        for name in ("gpio:1", "gpio%3A1", "gpio%3a1"):
            self.assertEqual(server.get(CAMERA + "/properties/" + name).status, 200, name)
        answer = server.get(CAMERA + "/properties/a+b%2525")
        self.assertIn("a+b%25", answer.json["error"]["text"])
        watcher = WebSocket(server.port, CAMERA + "/l%69ve")
        self.assertEqual(watcher.status, 101)
        watcher.close()
        for part in ("gain%00", "gain%0A", "gain%7f", "gain%2fx", "gain%", "gain%3", "gain%zz", "%2E%2e",
                     "%2e", ".", "..", "/gain"):
            answer = server.get(CAMERA + "/properties/" + part)
            self.assertEqual((answer.status, answer.kind), (400, "usage"), part)
            watcher = WebSocket(server.port, CAMERA + "/" + part + "/live")
            self.assertEqual(watcher.status, 400, part)
            watcher.close()

    def test_what_is_not_there_is_404_and_a_wrong_verb_405(self):
        server = self.start()
        self.assertIn("/cameras/", server.get("/api/v1/cameras/").json["error"]["text"])
        for path in ("/odd", "/api", "/api/v1", "/api/v1/cameras/", "/api/v1/cameras/1", "/api/v1/cameras/00",
                     "/api/v1/cameras/-1", CAMERA + "/odd", CAMERA + "/exposures/x",
                     CAMERA + "/exposures/1/frame.exe", CAMERA + "/exposures/1/frames/0.fits"):
            self.assertEqual(server.get(path).status, 404, path)
        for path, allowed in (("/api/v1/cameras", "GET"), (CAMERA + "/lease", "GET, POST, DELETE"),
                              (CAMERA + "/properties/gain", "GET, PUT"), ("/healthz", "GET")):
            answer = server.ask("PATCH", path)
            self.assertEqual((answer.status, answer.headers.get("allow")), (405, allowed))
        for path in ("/api/v1/cameras/7/live", "/metrics"):
            watcher = WebSocket(server.port, path)
            self.assertEqual(watcher.status, 404)
            watcher.close()


class Hostile(WithServer):
    def alive(self, server, within=5):
        begun = time.monotonic()
        self.assertEqual(server.get("/healthz").body, b"ok\n")
        self.assertLess(time.monotonic() - begun, within)

    def test_long_bodies_are_refused_and_not_held(self):
        server = self.start()
        head = (b"PUT " + CAMERA.encode() + b"/properties/gain HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                b"Content-Type: application/json\r\n")
        for length in (65537, 100 * 1024 * 1024, 2**40):
            data = raw_exchange(server.port, head + b"Content-Length: %d\r\n\r\n" % length, 3)
            self.assertIn(b" 413 ", data.split(b"\r\n")[0])
        data = raw_exchange(server.port, head + b"Transfer-Encoding: chunked\r\n\r\n5\r\nabcde\r\n")
        self.assertIn(b" 411 ", data.split(b"\r\n")[0])
        for status, count in ((413, 3), (411, 1)):
            self.assertEqual(server.metric(REFUSED % status), count)
        with socket.create_connection(("127.0.0.1", server.port), PATIENCE) as connection:
            connection.sendall(head + b"Content-Length: 104857600\r\n\r\n")
            try:
                for _ in range(1600):
                    connection.sendall(b"x" * 65536)
            except OSError:
                pass
        self.alive(server)
        with open("/proc/%d/status" % server.process.pid, encoding="ascii") as file:
            held = next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))
        if "VX_SANITIZED" not in os.environ:  # sanitizers hold memory of their own
            self.assertLess(held, 100 * 1024)

    def test_a_client_that_expects_to_be_asked_is_asked(self):
        server = self.start()
        server.open()
        with socket.create_connection(("127.0.0.1", server.port), PATIENCE) as connection:
            connection.sendall(b"PUT " + CAMERA.encode() + b"/properties/gain HTTP/1.1\r\n"
                               b"Host: 127.0.0.1\r\nContent-Length: 11\r\nConnection: close\r\n"
                               b"Content-Type: application/json\r\nExpect: 100-continue\r\n\r\n")
            self.assertEqual(connection.recv(100), b"HTTP/1.1 100 Continue\r\n\r\n")
            connection.sendall(b'{"value":1}')
            self.assertIn(b" 200 ", connection.makefile("rb").readline())

    def test_a_body_that_drips_is_given_up(self):
        server = self.start()
        begun = time.monotonic()
        with socket.create_connection(("127.0.0.1", server.port), PATIENCE) as connection:
            connection.sendall(b"PUT " + CAMERA.encode() + b"/properties/gain HTTP/1.1\r\n"
                               b"Host: 127.0.0.1\r\nContent-Length: 60000\r\n\r\n")
            while not select.select([connection], [], [], 0.5)[0]:
                connection.sendall(b"x")
                self.assertLess(time.monotonic() - begun, PATIENCE)
            self.assertIn(b" 408 ", connection.recv(1000).split(b"\r\n")[0])
        self.assertEqual(server.metric(REFUSED % 408), 1)

    def test_websockets_that_are_refused_are_counted(self):
        server = self.start()
        refused = WebSocket(server.port, "/api/v1/cameras/9/live")
        self.addCleanup(refused.close)
        self.assertEqual(refused.status, 404)
        self.assertEqual(server.metric(REFUSED % 404), 1)

    def test_requests_that_are_none_do_no_harm(self):
        server = self.start()
        for data in (b"\r\n\r\n", b"GET\r\n\r\n", b"\x16\x03\x01" + b"\x00" * 60, b"GET / HTTP/9\r\n\r\n",
                     b"GET " + b"/" * 20000 + b" HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\n" +
                     b"X: y\r\n" * 200 + b"\r\n", b"PUT / HTTP/1.1\r\nContent-Length: -1\r\n\r\n",
                     b"GET /?" + b"%" * 100 + b" HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n",
                     b"PUT / HTTP/1.1\r\nContent-Length: x\r\n\r\n", os.urandom(4000)):
            raw_exchange(server.port, data, 0.3)
        self.alive(server)

    def test_what_is_no_request_is_told_so_as_all_else_is(self):
        server = self.start()
        for data in (b"FOO / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", b"GET / HTTP/1.1\r\n\x01: y\r\n\r\n",
                     b"GET / HTTP/1.1\r\nX: " + b"y" * 17000 + b"\r\n\r\n"):
            head, _, body = raw_exchange(server.port, data).partition(b"\r\n\r\n")
            self.assertIn(b" 400 ", head.split(b"\r\n")[0], data[:20])
            self.assertIn(b"Content-Type: application/json", head)
            error = json.loads(body)["error"]
            self.assertEqual((error["kind"], error["code"]), ("usage", 0))
            self.assertIn("no request of HTTP", error["text"])
        self.assertEqual(server.metric(REFUSED.replace("rest", "other") % 400), 3)

    def test_a_length_that_is_none_is_told_so(self):
        server = self.start()
        for length in (b"-1", b"abc", b"1x", b""):
            data = raw_exchange(server.port, b"PUT " + CAMERA.encode() + b"/properties/gain HTTP/1.1\r\n"
                                b"Host: 127.0.0.1\r\nContent-Length: " + length + b"\r\n\r\n", 3)
            head, _, body = data.partition(b"\r\n\r\n")
            self.assertEqual((head.split()[1], json.loads(body)["error"]["kind"]), (b"411", "length"))

    def test_clients_that_dawdle_hold_up_nobody(self):
        server = self.start("--connections", "1100")
        server.open()
        clients = []
        for number in range(1000):
            client = socket.create_connection(("127.0.0.1", server.port), PATIENCE)
            client.sendall(b"GET / HTTP/1.1\r\nX-%d: " % number)
            clients.append(client)
        self.alive(server, within=2)
        self.assertEqual(server.expose(exposure=0.001)["state"], "complete")
        for client in clients:
            client.close()
        self.alive(server, within=2)

    def test_a_client_that_reads_nothing_holds_up_nobody(self):
        server = self.start(targets=("sim?sensor=1024x1024",))
        server.open()
        server.expose(exposure=0.001)
        lazy = socket.socket()
        lazy.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        lazy.connect(("127.0.0.1", server.port))
        lazy.sendall(b"GET " + CAMERA.encode() + b"/exposures/1/frame.raw HTTP/1.1\r\n"
                     b"Host: 127.0.0.1\r\n\r\n")
        self.alive(server, within=2)
        self.assertEqual(server.expose(exposure=0.001)["state"], "complete")
        lazy.close()

    def test_what_a_websocket_says_in_vain_is_answered_and_counted(self):
        server = self.start()
        server.open()
        watcher = WebSocket(server.port, CAMERA + "/live")
        self.addCleanup(watcher.close)
        texts = ("", "{", "[]", "{}", "null", '{"rate": "x"}', '{"rate": -1}', '{"more": -1}', '{"more": 1.5}',
                 '{"beat": 0.05}', '{"beat": 61}', '{"beat": "1"}', '{"more": 1, "rates": 5}', '{"part": 3}', '{"part": {"step": 0}}', '{"rate": null}', "\xff",
                 '{"part": {"colum": 10}}', '{"part": {"row": 0, "": 1}}', '{"part": {"row": 1.5}}', '{"part": {"row": 65536}}',
                 '{"rate": 5, "rate": 6}', '{"part": {"row": 0, "row": 1}}', '{"rate": 5}}', "[" * 100)

        def told():
            return next(each["error"] for each in iter(watcher.message, None)
                        if isinstance(each, dict) and each["message"] == "error")
        for text in texts:
            watcher.send(text)
            error = told()
            self.assertEqual((error["kind"], error["code"], error["sub_code"]), ("usage", 0, 0), text)
            self.assertTrue(error["text"], text)
        watcher.socket.sendall(b"\x82\x82" + bytes(4) + b"{}")  # bytes
        self.assertEqual(told()["kind"], "usage")
        count = server.metric("vxcamd_watcher_messages_refused_total")
        self.assertEqual(count, len(texts) + 1)
        for text in ('{"rate": 1e99}', '{"rate": 0}', '{"rate": 1000}', '{"part": {}}'):
            watcher.send(text)  # still taken, and "more" above was not
        server.expose(exposure=0.001)
        self.assertTrue(watcher.frame()[0]["complete"])
        self.assertEqual(server.metric("vxcamd_watcher_messages_refused_total"), count)

    def watch(self, server):
        watcher = WebSocket(server.port, CAMERA + "/live")
        self.addCleanup(watcher.close)
        self.assertEqual(watcher.status, 101)
        return watcher

    def test_a_flood_of_such_messages_ends_the_connection_alone(self):
        server = self.start()
        watcher = self.watch(server)
        for _ in range(150):
            watcher.send("{")
        self.assertEqual(watcher.close_code(), 1008)
        until(lambda: server.metric("vxcamd_watchers") == 0, "the watcher is gone")
        self.watch(server)

    def test_a_message_in_pieces_is_put_together(self):
        server = self.start()
        watcher = self.watch(server)
        for _ in range(3):
            watcher.send_piece(0x01, b'{"beat"')
            watcher.send_piece(0x00)
            watcher.settle()
            watcher.send_piece(0x80, b": 0.1}")
        watcher.settle()
        self.assertEqual(server.metric("vxcamd_watcher_messages_refused_total"), 0)
        for message in iter(watcher.message, None):
            if message == {"message": "beat"}:
                break
        watcher.send_piece(0x01, b" " * 65530)
        watcher.send_piece(0x80, b'{"x":1}'[:6])
        until(lambda: server.metric("vxcamd_watcher_messages_refused_total") == 1, "it is read")
        watcher.send_piece(0x01, b" " * 65530)
        watcher.send_piece(0x00, b'{"x":1}')
        self.assertEqual(watcher.close_code(), 1009)

    def test_a_websocket_is_closed_as_the_protocol_says(self):
        server = self.start()
        for pieces, code in ((((0x88, b""),), None), (((0x88, b"\x03\xe8bye"),), 1000),
                             (((0x88, b"\x0f\xa1"),), 4001), (((0x88, b"\x03\xed"),), 1002),
                             (((0x80, b"{}"),), 1002), (((0x01, b"{"), (0x81, b"}")), 1002),
                             (((0x83, b"{}"),), 1002), (((0xC1, b"{}"),), 1002)):
            with self.subTest(pieces):
                watcher = self.watch(server)
                for head, data in pieces:
                    watcher.send_piece(head, data)
                self.assertEqual(watcher.close_code(), code)
        until(lambda: server.metric("vxcamd_watchers") == 0, "they are gone")

    def test_websockets_that_send_garbage_are_closed(self):
        server = self.start()
        watcher = WebSocket(server.port, CAMERA + "/live")
        self.assertEqual(watcher.status, 101)
        watcher.socket.sendall(os.urandom(3000))
        watcher.close()
        until(lambda: server.metric("vxcamd_watchers") == 0, "the watcher is gone")

    def test_the_page_is_opened_by_what_the_desktop_has_for_it(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        opened, opener = (os.path.join(folder.name, name) for name in ("opened", "xdg-open"))
        with open(opener, "w", encoding="ascii") as file:
            file.write("#!/bin/sh\necho \"$1\" >%s.new && mv %s.new %s\n" % ((opened,) * 3))
        os.chmod(opener, 0o755)
        path = os.environ["PATH"]
        self.addCleanup(os.environ.__setitem__, "PATH", path)
        places = [folder.name, os.path.dirname(SERVER), path]
        os.environ["PATH"] = ":".join(places)
        for words in ([SERVER, "sim", "--listen", "127.0.0.1:0", "--open"],
                      *([[VXCAM, "view"]] if VXCAM else ())):
            server = Process(*words)
            self.addCleanup(server.retire)
            address = server.line(r"serving 1 camera at (http://127\.0\.0\.1:\d+/)").group(1)
            until(lambda: os.path.exists(opened), "the browser is asked")
            with open(opened, encoding="ascii") as file:
                self.assertEqual(file.read().strip(), address)
            os.remove(opened)
            self.assertEqual(server.end(signal.SIGINT), 0)
        if VXCAM:
            told = subprocess.run([VXCAM, "view", "--help"], capture_output=True, text=True, check=True)
            self.assertIn("until Ctrl-C, which is code 0 here", told.stdout)


if __name__ == "__main__":
    unittest.main()
