"""A window as GTK makes it: green, blue after the red key, red after a click."""
import gi

gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk

style = Gtk.CssProvider()


def paint(colour):
    style.load_from_data(f"window {{ background: {colour}; }}".encode())


def key_pressed(_window, event):
    if Gdk.keyval_name(event.keyval) == "Red":
        paint("#0000ff")


paint("#00ff00")
Gtk.StyleContext.add_provider_for_screen(
    Gdk.Screen.get_default(), style, Gtk.STYLE_PROVIDER_PRIORITY_APPLICATION
)
window = Gtk.Window(title="a toolkit's window")
window.add_events(Gdk.EventMask.BUTTON_PRESS_MASK)
window.connect("destroy", Gtk.main_quit)
window.connect("key-press-event", key_pressed)
window.connect("button-press-event", lambda *_: paint("#ff0000"))
window.show_all()
Gtk.main()
