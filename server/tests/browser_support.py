"""Chromium without a window, driven through its debugging protocol."""

import base64
import json
import os
import re
import shutil
import struct
import subprocess
import tempfile
import urllib.request
import zlib

from server_support import PATIENCE, WebSocket, until


class Browser:
    """As on a host without a graphics card, unless `graphics` are to be imitated."""

    def __init__(self, width=1366, height=768, graphics=False):
        self.folder = tempfile.mkdtemp()
        self.errors = open(os.path.join(self.folder, "errors"), "w+", encoding="utf-8")
        self.process = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--no-first-run", "--remote-debugging-port=0",
             *(("--disable-gpu-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader")
               if graphics else ("--disable-gpu",)), "--user-data-dir=" + self.folder,
             "--window-size=%d,%d" % (width, height), "about:blank"],
            stdout=subprocess.DEVNULL, stderr=self.errors)

        def port():
            with open(self.errors.name, encoding="utf-8") as file:
                return re.search(r"ws://127\.0\.0\.1:(\d+)/", file.read())
        self.port = int(until(port, "the browser").group(1))
        with urllib.request.urlopen("http://127.0.0.1:%d/json" % self.port) as answer:
            pages = json.load(answer)
        url = next(page for page in pages if page["type"] == "page")["webSocketDebuggerUrl"]
        self.socket = WebSocket(self.port, "/" + url.split("/", 3)[3])
        self.socket.socket.settimeout(3 * PATIENCE)  # a browser takes its time on a busy machine
        self.number, self.complaints = 0, []
        self.call("Runtime.enable")
        self.call("Page.enable")
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=False)

    def send(self, text):
        data, mask = text.encode(), os.urandom(4)
        size = (struct.pack(">BQ", 0xFF, len(data)) if len(data) > 65535 else
                struct.pack(">BH", 0xFE, len(data)) if len(data) > 125 else bytes([0x80 | len(data)]))
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(data))
        self.socket.socket.sendall(b"\x81" + size + mask + masked)

    def call(self, method, **parameters):
        self.number += 1
        self.send(json.dumps({"id": self.number, "method": method, "params": parameters}))
        while True:
            message = self.socket.message()
            if message.get("method") == "Runtime.exceptionThrown":
                self.complaints.append(message["params"]["exceptionDetails"])
            if message.get("id") == self.number:
                assert "error" not in message, message
                return message["result"]

    def run(self, script):
        """The value of an expression in the page."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True,
                           awaitPromise=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def until(self, script, patience=PATIENCE):
        return until(lambda: self.run(script), script, patience)

    def open(self, url):
        self.call("Page.navigate", url=url)
        self.until("document.readyState === 'complete'")

    def mouse(self, kind, x, y, modifiers=0):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, modifiers=modifiers,
                  button="left", buttons=0 if kind == "mouseReleased" else 1, clickCount=1)

    def screenshot(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))

    def pixel(self, x, y):
        """Red, green and blue of a pixel of the screen."""
        clip = {"x": x, "y": y, "width": 1, "height": 1, "scale": 1}
        image = base64.b64decode(self.call("Page.captureScreenshot", format="png", clip=clip)["data"])
        at, data = 8, b""
        while at < len(image):
            length, = struct.unpack(">I", image[at:at + 4])
            if image[at + 4:at + 8] == b"IDAT":
                data += image[at + 8:at + 8 + length]
            at += length + 12
        return list(zlib.decompress(data)[1:4])  # of a single pixel every filter is none

    def close(self):
        self.socket.close()
        self.process.terminate()
        self.process.wait(PATIENCE)
        self.errors.close()
        shutil.rmtree(self.folder, ignore_errors=True)
