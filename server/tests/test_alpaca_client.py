"""Each Alpaca endpoint, asked rightly and in every wrong way."""

import itertools

from alpaca_client import (
    ACTION_NOT_IMPLEMENTED, ANSWERING_PUTS, CAMERA, CAMERA_PUTS, DRIVER, FORM, GETS, INVALID_VALUE,
    MANAGEMENT, NOT_CONNECTED, NOT_IMPLEMENTED, ONLY_V4, PUTS, Client, Refused, strict_json)
from alpaca_walk import WHOLE, Walk
from server_support import reap, until

BAD_IDS = ("", "%20", "-1", "text", "4294967296", "1.5", "1e3", "99999999999999999999", "%E2%82%AC")
HUGE = "9" * 3000
BAD_VALUES = {
    "bool": ("", " ", "1", "0", "yes", "on", "tru", "truee", "true false", "true;", "null",
             "\u0442rue", "true\0", HUGE),
    "int": ("", " ", "nan", "inf", "-inf", "one", "1.5", "1,0", "1e1", "0x1", "1_0", "1 2", "--1",
            "1-", "1;", "1\0", "\u0661", "\uff11", "true", "2147483648", "-2147483649",
            "4294967297", "18446744073709551617", HUGE, "1e400"),
    "double": ("", " ", "nan", "NaN", "-nan", "nan(1)", "inf", "-inf", "Infinity", "-infinity",
               "1e400", "-1e400", "one", "0,5", "1.000,5", "1,000.5", "0x10", "0x1p3", "1e", "e5",
               "--1", "1.5.2", "1 2", "1d", "1f", "1\0", "1_0", ".", "-", "\u0661",
               "\uff11.\uff15", "true", "1" + HUGE),
    "string": ()}
BAD_VALUES["short"] = BAD_VALUES["int"]
GOOD_VALUES = {
    "BinX": 1, "BinY": 1, "CoolerOn": "false", "FastReadout": "false", "Gain": 0, "NumX": 10,
    "NumY": 10, "StartX": 0, "StartY": 0, "Offset": 5, "ReadoutMode": 0, "SetCCDTemperature": 1.5,
    "SubExposureDuration": 0.5, "Direction": 0, "Light": "true", "Connected": "true",
    "Action": "FrameFacts", "Parameters": "", "Command": "x", "Raw": "false"}


def tearDownModule():
    reap()


shares = itertools.count()


def share(cases, parts):
    """All cases; a part of them in the short walk, each time another."""
    return cases if WHOLE else cases[next(shares) % parts::parts]


def good(member):
    values = {name: GOOD_VALUES.get(name) for name in PUTS[member]}
    if "Duration" in values:
        values["Duration"] = 0 if member == "startexposure" else 1
    return values


class Members(Walk):
    """What there is in each version of the interface."""

    def members(self, table):
        return [member for member in table if self.interface > 3 or member not in ONLY_V4]

    def quietly(self, member):
        try:
            return self.client.get(member)
        except Refused as refused:
            return refused.number

    def test_every_member_reads_as_its_type_or_refuses(self):
        for member in self.members(GETS):
            self.quietly(member)

    def test_members_of_another_version_do_not_exist(self):
        self.assertEqual(self.client.get("interfaceversion"), self.interface)
        for member in sorted(ONLY_V4):
            for method in ("GET", "PUT"):
                answer = self.client.raw(method, member)
                if self.interface == 3:
                    answer.check_refusal()
                elif (member in GETS) == (method == "GET"):
                    self.assertEqual(answer.status, 200, member)


class OldMembers(Members):
    interface = 3


class Protocol(Members):
    """What every camera of the interface must do, whatever it is."""

    def assertNotTaken(self, answer, what):
        """400, or InvalidValue."""
        if answer.status == 200:
            self.assertEqual(strict_json(answer.body)["ErrorNumber"], INVALID_VALUE, what)
        else:
            self.assertEqual(answer.status, 400, what)
            answer.check_refusal()

    def values(self):
        """All that can be set, as it reads."""
        names = [name for name in CAMERA_PUTS if name in CAMERA] + ["connected", "camerastate"]
        return {name: self.told(name) for name in names}

    def told(self, member):
        """The Value, or why there is none; that the camera was too busy to tell is no answer."""
        def ask():
            value, number = None, 0
            try:
                value = self.client.get(member)
            except Refused as refused:
                number = refused.number
            return None if number >= DRIVER else (value, number)
        return until(ask, member)

    def settle(self, member):
        """Ends what a good request began."""
        if member == "startexposure":
            self.wait_idle()
        if member in ("disconnect", "connect"):
            until(lambda: not self.client.get("connecting"), "connected or not")
            self.client.put("connected", Connected="true")

    def test_the_management_names_server_and_devices(self):
        for path in MANAGEMENT:
            self.client.get(path)
        device, = self.client.get("/management/v1/configureddevices")
        self.assertEqual((device["DeviceNumber"], device["DeviceName"]),
                         (0, self.client.get("name")))
        self.assertGreaterEqual(len(set(device["UniqueID"])), 6)
        self.assertGreaterEqual(len(device["UniqueID"]), 12)

    def test_the_setup_pages_are_html(self):
        for path in ("/setup", "/setup/v1/camera/0/setup"):
            answer = self.client.raw("GET", path)
            self.assertEqual(answer.status, 200, path)
            self.assertRegex(answer.type(), r"^text/html\b")
            self.assertIn("<", answer.text())

    def test_paths_that_are_none_are_refused(self):
        numbers = ("-1", "1", "99999", "4294967295", "4294967296", "99999999999999999999", "A", "",
                   "0.0", "0x0", "+0", "%20", "0%20", "%30%30a", "%E2%82%AC", "*", "0;")
        bad = ["/api/1/camera/0/connected", "/api/v/camera/0/connected",
               "/api/V1/camera/0/connected", "/api/v2/camera/0/connected",
               "/api/v1/Camera/0/connected", "/api/v1/CAMERA/0/connected", 
               "/api/v1/baddevice/0/connected",
               "/api/v1/telescope/0/connected", "/api/v1//0/connected", "/api/v1/camera/0/",
               "/api/v1/camera/0",
               "/api/v1/camera/0//connected", "/api/v1/camera/0/connected%00", "/api/v1/camera/0/connected/",
               "/api/v1/camera/0/connected/x", "/api/v1/camera/0/../0/Connected",
               "/api/v1/camera/0/%00", "/api/v1/camera/0/descrip",
               "/management", "/management/", "/management/v1", "/management/v2/description",
               "/management/v1/Description", "/management/apiversions/",
               "/management/v1/apiversions", "/management/description"]
        bad += ["/api/v1/camera/%s/connected" % number for number in numbers]
        bad += ["/api/v1/camera/0/" + name
                for name in ("Connected", "CONNECTED", "binX", "x", "%C3%BC")]
        for path in bad:
            for method in ("GET", "PUT"):
                with self.subTest(path=path, method=method):
                    answer = self.client.raw(method, path, {"Connected": "false"}
                                             if method == "PUT" else None)
                    answer.check_refusal()
        for path in ("/apx/v1/camera/0/connected", "/API/v1/camera/0/connected",
                     "/Management/apiversions"):
            self.assertIn(self.client.raw("GET", path).status, (400, 404), path)
        self.assertIs(self.client.get("connected"), True)

    def test_setup_pages_of_nothing_are_refused(self):
        for path in ("/setup/v1/camera/9/setup", "/setup/v1/camera/A/setup", "/setup/x",
                     "/setup/v2/camera/0/setup", "/setup/v1/Camera/0/setup",
                     "/setup/v1/camera/0/x"):
            self.assertIn(self.client.raw("GET", path).status, (400, 403, 404), path)

    def test_a_wrong_method_is_refused_and_does_nothing(self):
        before = self.values()
        for member in self.members({**GETS, **PUTS}):
            right = [verb for verb, table in (("GET", GETS), ("PUT", PUTS)) if member in table]
            methods = ("GET", "PUT", "POST", "DELETE", "PATCH", "OPTIONS", "get", "XYZZY")
            for method in share(methods, 3):
                if method in right:
                    continue
                with self.subTest(member=member, method=method):
                    body = good(member) if member in PUTS and method != "GET" else None
                    answer = self.client.raw(method, member, body)
                    self.assertIn(answer.status // 100, (4, 5) if method == "XYZZY" else (4,))
                    if method in ("GET", "PUT", "POST", "DELETE"):
                        answer.check_refusal()
        for path in MANAGEMENT:
            for method in ("PUT", "POST", "DELETE"):
                self.client.raw(method, path).check_refusal()
        self.assertEqual(self.values(), before)
        self.assertIs(self.client.get("imageready"), False)

    def test_names_in_a_query_have_any_case_and_strangers_are_ignored(self):
        for member in self.members(GETS):
            for names in share([("clientid", "clienttransactionid"),
                                ("CLIENTID", "CLIENTTRANSACTIONID"),
                                ("cLIENTid", "cLIENTtRANSACTIONid")], 3):
                query = "?%s=77&stranger=%%20x&%s=4294967295&=&&a" % names
                answer = self.client.raw("GET", self.client.path(member) + query)
                answer.envelope(4294967295, GETS[member])
        for path, kind in MANAGEMENT.items():
            self.client.raw("GET", path + "?clientTRANSACTIONid=9&x=y").envelope(9, kind)

    def test_bad_ids_are_refused_or_count_as_none(self):
        bad = ["ClientTransactionID=" + each for each in BAD_IDS]
        bad += ["ClientTransactionID=12&ClientID=" + each for each in BAD_IDS]
        bad += ["ClientTransactionID=0", "ClientTransactionID", "ClientID"]
        for member in list(MANAGEMENT) + self.members(GETS):
            kind = {**MANAGEMENT, **GETS}[member]
            for query in share(bad, 10):
                with self.subTest(member=member, query=query):
                    answer = self.client.raw("GET", self.client.path(member) + "?" + query)
                    self.check_bad_id(answer, query, kind)
        for query in bad:
            answer = self.client.raw("PUT", "binx", "BinX=1&" + query, {"Content-Type": FORM})
            self.check_bad_id(answer, query)

    def check_bad_id(self, answer, query, kind=None):
        if answer.status == 400:
            self.assertNotIn("ID=0", query)
            return answer.check_refusal()
        return answer.envelope(12 if "=12" in query else 0, kind)

    def test_ids_that_stand_twice_or_only_once_are_survived(self):
        for query in ("ClientTransactionID=5&ClientTransactionID=6", "clientid=3&ClientID=4"):
            answer = self.client.raw("GET", self.client.path("binx") + "?" + query)
            self.assertIn(answer.status, (200, 400))
        for query, number in (("?ClientTransactionID=3", 3), ("?ClientID=3", 0)):
            answer = self.client.raw("GET", self.client.path("name") + query)
            answer.envelope(number, "string")

    def test_each_request_has_the_next_number_on_every_connection(self):
        others = [Client(self.server.port, client) for client in (1, 2, 3)]
        told = []
        for _ in range(5):
            for each in others:
                each.get("name")
                told.append(each.server_transaction)
        self.assertEqual(told, list(range(told[0], told[0] + 15)))
        for each in others:
            each.close()

    def test_parameters_are_known_by_their_exact_names(self):
        before = self.values()
        for member in self.members(PUTS):
            values = good(member)
            for name in values:
                for wrong in share([name.swapcase(), name.lower(), name.upper(), name + " ",
                                    name[:-1]], 2):
                    with self.subTest(member=member, name=wrong):
                        changed = {wrong if key == name else key: values[key] for key in values}
                        answer = self.client.raw("PUT", member, changed)
                        self.assertEqual(answer.status, 400)
                        answer.check_refusal()
        self.assertEqual(self.values(), before)

    def test_parameters_that_are_missing_are_refused(self):
        for member in self.members(PUTS):
            values = good(member)
            for name in values:
                rest = {key: value for key, value in values.items() if key != name}
                for where in ("", "?%s=%s" % (name, values[name])):
                    with self.subTest(member=member, name=name, where=where):
                        answer = self.client.raw("PUT", self.client.path(member) + where, rest)
                        self.assertEqual(answer.status, 400)
                        answer.check_refusal()
            if values:
                self.client.raw("PUT", member).check_refusal()
                self.client.raw("PUT", member, "", {"Content-Type": FORM}).check_refusal()

    def test_parameters_that_stand_twice_are_taken_once_or_refused(self):
        for member in self.members(PUTS):
            values = list(good(member).items())
            if values and member != "connected":
                answer = self.client.raw("PUT", member, values + values)
                self.assertIn(answer.status, (200, 400), member)
                self.settle(member)

    def test_values_that_are_none_are_refused_and_change_nothing(self):
        before = self.values()
        for member in self.members(PUTS):
            for name, kind in PUTS[member].items():
                for value in share(BAD_VALUES[kind], 4):
                    with self.subTest(member=member, name=name, value=value[:40]):
                        answer = self.client.raw("PUT", member, {**good(member), name: value})
                        self.assertNotTaken(answer, (member, name, value[:40]))
        self.assertEqual(self.values(), before)

    def test_good_requests_are_taken_in_any_order_with_strangers_and_any_ids(self):
        for member in self.members(PUTS):
            values = list(good(member).items())[::-1]
            for extra, transaction in (
                    ([("Stranger", "\u00fc&=")], 0),
                    ([("ClientTransactionID", "4294967295"), ("ClientID", 77)], 4294967295),
                    ([("clienttransactionid", "5"), ("clientid", "77")], 0),
                    ([("CLIENTTRANSACTIONID", "x"), ("cLIENTid", "-4")], 0)):
                with self.subTest(member=member, extra=extra):
                    answer = self.client.raw("PUT", member, extra[:1] + values + extra[1:])
                    answer.envelope(transaction, ANSWERING_PUTS.get(member))
                    self.settle(member)

    def test_booleans_and_numbers_come_in_many_shapes(self):
        for value in ("true", "TRUE", "True", "tRUE", "false", "FALSE", "False", "fAlSe"):
            self.client.put("cooleron", CoolerOn=value)
            self.assertIs(self.client.get("cooleron"), value.lower() == "true")
        for value, number in (("-5", -5), ("-5.5", -5.5), ("1E01", 10), ("1.25e1", 12.5),
                              ("-1E-01", -0.1), ("1e-300", 0), ("0012", 12)):
            self.client.put("setccdtemperature", SetCCDTemperature=value)
            self.assertAlmostEqual(self.client.get("setccdtemperature"), number, 1)
        for value, number in (("7", 7), ("007", 7), ("-3", -3), ("2147483647", 2**31 - 1),
                              ("-2147483648", -2**31), ("0", 0)):
            self.client.put("startx", StartX=value)
            self.assertEqual(self.client.get("startx"), number)

    def test_bodies_are_forms_and_nothing_else(self):
        self.client.put("binx", BinX=3)
        parts = '--x\r\nContent-Disposition: form-data; name="BinX"\r\n\r\n2\r\n--x--\r\n'
        for type_, body in (("application/json", '{"BinX": 2}'), ("text/plain", "BinX=2"),
                            ("multipart/form-data; boundary=x", parts)):
            answer = self.client.raw("PUT", "binx", body, {"Content-Type": type_})
            answer.check_refusal(400, 415)
            self.assertEqual(self.client.get("binx"), 3, type_)
        for type_, body in ((FORM, "BinX=2"), (FORM + "; charset=utf-8", "BinX=4"),
                            (FORM + ";charset=UTF-8", "Bin%58=5"), (FORM, "x=+&BinX=%36")):
            self.client.raw("PUT", "binx", body, {"Content-Type": type_}).envelope()
            self.assertEqual(self.client.get("binx"), int(body[-1]))
        for body in ("BinX=%", "BinX=%3", "BinX=%zz", "BinX", "=2", "BinX==2", "&", "%00",
                     "\xff\xfe"):
            self.assertNotTaken(self.client.raw("PUT", "binx", body.encode("latin-1"),
                                                {"Content-Type": FORM}), body)
        self.client.raw("PUT", "abortexposure", headers={"Content-Length": "0"}).envelope()

    def test_actions_are_found_in_any_case(self):
        for name in ("no such action", "\u65e5\u672c", "\"}\\\n\x01", "", "x" * 5000):
            with self.subTest(name=name[:20]):
                answer = self.client.raw("PUT", "action", {"Action": name, "Parameters": "\u20ac"})
                if name or answer.status == 200:
                    number = answer.envelope(0, "string")["ErrorNumber"]
                    self.assertEqual(number, ACTION_NOT_IMPLEMENTED)
        body = "Action=%FF%FE%00&Parameters="
        answer = self.client.raw("PUT", "action", body, {"Content-Type": FORM})
        if answer.status != 400:
            number = answer.envelope(0, "string")["ErrorNumber"]
            self.assertEqual(number, ACTION_NOT_IMPLEMENTED)
        for name in self.client.get("supportedactions"):
            numbers = {self.client.number(self.client.put, "action", Action=each, Parameters="")
                       for each in (name, name.lower(), name.upper())}
            self.assertEqual(len(numbers - {ACTION_NOT_IMPLEMENTED, NOT_IMPLEMENTED}), 1, numbers)

    def test_commands_are_not_implemented(self):
        for member in ("commandblind", "commandbool", "commandstring"):
            self.assertError(NOT_IMPLEMENTED, self.client.put, member, Command="", Raw="true")

    def test_without_a_connection_every_member_says_so(self):
        self.client.put("connected", Connected="false")
        self.assertIs(self.client.get("connected"), False)
        for member in CAMERA:
            self.assertError(NOT_CONNECTED, self.client.get, member)
        for member in CAMERA_PUTS:
            self.assertError(NOT_CONNECTED, self.client.put, member, **good(member))
            for name, kind in PUTS[member].items():
                wrong = {**good(member), name: BAD_VALUES[kind][0]}
                self.assertNotTaken(self.client.raw("PUT", member, wrong), member)
        for member in ("name", "description", "driverinfo", "driverversion", "interfaceversion",
                       "supportedactions"):
            self.client.get(member)
        for member in self.members(["devicestate"]):
            self.client.number(self.client.get, member)
        for _ in range(2):
            self.client.put("connected", Connected="true")
            self.assertIs(self.client.get("connected"), True)

    def test_the_common_texts_keep_their_shapes(self):
        self.assertLessEqual(len(self.client.get("description")), 64)
        self.assertRegex(self.client.get("driverversion"), r"^\d+\.\d+$")
        for member in ("name", "description", "driverinfo"):
            self.assertTrue(self.client.get(member).strip(), member)

    def test_huge_requests_are_refused(self):
        long = "x" * 200000
        answer = self.client.raw("PUT", "binx", "BinX=1&x=" + long, {"Content-Type": FORM})
        self.assertIn(answer.status, (400, 413))
        other = Client(self.server.port)
        answer = other.raw("GET", other.path("binx") + "?x=" + long)
        self.assertIn(answer.status, (400, 413, 414, 431))
        other.close()


if WHOLE:
    class OldProtocol(Protocol):
        """The same of the version before."""

        interface = 3
