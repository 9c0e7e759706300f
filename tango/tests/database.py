"""MariaDB and the Tango database in a folder of their own, on loopback."""

import os
import shutil
import subprocess
import tempfile

import tango

from bench import DEADLINE, PROGRAMS, Program, free_port, wait_for

SCHEMA = "/usr/share/dbconfig-common/data/tango-db/install/mysql"
DATABASE_SERVER = "/usr/lib/tango/DataBaseds"


class MariaDb:
    """Without a network; its files and its socket are in the folder."""

    def __init__(self, folder):
        self.folder = folder
        self.data = os.path.join(folder, "data")
        self.socket = os.path.join(folder, "sock")
        subprocess.run(["mariadb-install-db", "--no-defaults", "--datadir=" + self.data,
                        "--skip-test-db", "--auth-root-authentication-method=normal",
                        "--user=" + self.user()], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        self.start()
        self.sql("create database tango;")
        with open(SCHEMA, "rb") as schema:
            subprocess.run(self.client("tango"), stdin=schema, check=True)

    @staticmethod
    def user():
        return "root" if os.getuid() == 0 else os.environ["USER"]

    def start(self):
        self.program = Program(["/usr/sbin/mariadbd", "--no-defaults", "--datadir=" + self.data,
                                "--socket=" + self.socket, "--skip-networking",
                                "--skip-grant-tables", "--user=" + self.user(),
                                "--pid-file=" + os.path.join(self.folder, "pid"),
                                "--innodb-buffer-pool-size=8M", "--innodb-fast-shutdown=1"])
        wait_for(lambda: subprocess.run(self.client(), input=b"select 1;", capture_output=True)
                 .returncode == 0, "MariaDB: " + "\n".join(self.program.log), 60)

    def client(self, *arguments):
        return ["mariadb", "--no-defaults", "--socket=" + self.socket, *arguments]

    def sql(self, text):
        subprocess.run(self.client(), input=text.encode(), check=True)

    def end(self):
        self.program.end()


class Database:
    """Tango's database, on a port of loopback."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="vxcamera")
        self.maria = MariaDb(self.folder)
        with open(os.path.join(self.folder, ".my.cnf"), "w") as options:
            options.write("[client]\nsocket=%s\n" % self.maria.socket)
        self.port = free_port()
        self.host = "127.0.0.1:%d" % self.port
        os.environ["TANGO_HOST"] = self.host
        self.start()

    def start(self):
        self.program = Program([DATABASE_SERVER, "2", "-ORBendPoint", "giop:tcp:" + self.host],
                               {"HOME": self.folder, "MYSQL_USER": "root",
                                "TANGO_HOST": self.host})
        wait_for(self.answers, "the Tango database", 60)

    def answers(self):
        if self.program.process.poll() is not None:
            raise AssertionError("\n".join(self.program.log))
        try:
            return tango.Database(*self.host.split(":")).get_info()
        except tango.DevFailed:
            return None

    def connection(self):
        return tango.Database(*self.host.split(":"))

    def restart(self):
        """Both, as after the power of their host failed and came back."""
        self.program.end()
        self.maria.end()
        self.maria.start()
        self.start()

    def end(self):
        self.program.end()
        self.maria.end()
        shutil.rmtree(self.folder)


class Registered(Program):
    """The device server, with its devices in the database: {name: properties}."""

    def __init__(self, devices, instance="test"):
        self.instance = instance
        database = tango.Database()
        for name, properties in devices.items():
            info = tango.DbDevInfo()
            info.server, info._class, info.name = "VxCamera/" + instance, "VxCamera", name
            database.add_device(info)
            database.put_device_property(name, properties)
        self.start()

    def start(self):
        super().__init__([os.path.join(PROGRAMS, "tango", "VxCamera"), self.instance,
                          "-ORBendPoint", "giop:tcp:127.0.0.1:%d" % free_port()])
        wait_for(lambda: "Ready to accept request" in self.lines or
                 self.process.poll() is not None, "the server", DEADLINE)

    def restart(self):
        self.end()
        self.start()
