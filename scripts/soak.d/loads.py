"""What happens to the viewer during a soak: lives of plug-ins, windows and watchers, one after the
other, and a person at the command line. Each load is a thread that starts processes."""

import random
import signal
import threading

from stage import Trouble

PAUSE_SECONDS = 0.2


class Load(threading.Thread):
    """Does one round after the other until it is told to stop. What goes wrong ends it, and is kept
    for the main thread."""

    def __init__(self, stage, name):
        super().__init__(name=name, daemon=True)
        self.stage, self.rounds, self.trouble = stage, 0, None
        self._stopped = threading.Event()
        self._random = random.Random(name)

    def run(self):
        try:
            while not self._stopped.is_set():
                self.live()
                self.rounds += 1
                self._stopped.wait(PAUSE_SECONDS)
        except (Trouble, OSError) as trouble:
            self.trouble = trouble

    def stop(self):
        self._stopped.set()
        self.join()
        self.check()

    def check(self):
        if self.trouble:
            raise Trouble(f"{self.name}: {self.trouble}")

    def end(self, program, number):
        """After a moment of any length."""
        self._stopped.wait(self._random.uniform(0, PAUSE_SECONDS))
        program.stop(number)


class PluginLives(Load):
    """Plug-ins of a kind. A viewer keeps the place of one that was killed for the next of its name; those
    that leave as they should have each a name of its own."""

    def __init__(self, stage, kind, more):
        super().__init__(stage, f"lives of {kind}s")
        self._kind, self._more = kind, more

    def live(self):
        number = self._random.choice((signal.SIGTERM, signal.SIGKILL))
        name = self._kind if number == signal.SIGKILL else f"{self._kind}{self.rounds}"
        program = self.stage.start(
            self._kind, f"kavrel-plugin-{self._kind}", "--name", name, *self._more, keep_output=True)
        program.wait_for("connected")
        self.end(program, number)


class WatcherLives(Load):
    def __init__(self, stage):
        super().__init__(stage, "lives of watchers")

    def live(self):
        program = self.stage.start("lives", "kavrelctl", "watch", "pip_focus", "visible_banners",
                                   tells_when_ready=True)
        self.end(program, self._random.choice((signal.SIGTERM, signal.SIGKILL)))


class Person(Load):
    """Asks for what kavrelctl has to offer."""

    COMMANDS = (
        ("keys", "send", "XF86Red"),
        ("keys", "send", "XF86Red", "--release"),
        ("plugins",),
        ("status",),
        ("call", "tune-channel", "7", "News", "DVB-T", "me"),
        ("set", "pip_focus", "1"),
        ("get", "pip_focus"),
        ("call", "show-sleep-timer-popup", "1"),
        ("call", "send-init-command", "soak"),
        ("screenshot", "/dev/null"),
    )

    def __init__(self, stage):
        super().__init__(stage, "commands of a person")

    def live(self):
        self.stage.start("tool", "kavrelctl", *self.COMMANDS[self.rounds % len(self.COMMANDS)]).finish()


def all_loads(stage):
    return [
        PluginLives(stage, "listener", ["--key", "XF86Red"]),
        PluginLives(stage, "panel", ["--key", "XF86Green"]),
        WatcherLives(stage),
        Person(stage),
    ]
