"""What a soak plays on: a message bus, directories of its own, and programs that end with it."""

import os
import pathlib
import select
import signal
import subprocess
import tempfile
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

LIMIT_SECONDS = 60

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>system</type><auth>EXTERNAL</auth><listen>unix:path={}</listen>
<policy context="default"><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/></policy></busconfig>
"""


class Trouble(Exception):
    """Something other than growth went wrong."""


class Program:
    """A process of the soak. It dies with the thread that started it, even when that is killed."""

    def __init__(self, stage, name, words, keep_output=False, tells_when_ready=False):
        self.name = name
        self.log = stage.directory / f"{name}.log"
        ready, tell = os.pipe()
        if tells_when_ready:
            words = [*words, "--ready-fd", tell]
        with self.log.open("ab") as errors, os.fdopen(ready, "rb") as is_ready:
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "--", *map(str, words)],
                env=stage.environment, pass_fds=[tell] if tells_when_ready else [],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE if keep_output else subprocess.DEVNULL,
                stderr=errors,
            )
            os.close(tell)
            self.pid = self.process.pid
            # Its end closes the pipe, too.
            if tells_when_ready and not is_ready.read(1):
                raise Trouble(f"{name} does not start{self.last_words()}")

    def wait_for(self, text):
        """Reads its output up to a line that begins so."""
        deadline, seen = time.monotonic() + LIMIT_SECONDS, b""
        output = self.process.stdout.fileno()
        while not any(line.startswith(text.encode()) for line in seen.splitlines()):
            ready, _, _ = select.select([output], [], [], max(0.0, deadline - time.monotonic()))
            data = os.read(output, 65536) if ready else b""
            if not data:
                raise Trouble(f"{self.name} does not say \"{text}\"{self.last_words()}")
            seen += data

    def stop(self, number=signal.SIGTERM):
        """Ends it and waits for its end; 0 is the only good one unless it is killed."""
        self.process.send_signal(number)
        return self.finish(-signal.SIGKILL if number == signal.SIGKILL else 0)

    def finish(self, expected=0):
        """Waits for its end, with the end of its input. What it has printed last."""
        try:
            output, _ = self.process.communicate(timeout=LIMIT_SECONDS)
        except subprocess.TimeoutExpired:
            raise Trouble(f"{self.name} does not end{self.last_words()}") from None
        if self.process.returncode != expected:
            raise Trouble(f"{self.name} ended with {self.process.returncode}{self.last_words()}")
        return (output or b"").decode(errors="replace")

    def check_runs(self):
        if self.process.poll() is not None:
            raise Trouble(f"{self.name} ended with {self.process.returncode}{self.last_words()}")

    def last_words(self):
        lines = self.log.read_text(errors="replace").splitlines()[-15:]
        return "".join(f"\n    {line}" for line in lines)


class Stage:
    """Belongs to the main thread; other threads may start programs on it."""

    def __init__(self, programs):
        self._temporary = tempfile.TemporaryDirectory(prefix="kavrel-soak-")
        self.directory = pathlib.Path(self._temporary.name)
        self.programs = programs
        self.used = [self.directory / "run", self.directory / "state"]
        for directory in self.used:
            directory.mkdir(mode=0o700)
        self.address = f"unix:path={self.directory}/bus"
        self.environment = self._environment()
        self._bus = self._start_bus()
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                 | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self._connection = Gio.DBusConnection.new_for_address_sync(self.address, flags, None, None)
        self._connection.set_exit_on_close(False)

    def _environment(self):
        kept = {name: value for name, value in os.environ.items()
                if not name.startswith("KAVREL_") and name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        run, state = self.used
        return {**kept, "KAVREL_RUNTIME_DIR": str(run), "XDG_RUNTIME_DIR": str(run),
                "KAVREL_STATE_DIR": str(state), "HOME": str(self.directory),
                "DBUS_SYSTEM_BUS_ADDRESS": self.address, "KAVREL_BANNER_SECONDS": "1",
                "KAVREL_LOG": "stderr", "KAVREL_LOG_LEVEL": "error",
                # A busy machine is no failure.
                "KAVREL_RPC_TIMEOUT_MS": str(1000 * LIMIT_SECONDS)}

    def _start_bus(self):
        configuration = self.directory / "bus.conf"
        configuration.write_text(BUS_CONFIGURATION.format(self.directory / "bus"))
        bus = Program(self, "bus", ["dbus-daemon", f"--config-file={configuration}", "--nofork",
                                    "--nopidfile", "--nosyslog", "--print-address=1"], keep_output=True)
        bus.wait_for("unix:")
        return bus

    def start(self, name, *words, **options):
        return Program(self, name, [self.programs / words[0], *words[1:]], **options)

    def bus_figures(self):
        """(match rules, names) of all that is on the bus."""
        reply = self._connection.call_sync(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Debug.Stats",
            "GetStats", None, GLib.VariantType("(a{sv})"), Gio.DBusCallFlags.NONE, -1, None)
        figures = reply.unpack()[0]
        return figures["MatchRules"], figures["BusNames"]

    def files(self):
        """(number, KiB) of what lies in the runtime and the state directory. Not what EFL leaves of a
        window that is killed while it makes its picture's file."""
        number, size = 0, 0
        for directory in self.used:
            for path, names, others in os.walk(directory):
                others = [name for name in others if not name.startswith("evas-wayland_shm-")]
                number += len(names) + len(others)
                for name in others:
                    try:
                        size += os.lstat(os.path.join(path, name)).st_size
                    except FileNotFoundError:
                        pass  # gone since
        return number, size // 1024

    def close(self):
        self._connection.close_sync(None)
        self._bus.stop()
        self._temporary.cleanup()


def figures_of(pid):
    """{quantity: value} of a process. Its heap is what is resident and no file; those it shares with
    others, so that only their number is its own."""
    proc = pathlib.Path(f"/proc/{pid}")
    status = dict(line.split(":", 1) for line in (proc / "status").read_text().splitlines() if ":" in line)
    return {
        "heap KiB": int(status["RssAnon"].split()[0]),
        "mappings": len((proc / "maps").read_text().splitlines()),
        "descriptors": len(os.listdir(proc / "fd")),
        "threads": int(status["Threads"]),
    }
