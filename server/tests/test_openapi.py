"""The document of the interface for scripts, against what the server does."""

import json
import os
import re
import tempfile
import unittest

import jsonschema

from server_support import Server, WebSocket, raw_exchange, reap, until

CAMERA = "/api/v1/cameras/{camera}"
EXPOSURE = CAMERA + "/exposures/{exposure}"
FRAME, FRAMES = EXPOSURE + "/frame.{format}", EXPOSURE + "/frames/{number}.{format}"
SEQUENCE = CAMERA + "/sequence"
PLAN = "/api/v1/plans/{plan}"
TOKEN = "correct-horse-battery-staple"
METHODS = ("get", "put", "post", "delete", "patch", "options")
# Of OpenAPI 3.0: Debian has none of 3.1, which differs in its schemas alone. Those are JSON Schema.
STRUCTURE = "/usr/share/openapi-specification/schemas/v3.0/schema.json"
GOOD = {"camera": 0, "exposure": 1, "number": 1, "format": "raw", "plan": "night.yaml", "key": 1}
BAD = {"camera": 9, "exposure": 99, "number": 99, "format": "tiff", "plan": "none.yaml", "key": 10 ** 6}
SHORT = "steps: [{bias: {count: 1}}]\n"


def tearDownModule():
    reap()


def walk(node):
    """All objects within a document."""
    if isinstance(node, dict):
        yield node
    for value in node.values() if isinstance(node, dict) else node if isinstance(node, list) else ():
        yield from walk(value)


def closed(schema):
    """The same, in which members that it does not have are mistakes."""
    if isinstance(schema, list):
        return [closed(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    more = {"additionalProperties": False} if schema.get("type") == "object" and "properties" in schema else {}
    return dict(more, **{name: closed(value) for name, value in schema.items()})


class Document(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.server = Server("sim?sensor=64x48", "--plans", cls.folder)
        cls.addClassCleanup(reap)
        cls.addClassCleanup(cls.server.retire)
        cls.server.open()
        cls.document = cls.server.get("/api/v1/openapi.json").json
        cls.schemas = cls.document["components"]["schemas"]

    def operations(self):
        for path, methods in self.document["paths"].items():
            for method, operation in methods.items():
                yield path, method, operation

    def resolved(self, node):
        while "$ref" in node:
            place = self.document
            for name in node["$ref"].split("/")[1:]:
                place = place[name]
            node = place
        return node

    def requireValid(self, value, schema, is_closed=True):
        schemas = closed(self.schemas) if is_closed else self.schemas
        whole = {"components": {"schemas": schemas}, "allOf": [schema]}
        jsonschema.Draft202012Validator(whole).validate(value)

    def ask(self, method, path, values=None, query="", body=None, headers=None, server=None):
        """An answer, which must be a documented one."""
        operation = self.document["paths"][path][method]
        place = path.format(**dict(GOOD, **(values or {}))) + query
        answer = (server or self.server).ask(method.upper(), place, body, headers)
        self.assertIn(str(answer.status), operation["responses"], (method, place, answer.body))
        response = self.resolved(operation["responses"][str(answer.status)])
        media = answer.headers["content-type"].split(";")[0]
        self.assertIn(media, response["content"], (method, place))
        if media == "application/json":
            self.requireValid(answer.json, response["content"][media]["schema"])
        return answer

    def refused(self, status, *arguments, **more):
        answer = self.ask(*arguments, **more)
        self.assertEqual(answer.status, status, (arguments, answer.body))
        self.assertTrue(answer.json["error"]["text"])

    # The document itself.

    def test_it_is_what_openapi_calls_a_document(self):
        with open(STRUCTURE, encoding="utf-8") as file:
            structure = json.load(file)
        document = json.loads(json.dumps(self.document))
        self.assertEqual(document["openapi"], "3.1.0")
        document["openapi"] = "3.0.3"
        for schema in document["components"]["schemas"].values():
            jsonschema.Draft202012Validator.check_schema(schema)
        document["components"]["schemas"] = {name: {} for name in self.schemas}
        for node in walk(document):
            if isinstance(node.get("schema"), dict):
                jsonschema.Draft202012Validator.check_schema(node["schema"])
                node["schema"] = {}
        jsonschema.Draft4Validator(structure).validate(document)

    def test_whatever_it_refers_to_is_there(self):
        references = [node["$ref"] for node in walk(self.document) if "$ref" in node]
        self.assertGreater(len(references), 100)
        for reference in references:
            self.resolved({"$ref": reference})
        for path, _, operation in self.operations():
            named = [one["name"] for one in operation["parameters"] if one["in"] == "path"]
            self.assertEqual(sorted(named), sorted(re.findall(r"{(\w+)}", path)), path)

    def test_the_table_of_the_handbook_is_in_it(self):
        page = os.path.join(os.path.dirname(__file__), "../../docs/server.md")
        with open(page, encoding="utf-8") as file:
            rows = re.findall(r"^\| (`/.*`) \| ([A-Z, a-z]+) \|", file.read(), re.M)
        self.assertGreater(len(rows), 12)
        words = {"N": "{camera}", "ID": "{exposure}", "FORMAT": "{format}", "NUMBER": "{number}"}
        for paths, methods in rows:
            for path in re.findall("`([^`]*)`", paths):
                name = "plan" if path.startswith("/plans") else "property"
                path = re.sub(r"\b[A-Z]+\b", lambda m: dict(words, NAME="{%s}" % name)[m[0]], path)
                if "{property}" in path:
                    path = path.replace("{property}", "gain")
                self.assertIn("/api/v1" + path, self.document["paths"])
                known = set(self.document["paths"]["/api/v1" + path])
                if methods != "WebSocket" and paths.count("`") == 2:
                    self.assertEqual(known, {each.lower() for each in methods.split(", ")}, path)

    def test_it_has_each_property_with_what_it_takes(self):
        for entry in self.server.get("/api/v1/properties").json["properties"]:
            name = entry["name"].split(":")[0] + (":{key}" if "key" in entry else "")
            methods = self.document["paths"][CAMERA + "/properties/" + name]
            self.assertEqual(set(methods), set(["get"] * entry["readable"] +
                                               ["put"] * entry["writable"]))
        schema = self.schemas["target-temp"]["anyOf"][0]
        self.assertEqual((schema["type"], schema["minimum"], schema["maximum"]), ("number", -273, 273))

    # What the server does.

    def test_methods_that_it_does_not_have_are_refused_and_no_others(self):
        for path, methods in self.document["paths"].items():
            place = path.format(**GOOD)
            for method in METHODS:
                if method in methods:
                    continue
                answer = self.server.ask(method.upper(), place, {"value": "0"} if method == "put" else None)
                if "/properties/" in place and method in ("get", "put"):  # this one can only be set, or read
                    self.assertEqual((answer.status, answer.kind), (400, "usage"), (method, place))
                    continue
                allowed = "GET, PUT" if "/properties/" in place else ", ".join(methods).upper()
                self.assertEqual((answer.status, answer.kind), (405, "wrong-method"), (method, place))
                told = self.document["components"]["responses"]["Error405"]
                self.assertEqual(told["description"], answer.kind)
                self.requireValid(answer.json, told["content"]["application/json"]["schema"])
                self.assertEqual(answer.headers["allow"], allowed, place)

    def test_paths_that_it_does_not_have_are_refused(self):
        for path in ("/api/v1", "/api/v1/", "/api/v1/camera", "/api/v1/cameras/", "/api/v1/cameras/0/",
                     "/api/v1/cameras/0/leases", "/api/v1/cameras/0/lease/x", "/api/v1/plans/",
                     "/api/v1/plans/a.yaml/x", "/api/v1/openapi.json/x", "/api/v1/properties/gain",
                     "/api/v1/cameras/0/sequence/x", "/api/v1/cameras/0/exposures/1/", "/api/v1/session/x",
                     "/healthz/x", "/metrics/x", "/x"):
            answer = self.server.get(path)
            self.assertEqual((answer.status, answer.kind), (404, "unknown-path"), path)

    def test_wrong_input_is_answered_as_documented(self):
        for path, method, operation in self.operations():
            if path in ("/healthz", "/metrics"):
                continue
            body = operation.get("requestBody")
            self.refused(400, method, path, query="?bogus=1", body={} if body else None)
            for parameter in operation["parameters"]:
                name, where = parameter["name"], parameter["in"]
                if where == "query":
                    value = "?%s=" % name + ("../x" if name == "folder" else "bogus")
                    self.assertIn(self.ask(method, path, query=value, body="" if body else None).status,
                                  (400, 404), (method, path, name))
                    twice = "?%s=1&%s=1" % (name, name)
                    self.refused(400, method, path, query=twice, body="" if body else None)
                elif where == "path" and (method, path) != ("put", PLAN):  # which would make it
                    answer = self.ask(method, path, {name: BAD[name]})
                    if name != "key":  # of which this camera may have many
                        self.assertIn(answer.status, (400, 404), (method, path, name))
            if body and "application/json" in body["content"]:
                self.refused(400, method, path, body={"bogus": 1})
                self.refused(415, method, path, body="a=b", headers={"Content-Type": "text/plain"})
            if body:
                self.refused(413, method, path, body="x" * 70000)
                head = "%s %s HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"
                told = raw_exchange(self.server.port,
                                    (head % (method.upper(), path.format(**GOOD))).encode())
                self.assertIn(b" 411 ", told.split(b"\r\n")[0])
                self.assertIn("411", operation["responses"])

    def test_a_token_is_asked_for_where_the_document_says_so(self):
        path = os.path.join(self.folder, "token")
        with open(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600), "w", encoding="ascii") as file:
            file.write(TOKEN + "\n")
        server = Server("sim?sensor=64x48", "--token-file", path, "--plans", self.folder)
        self.addCleanup(server.retire)
        allowed = {"Authorization": "Bearer " + TOKEN}
        document = server.get("/api/v1/openapi.json", headers=allowed).json
        self.assertEqual([list(each) for each in document["security"]], [["token"], ["password"], ["cookie"]])
        self.assertEqual(self.document["security"], [])
        self.assertEqual(document["paths"], self.document["paths"])
        for path, method, operation in self.operations():
            if operation.get("security") != []:
                self.refused(401, method, path, server=server)
        self.assertEqual(self.ask("get", "/healthz", server=server).status, 200)
        self.refused(401, "post", "/api/v1/session", body={"token": "x" * 20}, server=server)
        self.assertEqual(self.ask("post", "/api/v1/session", body={"token": TOKEN}, server=server).status, 200)

    def right(self, status, *arguments, **more):
        answer = self.ask(*arguments, **more)
        self.assertEqual(answer.status, status, (arguments, answer.body))
        self.answered.add(arguments[:2])
        return answer

    def check_properties(self):
        for path, methods in self.document["paths"].items():
            if "/properties/" not in path:
                continue
            value = {"value": "0"}
            if "get" in methods:
                answer = self.ask("get", path)
                self.assertIn(answer.status, (200, 400, 502))  # not all of this camera's can be read
                value = {"value": answer.json["value"]} if answer.status == 200 else value
                self.answered.add(("get", path))
            if "put" in methods and "network" not in path and "reboot" not in path:
                self.ask("put", path, body=value)
            self.answered.add(("put", path))

    def check_exposures(self):
        wish = {"exposure": 0.001, "frames": 2}
        one = {"exposure": self.right(202, "post", CAMERA + "/exposures", body=wish).json["id"]}
        answer = self.right(200, "get", EXPOSURE, one, query="?wait=15")
        self.assertEqual(answer.json["state"], "complete")
        for form in ("raw", "fits", "png", "json"):
            self.right(200, "get", FRAME, dict(one, format=form), query="?incomplete=yes")
            self.right(200, "get", FRAMES, dict(one, format=form))
        wish = {"exposure": "30s", "bits": 16, "area": {"column": 1, "row": 1, "columns": 8, "rows": 8}}
        one = {"exposure": self.right(202, "post", CAMERA + "/exposures", body=wish).json["id"]}
        self.refused(409, "post", CAMERA + "/exposures", body={})
        self.refused(409, "get", FRAME, one)
        self.assertEqual(self.right(200, "delete", EXPOSURE, one).json["state"], "aborted")
        self.refused(409, "get", FRAME, one)
        self.right(200, "get", CAMERA + "/exposures")

    def check_lease(self):
        key = {"X-Lease": self.right(200, "post", CAMERA + "/lease", body={"holder": "a"}).json["key"]}
        for method, path in (("post", CAMERA + "/lease"), ("delete", CAMERA + "/lease"),
                             ("post", SEQUENCE), ("delete", SEQUENCE), ("delete", EXPOSURE),
                             ("post", CAMERA + "/exposures"), ("put", CAMERA + "/properties/gain")):
            self.refused(423, method, path, body={"plan": "x"} if path == SEQUENCE else None)
        self.right(200, "get", CAMERA + "/lease")
        self.right(200, "delete", CAMERA + "/lease", headers=key)

    def check_sequences(self):
        self.right(201, "put", PLAN, body=SHORT)
        self.right(200, "put", PLAN, query="?check=yes", body=SHORT)
        self.refused(400, "put", PLAN, body="steps: ]")
        self.refused(403, "put", PLAN, body="steps: [{run: touch x}]")
        self.right(200, "get", PLAN)
        self.refused(404, "get", PLAN + "/report")
        self.refused(404, "get", SEQUENCE + "/report")
        self.refused(404, "post", SEQUENCE, body={"plan": "none.yaml"})
        self.right(202, "post", SEQUENCE, body={"plan": "night.yaml"})
        self.assertEqual(self.right(200, "get", SEQUENCE, query="?wait=15").json["state"], "complete")
        self.right(200, "get", SEQUENCE + "/report")
        self.right(200, "get", PLAN + "/report", query="?folder=night")
        with open(os.path.join(self.folder, "bad.yaml"), "w", encoding="ascii") as file:
            file.write("steps: ]")
        self.right(200, "get", "/api/v1/plans")
        self.right(200, "delete", SEQUENCE)
        self.right(200, "delete", PLAN)

    def check_streams(self):
        operation = self.document["paths"][CAMERA + "/live"]["get"]
        self.refused(426, "get", CAMERA + "/live")
        watcher = WebSocket(self.server.port, "/api/v1/cameras/0/live")
        self.assertIn(str(watcher.status), operation["responses"])
        watcher.send('{"bogus": 1}')
        watcher.send('{"beat": 0.1}')
        seen = set()
        self.server.expose(exposure=0.001)
        while seen != {"LiveError", "LiveFrame", "LiveEvent", "LiveBeat"}:
            message = watcher.message()
            if isinstance(message, dict):
                name = "Live" + message["message"].title()
                self.requireValid(message, {"$ref": "#/components/schemas/" + name}, False)
                seen.add(name)
        watcher.close()
        self.answered.add(("get", CAMERA + "/live"))
        connection = self.server.connection()
        self.addCleanup(connection.close)
        connection.request("GET", "/api/v1/cameras/0/events?since=0")
        answer = connection.getresponse()
        self.assertIn(answer.getheader("Content-Type"),
                      self.document["paths"][CAMERA + "/events"]["get"]["responses"]["200"]["content"])
        told = 0
        for line in answer:
            if line.startswith(b"data: "):
                self.requireValid(json.loads(line[6:]), {"$ref": "#/components/schemas/Event"})
                told += 1
            if told == 5:
                break
        self.answered.add(("get", CAMERA + "/events"))

    def test_every_operation_answers_as_documented(self):
        self.answered = set()
        self.check_lease()
        self.check_exposures()
        self.check_sequences()
        self.check_streams()
        for path in ("/healthz", "/metrics", "/api/v1/openapi.json", "/api/v1/properties",
                     "/api/v1/cameras", CAMERA, CAMERA + "/properties"):
            self.right(200, "get", path)
        self.answered.add(("post", "/api/v1/session"))  # where there is a token
        self.check_properties()
        self.assertEqual({(method, path) for path, method, _ in self.operations()} - self.answered, set())

    def test_all_times_have_a_zone(self):
        self.server.expose(exposure=0.001)
        lease = self.server.ask("POST", "/api/v1/cameras/0/lease", {"holder": "a"}).json
        texts = [self.server.get("/api/v1/cameras/0" + path).body.decode()
                 for path in ("", "/exposures", "/exposures/1/frame.json", "/sequence")]
        self.server.ask("DELETE", "/api/v1/cameras/0/lease", headers={"X-Lease": lease["key"]})
        found = [time for text in texts for time in re.findall(r'"(\d{4}-\d\d-\d\dT[^"]*)"', text)]
        self.assertGreater(len(found), 4)
        for time in found:
            self.assertRegex(time, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+Z$")


if __name__ == "__main__":
    unittest.main()
