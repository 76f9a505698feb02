#!/usr/bin/python3
"""An end of the channel, written from what travels on the bus alone, and a stranger on that bus.

It is told what to do on standard input and tells what happens on standard output, one JSON object a
line; bus_peer.h lists what every such program understands. This one also does, for the faults that
the library has to survive:

    become_another                      speaks on a further connection from now on, and keeps the first
    own NAME / release NAME / say NAME  the bus's RequestName and ReleaseName; say does both
    call / emit                         any method call, any signal; bodies in GVariant's text format
    answer_body TEXT                    answers messages with that body, whatever its type
    answer null                         never answers
    open with "steps"                   only some of the handshake: a list out of SYN, SYN_ACK, ACK
"""

import json
import os
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

BUS = "org.freedesktop.DBus"
BUS_PATH = "/org/freedesktop/DBus"
XML = """<node><interface name='{}'><method name='Send'>
<arg type='a(ss)' name='data' direction='in'/><arg type='b' name='response' direction='out'/>
</method></interface></node>"""


def tell(event, **values):
    print(json.dumps({"event": event, **values}, separators=(",", ":")), flush=True)


class Bus:
    """A connection of its own, and the calls that the bus itself answers."""

    def __init__(self):
        flags = (
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        )
        self.connection = Gio.DBusConnection.new_for_address_sync(
            os.environ["DBUS_SYSTEM_BUS_ADDRESS"], flags, None, None
        )
        self.connection.set_exit_on_close(False)

    def unique_name(self):
        return self.connection.get_unique_name()

    def ask(self, method, arguments):
        reply = self.connection.call_sync(
            BUS, BUS_PATH, BUS, method, arguments, None, Gio.DBusCallFlags.NONE, -1, None
        )
        return reply.unpack()[0] if reply.n_children() else None

    def own(self, name, flags=4):
        return self.ask("RequestName", GLib.Variant("(su)", (name, flags)))

    def release(self, name):
        return self.ask("ReleaseName", GLib.Variant("(s)", (name,)))

    def say(self, name):
        code = self.own(name)
        if code == 1:
            self.release(name)
        return code


class End:
    """One end: the handshake as a table of what to say when something is heard."""

    ANSWERS = {"SYN": "SYN_ACK", "SYN_ACK": "ACK"}

    def __init__(self, bus, host, plugin, steps):
        host = host.replace("-", "")
        self.bus = bus
        self.base = f"org.zarnet.{host}.{plugin}"
        self.interface = f"org.zarnet.{host}.DbusCommunication"
        self.path = f"/org/zarnet/{host}/CommunicationChannel/{plugin}"
        self.steps = steps
        self.partner = None
        self.ready = False
        self.answer = True
        self.answer_body = None
        self.watch = 0
        self.subscriptions = []
        node = Gio.DBusNodeInfo.new_for_xml(XML.format(self.interface))
        self.registration = bus.connection.register_object(
            self.path, node.interfaces[0], self.on_call, None, None
        )
        for step in ("SYN", "SYN_ACK", "ACK"):
            self.listen(BUS, BUS, "NameOwnerChanged", BUS_PATH, f"{self.base}_{step}", self.heard(step))
        # The bus works in order: once it has answered this, it knows the rules.
        bus.ask("GetId", None)
        self.say("SYN")

    def listen(self, sender, interface, member, path, arg0, handler):
        self.subscriptions.append(
            self.bus.connection.signal_subscribe(
                sender, interface, member, path, arg0, Gio.DBusSignalFlags.NONE, handler
            )
        )

    def say(self, step):
        if step in self.steps:
            self.bus.say(f"{self.base}_{step}")

    def heard(self, step):
        def handler(_connection, _sender, _path, _interface, _member, body):
            _name, before, after = body.unpack()
            if after or before == self.bus.unique_name():
                return
            tell("heard", step=step, who=before)
            if step == "ACK":
                if self.partner:
                    self.become_ready()
            elif not self.partner:
                self.take_on(before)
                self.say(self.ANSWERS[step])
                if step == "SYN_ACK":
                    self.become_ready()

        return handler

    def take_on(self, who):
        self.partner = who
        self.listen(who, self.interface, None, self.path, None, self.on_signal)
        self.watch = Gio.bus_watch_name_on_connection(
            self.bus.connection, who, Gio.BusNameWatcherFlags.NONE, None, self.on_vanished
        )

    def become_ready(self):
        self.ready = True
        tell("connected")

    def on_vanished(self, _connection, _name):
        self.partner = None
        self.ready = False
        Gio.bus_unwatch_name(self.watch)
        self.bus.connection.signal_unsubscribe(self.subscriptions.pop())
        tell("disconnected")

    def on_call(self, _connection, sender, _path, _interface, member, body, invocation):
        no_answer = Gio.DBusMessageFlags.NO_REPLY_EXPECTED
        waits = not invocation.get_message().get_flags() & no_answer
        if self.answer_body is not None:
            reply = Gio.DBusMessage.new_method_reply(invocation.get_message())
            reply.set_body(GLib.Variant.parse(None, self.answer_body, None, None))
            self.bus.connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)
        elif self.answer is not None:
            invocation.return_value(GLib.Variant("(b)", (self.answer,)))
        # Afterwards: who reads this may be waiting for the answer first.
        tell("received", kind="message", member=member, who=sender, waits=waits, pairs=body.unpack()[0])

    def on_signal(self, _connection, sender, _path, _interface, member, body):
        tell("received", kind="notification", member=member, who=sender, pairs=body.unpack()[0])

    # A call or a signal without a destination would go to the bus itself, or to everybody.
    def send(self, wait, pairs):
        if not self.partner:
            return False
        arguments = GLib.Variant("(a(ss))", (pairs,))
        if not wait:
            self.bus.connection.call(
                self.partner, self.path, self.interface, "Send", arguments, None,
                Gio.DBusCallFlags.NONE, -1, None, None,
            )
            return True
        reply = self.bus.connection.call_sync(
            self.partner, self.path, self.interface, "Send", arguments, GLib.VariantType("(b)"),
            Gio.DBusCallFlags.NONE, -1, None,
        )
        return reply.unpack()[0]

    def notify(self, pairs):
        return bool(self.partner) and self.bus.connection.emit_signal(
            self.partner, self.path, self.interface, "SendSignal", GLib.Variant("(a(ss))", (pairs,))
        )

    def close(self):
        if self.watch:
            Gio.bus_unwatch_name(self.watch)
        for subscription in self.subscriptions:
            self.bus.connection.signal_unsubscribe(subscription)
        self.bus.connection.unregister_object(self.registration)


class Peer:
    """Does what it is told."""

    def __init__(self):
        self.bus = Bus()
        self.earlier = []
        self.end = None

    def do_open(self, host, plugin, role=None, steps=("SYN", "SYN_ACK", "ACK")):
        self.end = End(self.bus, host, plugin, steps)
        tell("opened", who=self.bus.unique_name(), role=role)

    def do_close(self):
        self.end.close()
        self.end = None
        self.bus.connection.close_sync(None)
        self.bus = Bus()
        tell("closed")

    def do_become_another(self):
        self.earlier.append(self.bus)
        self.bus = Bus()
        self.do_who()

    def do_who(self):
        tell("who", who=self.bus.unique_name())

    def do_send(self, wait, pairs):
        tell("sent", result=self.end.send(wait, pairs))

    def do_notify(self, pairs):
        tell("notified", result=self.end.notify(pairs))

    def do_answer(self, value):
        self.end.answer = value

    def do_answer_body(self, body):
        self.end.answer_body = body

    def do_state(self):
        tell("state", ready=self.end.ready)

    def do_own(self, name, flags=4):
        self.tell_result("owned", lambda: self.bus.own(name, flags))

    def do_release(self, name):
        self.tell_result("released", lambda: self.bus.release(name))

    def do_say(self, name):
        self.tell_result("said", lambda: self.bus.say(name))

    def tell_result(self, event, action):
        try:
            tell(event, code=action())
        except GLib.Error as error:
            tell(event, error=Gio.DBusError.get_remote_error(error) or error.message)

    def do_call(self, destination, path, interface, member, body, limit=-1):
        def call():
            return self.bus.connection.call_sync(
                destination, path, interface, member, GLib.Variant.parse(None, body, None, None),
                None, Gio.DBusCallFlags.NONE, limit, None,
            ).print_(True)

        self.tell_result("called", call)

    def do_emit(self, path, interface, member, body, destination=None, times=1):
        arguments = GLib.Variant.parse(None, body, None, None)
        for _ in range(times):
            self.bus.connection.emit_signal(destination, path, interface, member, arguments)
        self.bus.connection.flush_sync(None)
        tell("emitted")

    def do_listen(self, interface, path):
        def handler(_connection, sender, _path, _interface, member, body):
            tell("signal", who=sender, member=member, body=body.print_(True))

        self.bus.connection.signal_subscribe(
            None, interface, None, path, None, Gio.DBusSignalFlags.NONE, handler
        )
        # The bus works in order: once it has answered this, it knows the rule.
        self.bus.ask("GetId", None)
        tell("listening")


def main():
    peer = Peer()
    loop = GLib.MainLoop()

    def read(channel, _condition):
        line = channel.readline()
        if not line:
            loop.quit()
            return False
        command = json.loads(line)
        getattr(peer, "do_" + command.pop("do"))(**command)
        return True

    GLib.io_add_watch(
        GLib.IOChannel.unix_new(sys.stdin.fileno()), GLib.PRIORITY_DEFAULT,
        GLib.IOCondition.IN | GLib.IOCondition.HUP, read,
    )
    loop.run()


main()
