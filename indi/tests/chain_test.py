"""Two servers in two network namespaces: the one at the telescope has the driver, the one of the
observer has that of the other in a chain. Needs root."""
import contextlib
import os
import subprocess
import time
import unittest

import indi_support
from indi_support import DRIVER, Client, DriverTest


def run(*words):
    subprocess.run(words, check=True)


@contextlib.contextmanager
def two_hosts():
    """Network namespaces `near` (10.9.0.1) and `far` (10.9.0.2) with a cable in between."""
    names = [f"vx{where}{os.getpid()}" for where in ("near", "far")]
    try:
        for name in names:
            run("ip", "netns", "add", name)
        run("ip", "link", "add", "vxcable", "netns", names[0], "type", "veth",
            "peer", "name", "vxcable", "netns", names[1])
        for number, name in enumerate(names, 1):
            inside = ("ip", "-n", name)
            run(*inside, "link", "set", "lo", "up")
            run(*inside, "addr", "add", f"10.9.0.{number}/24", "dev", "vxcable")
            run(*inside, "link", "set", "vxcable", "up")
        yield names
    finally:
        for name in names:
            subprocess.run(["ip", "netns", "del", name], stderr=subprocess.DEVNULL)


class Relay:
    """A client's way into a namespace: what is in it speaks through a pipe."""

    def __init__(self, namespace, port):
        import socket
        self.near, far = socket.socketpair()
        code = ("import socket,sys,threading\n"
                "a=socket.socket(fileno=int(sys.argv[1]))\n"
                "b=socket.create_connection(('127.0.0.1',int(sys.argv[2])))\n"
                "def go(x,y):\n"
                "    while True:\n"
                "        d=x.recv(1<<20)\n"
                "        if not d: break\n"
                "        y.sendall(d)\n"
                "threading.Thread(target=go,args=(a,b),daemon=True).start()\n"
                "go(b,a)\n")
        self.process = subprocess.Popen(
            ["ip", "netns", "exec", namespace, "/usr/bin/python3", "-c", code, str(far.fileno()),
             str(port)], pass_fds=[far.fileno()])
        far.close()

    def close(self):
        self.process.kill()
        self.process.wait()
        self.near.close()


class ChainedClient(Client):
    def __init__(self, relay, device=indi_support.DEVICE):
        self.relay = relay
        super().__init__(0, device)

    def open(self, port):
        return self.relay.near


class Chain(DriverTest):
    def start(self, namespace, *command, name="server"):
        log = open(os.path.join(self.home, name + ".log"), "w")
        env = dict(os.environ, HOME=self.home, DBGD_DISABLE="1")
        process = subprocess.Popen(["ip", "netns", "exec", namespace, *command], env=env,
                                   stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.stack.callback(lambda: (process.kill(), process.wait(), log.close()))
        return process

    def await_port(self, namespace, port):
        deadline = time.monotonic() + indi_support.PATIENCE
        while True:
            told = subprocess.run(["ip", "netns", "exec", namespace, "ss", "-Hltn"],
                                  capture_output=True, text=True).stdout
            if f":{port} " in told:
                return
            self.assertLess(time.monotonic(), deadline, f"nobody listens on {port}")
            time.sleep(0.05)

    def test_frames_come_through_two_servers_on_two_hosts(self):
        near, far = self.stack.enter_context(two_hosts())
        self.start(far, indi_support.SIMULATOR, "--json", "--port", "14000", "--sensor", "256x256",
                   name="camera")
        self.await_port(far, 14000)
        self.start(far, "indiserver", "-p", "14001", "-u", self.home + "/far", DRIVER, name="far")
        self.await_port(far, 14001)
        self.start(near, "indiserver", "-p", "14002", "-u", self.home + "/near",
                   "VX CCD@10.9.0.2:14001", name="near")
        self.await_port(near, 14002)
        relay = Relay(near, 14002)
        self.stack.callback(relay.close)
        client = ChainedClient(relay)
        client.connect(14000)
        client.change("CCD_GAIN", {"GAIN": 2})
        for exposure in (0.01, 0.02, 0.3):
            total, check, header = client.expose(exposure).truth()
            self.assertEqual((header["PIXSUM"], header["GAIN"]), (total, 2))
            with open(os.path.join(self.home, "camera.log")) as file:
                self.assertIn(f'"crc":{check}', file.read().replace(" ", ""))
        vector = client.change("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 60}, "Busy")
        client.change("CCD_ABORT_EXPOSURE", {"ABORT": True})
        client.wait(lambda: vector.state == "Idle", "aborted")


if __name__ == "__main__":
    unittest.main()
