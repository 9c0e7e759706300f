"""KStars takes sequences of three frames through the driver, on a screen that nobody sees. Each file that it
writes has to hold what the simulated camera sent; a frame that does not arrive whole is taken anew.

Run by kstars.sh, in a network namespace of its own; VX_INDI_DRIVER and VX_SIMULATOR name the programs."""
import contextlib
import glob
import os
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import zlib

import dbus
from astropy.io import fits

import indi_support

FRAMES, EXPOSURE = 3, 0.5
COLUMNS, ROWS = 640, 480
PROFILE = "Three frames"
PATIENCE = 90  # s, for each step; KStars takes its time to start
LOST = "missing-packet:readout=5,packet=9"  # in the second sequence
CAPTURE = "org.kde.kstars.Ekos.Capture"

# A profile with a server that runs already, and its camera, which all of Ekos' modules use.
TABLES = """
insert into profile (id, name, host, port, autoconnect, portselector)
    values (100, :profile, '127.0.0.1', :port, 1, 0);
insert into driver (label, role, profile) values (:camera, 'CCD', 100);
insert into opticaltrains (id, profile, name, mount, dustcap, lightbox, scope, reducer, rotator, focuser,
    filterwheel, camera, guider)
    values (100, 100, 'Only', '--', '--', '--', '--', 1, '--', '--', '--', :camera, '--');
insert into profilesettings (profile, settings)
    values (100, '{"0":100,"1":100,"2":100,"3":100,"4":100,"5":100,"6":100}');
"""

SEQUENCE = f"""<?xml version="1.0" encoding="UTF-8"?>
<SequenceQueue version='2.4'>
<GuideDeviation enabled='false'>2</GuideDeviation>
<GuideStartDeviation enabled='false'>2</GuideStartDeviation>
<Autofocus enabled='false'>0</Autofocus>
<RefocusOnTemperatureDelta enabled='false'>1</RefocusOnTemperatureDelta>
<RefocusEveryN enabled='false'>60</RefocusEveryN>
<RefocusOnMeridianFlip enabled='false'/>
<Job>
<Exposure>{EXPOSURE}</Exposure>
<Format>Mono 16</Format>
<Encoding>FITS</Encoding>
<Binning><X>1</X><Y>1</Y></Binning>
<Frame><X>0</X><Y>0</Y><W>{COLUMNS}</W><H>{ROWS}</H></Frame>
<Temperature force='false'>0</Temperature>
<Type>Light</Type>
<Count>{FRAMES}</Count>
<Delay>0</Delay>
<PlaceholderFormat>/%t</PlaceholderFormat>
<PlaceholderSuffix>3</PlaceholderSuffix>
<FITSDirectory>FOLDER</FITSDirectory>
<UploadMode>0</UploadMode>
<Properties/>
<Calibration>
<FlatSource><Type>Manual</Type></FlatSource>
<FlatDuration><Type>ADU</Type><Value>10000</Value><Tolerance>1000</Tolerance></FlatDuration>
<PreMountPark>False</PreMountPark>
<PreDomePark>False</PreDomePark>
</Calibration>
</Job>
</SequenceQueue>
"""

BUS = """<busconfig><type>session</type><listen>unix:path=PATH</listen><auth>EXTERNAL</auth>
<policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
</policy></busconfig>"""


def wait_for(condition, what):
    """The first true value of the condition; what KStars has not made yet counts as false."""
    deadline = time.monotonic() + PATIENCE
    while True:
        with contextlib.suppress(dbus.DBusException, sqlite3.Error):
            value = condition()
            if value:
                return value
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {PATIENCE} s for {what}")
        time.sleep(0.1)


class Desktop:
    """A screen, a session bus and KStars on them, in a folder of their own."""

    def __init__(self, home):
        self.home, self.stack = home, contextlib.ExitStack()

    def start(self, *command, passing=(), **environment):
        """A program that ends with the desktop, the last one first; its log is in the folder."""
        log = open(os.path.join(self.home, command[0] + ".log"), "w")
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=self.home,
                                   pass_fds=passing, env=dict(os.environ, **environment))

        def end():
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            log.close()
        self.stack.callback(end)
        return process

    def start_screen(self):
        """Its name; what it shows is in the file Xvfb_screen0 of the folder."""
        near, far = os.pipe()
        self.start("Xvfb", "-displayfd", str(far), "-screen", "0", "1280x960x24", "-nolisten", "tcp",
                   "-fbdir", self.home, passing=[far])
        os.close(far)
        with open(near) as pipe:
            return ":" + pipe.readline().strip()

    def start_bus(self):
        path, options = os.path.join(self.home, "bus"), os.path.join(self.home, "bus.conf")
        with open(options, "w") as file:
            file.write(BUS.replace("PATH", path))
        self.start("dbus-daemon", "--nofork", "--config-file=" + options)
        wait_for(lambda: os.path.exists(path), "the bus")
        return "unix:path=" + path

    def start_kstars(self):
        screen, address = self.start_screen(), self.start_bus()
        folders = {name: os.path.join(self.home, name.lower())
                   for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR")}
        for folder in folders.values():
            os.mkdir(folder, 0o700)
        with open(os.path.join(folders["XDG_CONFIG_HOME"], "kstarsrc"), "w") as file:
            file.write("[General]\nRunStartupWizard=false\n")
        process = self.start("kstars", HOME=self.home, DISPLAY=screen, DBUS_SESSION_BUS_ADDRESS=address,
                             LC_ALL="C.UTF-8", **folders)
        database = os.path.join(folders["XDG_DATA_HOME"], "kstars", "userdb.sqlite")
        return KStars(process, address, database)


class KStars:
    """The running program, over its bus."""

    def __init__(self, process, address, database):
        self.process, self.database = process, database
        self.bus = dbus.bus.BusConnection(address)

    def call(self, path, interface, method, *arguments):
        if self.process.poll() is not None:
            raise AssertionError(f"KStars has ended: {self.process.returncode}")
        told = self.bus.get_object("org.kde.kstars", path, introspect=False)
        return told.get_dbus_method(method, interface)(*arguments, timeout=20)

    def ekos(self, method, *arguments):
        return self.call("/KStars/Ekos", "org.kde.kstars.Ekos", method, *arguments)

    def capture(self, method, *arguments):
        return self.call("/KStars/Ekos/Capture", CAPTURE, method, *arguments)

    def camera(self):
        return self.call("/KStars/Ekos/Capture", "org.freedesktop.DBus.Properties", "Get", CAPTURE, "camera")

    def device_state(self, name):
        return self.call("/KStars/INDI", "org.kde.kstars.INDI", "getPropertyState", indi_support.DEVICE, name)

    def write_profile(self, port):
        values = {"profile": PROFILE, "port": port, "camera": indi_support.DEVICE}

        def write():
            if not os.path.exists(self.database):
                return False
            with contextlib.closing(sqlite3.connect(self.database, timeout=1)) as connection, connection:
                for statement in filter(str.strip, TABLES.split(";")):
                    connection.execute(statement, values)
            return True
        wait_for(write, "the database of KStars")

    def open_ekos(self):
        """As its menu does; then Ekos connects to the camera by itself."""
        wait_for(lambda: self.call("/kstars/MainWindow_1", "org.kde.KMainWindow", "activateAction",
                                   "show_ekos"), "KStars")
        wait_for(lambda: PROFILE in self.ekos("getProfiles"), "the profile")
        self.ekos("setProfile", PROFILE)
        self.ekos("start")
        wait_for(lambda: self.device_state("CCD_EXPOSURE") in ("Idle", "Ok"), "the camera")
        wait_for(lambda: self.camera() == indi_support.DEVICE, "the camera in Ekos")

    def take(self, folder):
        """The files of a sequence, in order."""
        os.mkdir(folder)
        queue = folder + ".esq"
        with open(queue, "w") as file:
            file.write(SEQUENCE.replace("FOLDER", folder))
        self.capture("clearSequenceQueue")
        if not self.capture("loadSequenceQueue", queue):
            raise AssertionError("KStars does not take the sequence")
        self.capture("start")

        def files():
            return sorted(glob.glob(folder + "/**/*.fits", recursive=True))
        wait_for(lambda: len(files()) >= FRAMES and self.capture("getSequenceQueueStatus") == "Complete",
                 "the sequence")
        return files()


def compare(files, sent):
    """What is in the files with what the camera tells of the frames that left it whole."""
    print(f"{len(files)} files, {len(sent)} frames sent", flush=True)
    whole = [frame for frame in sent if frame["intact"]]
    for path, frame in zip(files, whole):
        pixels = fits.getdata(path).astype("<u2")
        total = int(pixels.sum(dtype="u8"))
        print(f"  {os.path.basename(path)}, {pixels.shape[1]} x {pixels.shape[0]}: sum {total}; sent: "
              f"{frame['sum']}, readout {frame['readout']}", flush=True)
        if (total, zlib.crc32(pixels.tobytes())) != (frame["sum"], frame["crc"]):
            raise AssertionError(f"{path} is not the frame that was sent")
    if not len(files) == len(whole) == FRAMES:
        raise AssertionError(f"{FRAMES} whole frames were asked for")


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended from outside"))
    with contextlib.ExitStack() as stack:
        home = stack.enter_context(tempfile.TemporaryDirectory(prefix="vxkstars", ignore_cleanup_errors=True))
        camera = indi_support.Camera("--fault", LOST, sensor=f"{COLUMNS}x{ROWS}")
        stack.callback(camera.close)
        server = indi_support.Server(
            indi_support.DRIVER, home=home,
            environment={"VXCAM_TARGETS": f"127.0.0.1:{camera.port}", "DBGD_DISABLE": "1"})
        stack.callback(server.close)
        desktop = Desktop(home)
        stack.enter_context(desktop.stack)
        kstars = desktop.start_kstars()
        kstars.write_profile(server.port)
        kstars.open_ekos()
        print("Ekos has the camera", flush=True)
        compare(kstars.take(os.path.join(home, "first")), camera.frames())
        compare(kstars.take(os.path.join(home, "second")), camera.frames()[FRAMES:])
        if len(camera.frames()) != 2 * FRAMES + 1:
            raise AssertionError("no frame was lost and taken anew")


if __name__ == "__main__":
    main()
