"""Drives the uninstaller's window only through the accessibility interface
(AT-SPI), the way a screen reader or an automation tool does: it finds
headings, list items and buttons by role and name, reads their texts and
calls a button's "Press" action. Run it with the system /usr/bin/python3
(the AT-SPI bindings come from python3-gi and gir1.2-atspi-2.0).

The process must have DISPLAY and DBUS_SESSION_BUS_ADDRESS of the program's
session in its environment before `Driver()` is made: the accessibility bus
is found through that session.
"""

import ctypes
import ctypes.util
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

APP_NAME = "Uninstall Tavio"

# Screen titles, as the window shows them.
REVIEW = "Uninstall Tavio?"
WAITING = "Waiting for Tavio to Quit…"
REMOVING = "Removing Tavio…"
QUIT_FAILED = "Tavio Didn’t Quit"
COMPLETED = "Tavio Was Uninstalled"
INCOMPLETE = "Uninstall Incomplete"
NOTHING = "Tavio Isn’t Installed"
ALERT = "Permanently remove Tavio and its data?"


class DriveError(AssertionError):
    pass


class Node:
    """What one accessible object says about itself, read at one moment."""

    def __init__(self, accessible, depth):
        self.accessible = accessible
        self.depth = depth
        self.role = accessible.get_role_name() or ""
        self.name = accessible.get_name() or ""
        self.description = accessible.get_description() or ""
        states = accessible.get_state_set()
        self.enabled = states.contains(Atspi.StateType.ENABLED)
        self.sensitive = states.contains(Atspi.StateType.SENSITIVE)
        self.showing = states.contains(Atspi.StateType.SHOWING)
        self.focusable = states.contains(Atspi.StateType.FOCUSABLE)
        self.focused = states.contains(Atspi.StateType.FOCUSED)
        self.is_default = states.contains(Atspi.StateType.IS_DEFAULT)
        self.text = ""
        try:
            text = accessible.get_text_iface()
            if text is not None:
                self.text = text.get_text(0, text.get_character_count()) or ""
        except Exception:  # noqa: BLE001 - an object may vanish while it is read
            pass

    def actions(self):
        """The names of the actions the object offers now."""
        action = self.accessible.get_action_iface()
        if action is None:
            return []
        return [action.get_action_name(i) for i in range(action.get_n_actions())]

    def value(self):
        """(current, minimum, maximum) of an object with a value, or None."""
        value = self.accessible.get_value_iface()
        if value is None:
            return None
        return (value.get_current_value(), value.get_minimum_value(),
                value.get_maximum_value())

    def __repr__(self):
        return "%s%s %r %r%s%s" % ("  " * self.depth, self.role, self.name, self.description,
                                   "" if self.enabled else " (disabled)",
                                   " (focused)" if self.focused else "")


class Screen:
    """Everything the window shows at one moment."""

    def __init__(self, nodes):
        self.nodes = nodes

    def of_role(self, role):
        return [n for n in self.nodes if n.role == role]

    @property
    def headings(self):
        return self.of_role("heading")

    @property
    def title(self):
        """The first heading's name: the screen's title (or the alert's)."""
        headings = [h for h in self.headings if h.description]
        return headings[0].name if headings else None

    @property
    def titles(self):
        """The screen's title and, while it is open, the alert's."""
        return [h.name for h in self.headings if h.description] + \
            [d.name for d in self.of_role("dialog")]

    def in_dialog(self):
        """The nodes of the open alert, or an empty list."""
        inside = []
        depth = None
        for node in self.nodes:
            if depth is not None and node.depth <= depth:
                break
            if depth is None and node.role == "dialog":
                depth = node.depth
                continue
            if depth is not None:
                inside.append(node)
        return inside

    def heading(self, title):
        for node in self.headings:
            if node.name == title:
                return node
        return None

    def detail(self, title=None):
        node = self.heading(title) if title else next((h for h in self.headings
                                                      if h.description), None)
        return node.description if node else None

    def button(self, name):
        """The button with this name; while an alert is open, the alert's."""
        dialog = self.in_dialog()
        for node in dialog or self.nodes:
            if node.role in ("push button", "button") and node.name == name:
                return node
        return None

    def buttons(self):
        return [n.name for n in self.nodes if n.role in ("push button", "button")]

    def focused_button(self):
        """The name of the button that has the keyboard, or None."""
        return next((n.name for n in self.nodes
                     if n.role in ("push button", "button") and n.focused), None)

    def items(self):
        """List items (rows) as (title, description)."""
        return [(n.name, n.description) for n in self.nodes if n.role == "list item"]

    def labels(self):
        return [n.name or n.text for n in self.nodes if n.role in ("label", "static")]

    def dump(self):
        return "\n".join(repr(n) for n in self.nodes)

    def report_lines(self):
        """The texts of the screen, in order, as a person would read them."""
        lines = []
        for node in self.nodes:
            if node.role == "heading" and node.description:
                lines += [node.name, node.description]
            elif node.role == "heading":
                lines.append(node.name)
            elif node.role == "list item":
                lines.append("  • " + node.name + (" — " + node.description
                                                   if node.description else ""))
            elif node.role in ("push button", "button"):
                lines.append("  [" + node.name + "]" + ("" if node.enabled else " (disabled)"))
        return lines


class Driver:
    def __init__(self, app_name=APP_NAME, alive=None):
        """`alive`, when given, tells whether the program is still running, so
        that a wait ends at once when it has gone."""
        Atspi.init()
        self.app_name = app_name
        self.app = None
        self.alive = alive or (lambda: True)

    def _check_alive(self):
        if not self.alive():
            raise DriveError("the uninstaller has ended")

    def find_app(self, timeout=60):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            self._check_alive()
            desktop = Atspi.get_desktop(0)
            try:
                desktop.clear_cache()
            except Exception:  # noqa: BLE001
                pass
            for i in range(desktop.get_child_count()):
                app = desktop.get_child_at_index(i)
                try:
                    if app is not None and app.get_name() == self.app_name:
                        self.app = app
                        return app
                except Exception:  # noqa: BLE001 - an application may leave meanwhile
                    continue
            time.sleep(0.1)
        raise DriveError("the uninstaller did not appear on the accessibility bus within "
                         "%d s" % timeout)

    def app_present(self):
        desktop = Atspi.get_desktop(0)
        try:
            desktop.clear_cache()  # or an application that has left is still seen
        except Exception:  # noqa: BLE001
            pass
        for i in range(desktop.get_child_count()):
            app = desktop.get_child_at_index(i)
            try:
                if app is not None and app.get_name() == self.app_name:
                    return True
            except Exception:  # noqa: BLE001
                continue
        return False

    def screen(self):
        """Walks the window's tree (hidden and ignored objects are left out)."""
        if self.app is None:
            self.find_app()
        try:
            self.app.clear_cache()
        except Exception:  # noqa: BLE001
            pass
        nodes = []

        def walk(accessible, depth):
            if accessible is None or depth > 40:
                return
            try:
                node = Node(accessible, depth)
                count = accessible.get_child_count()
            except Exception:  # noqa: BLE001 - the tree changes while it is walked
                return
            if depth > 0 and not node.showing and node.role not in ("frame", "window",
                                                                    "dialog"):
                return
            nodes.append(node)
            for i in range(count):
                try:
                    child = accessible.get_child_at_index(i)
                except Exception:  # noqa: BLE001
                    continue
                walk(child, depth + 1)

        walk(self.app, 0)
        return Screen(nodes)

    def wait(self, predicate, timeout, what):
        """Polls the window until predicate(screen) is true; returns that screen."""
        deadline = time.monotonic() + timeout
        last = None
        while time.monotonic() < deadline:
            self._check_alive()
            pump_events()
            try:
                last = self.screen()
                if predicate(last):
                    return last
            except DriveError:
                raise
            except Exception:  # noqa: BLE001 - a transient bus error: look again
                pass
            time.sleep(0.05)
        raise DriveError("timed out after %d s waiting for %s; the window shows:\n%s"
                         % (timeout, what, last.dump() if last else "(nothing)"))

    def wait_for_title(self, title, timeout=60):
        return self.wait(lambda s: title in s.titles, timeout, "the screen “%s”" % title)

    def wait_for_any(self, titles, timeout=60):
        return self.wait(lambda s: any(t in s.titles for t in titles), timeout,
                         "one of the screens " + ", ".join(titles))

    def press(self, name, timeout=30, screen=None):
        """Calls the Press action of the enabled button with this name."""
        shown = self.wait(lambda s: (s.button(name) is not None and s.button(name).enabled),
                          timeout, "an enabled button “%s”" % name)
        node = shown.button(name)
        action = node.accessible.get_action_iface()
        if action is None:
            raise DriveError("the button “%s” has no actions" % name)
        for i in range(action.get_n_actions()):
            if action.get_action_name(i) == "Press":
                action.do_action(i)
                return
        raise DriveError("the button “%s” has no Press action" % name)


# What a screen reader hears: events from the program --------------------------

def pump_events():
    """Delivers the accessibility events that have arrived to their listeners."""
    context = GLib.MainContext.default()
    while context.pending():
        context.iteration(False)


class Heard:
    """One event, with what its source said about itself when it arrived."""

    def __init__(self, event):
        self.type = event.type
        self.detail = event.detail1
        self.data = event.any_data
        self.role = self.name = self.description = ""
        self.value = None
        try:
            source = event.source
            self.role = source.get_role_name() or ""
            self.name = source.get_name() or ""
            self.description = source.get_description() or ""
            value = source.get_value_iface()
            if value is not None:
                self.value = value.get_current_value()
        except Exception:  # noqa: BLE001 - the source may be gone already
            pass

    def __repr__(self):
        return "%s %s %r %r value=%r detail=%r" % (self.type, self.role, self.name,
                                                   self.description, self.value, self.detail)


class Listener:
    """Records the events of the given types (for example
    "object:property-change:accessible-description") that the program sends,
    as a screen reader registered for them receives them. The program only
    sends what someone listens for, so register before the change."""

    def __init__(self, event_types):
        self.heard = []
        self._listener = Atspi.EventListener.new(lambda event: self.heard.append(Heard(event)))
        self._types = list(event_types)
        for event_type in self._types:
            self._listener.register(event_type)

    def close(self):
        for event_type in self._types:
            self._listener.deregister(event_type)

    def of_type(self, prefix):
        pump_events()
        return [h for h in self.heard if h.type.startswith(prefix)]


# Closing the window the way a window manager asks: WM_DELETE_WINDOW ----------

class _XClientMessageEvent(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong),
                ("send_event", ctypes.c_int), ("display", ctypes.c_void_p),
                ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5)]


class _XEvent(ctypes.Union):
    _fields_ = [("xclient", _XClientMessageEvent), ("pad", ctypes.c_long * 24)]


def _x11():
    lib = ctypes.CDLL(ctypes.util.find_library("X11") or "libX11.so.6")
    lib.XOpenDisplay.restype = ctypes.c_void_p
    lib.XOpenDisplay.argtypes = [ctypes.c_char_p]
    lib.XDefaultRootWindow.restype = ctypes.c_ulong
    lib.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
    lib.XInternAtom.restype = ctypes.c_ulong
    lib.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
    lib.XQueryTree.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.POINTER(ctypes.c_ulong),
                               ctypes.POINTER(ctypes.c_ulong),
                               ctypes.POINTER(ctypes.POINTER(ctypes.c_ulong)),
                               ctypes.POINTER(ctypes.c_uint)]
    lib.XFetchName.argtypes = [ctypes.c_void_p, ctypes.c_ulong,
                               ctypes.POINTER(ctypes.c_char_p)]
    lib.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long,
                               ctypes.POINTER(_XEvent)]
    lib.XFlush.argtypes = [ctypes.c_void_p]
    lib.XGetWindowAttributes.argtypes = [ctypes.c_void_p, ctypes.c_ulong,
                                         ctypes.POINTER(_XWindowAttributes)]
    lib.XSelectInput.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_long]
    lib.XPending.argtypes = [ctypes.c_void_p]
    lib.XGetWindowProperty.argtypes = [
        ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_long, ctypes.c_long,
        ctypes.c_int, ctypes.c_ulong, ctypes.POINTER(ctypes.c_ulong),
        ctypes.POINTER(ctypes.c_int), ctypes.POINTER(ctypes.c_ulong),
        ctypes.POINTER(ctypes.c_ulong), ctypes.POINTER(ctypes.POINTER(ctypes.c_long))]
    lib.XNextEvent.argtypes = [ctypes.c_void_p, ctypes.POINTER(_XEvent)]
    lib.XFree.argtypes = [ctypes.c_void_p]
    lib.XCloseDisplay.argtypes = [ctypes.c_void_p]
    return lib


def close_window(display_name, title=APP_NAME, handled=True, timeout=30):
    """Sends WM_DELETE_WINDOW to every top-level window called `title`, as a
    window manager does when its close button is clicked, and returns how many
    windows were asked; with `handled`, only once each has read the request
    (a window that accepts it may be gone before it can say so).

    Read means: a _NET_WM_PING sent right behind the close request has come
    back. A client reads its window events in order, so the answer to the ping
    proves that the close request has been read too; without it a test could
    not tell a refused close from one still waiting in a queue."""
    x = _x11()
    display = x.XOpenDisplay(display_name.encode())
    if not display:
        raise DriveError("cannot open the display " + display_name)
    try:
        root = x.XDefaultRootWindow(display)
        protocols = x.XInternAtom(display, b"WM_PROTOCOLS", 0)
        delete = x.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
        ping = x.XInternAtom(display, b"_NET_WM_PING", 0)
        # Answers to a ping are sent to the root window, to clients that
        # listen for changes of it (toolkits differ on which mask they use).
        x.XSelectInput(display, root, _STRUCTURE_NOTIFY_MASK | _SUBSTRUCTURE_NOTIFY_MASK)
        asked = _windows_named(x, display, root, title)
        for token, window in enumerate(asked, start=1):
            _send_protocol(x, display, window, protocols, delete, 0)
            if handled:
                _send_protocol(x, display, window, protocols, ping, token)
        x.XFlush(display)
        if handled:
            _await_pongs(x, display, root, protocols, ping, len(asked), timeout)
        return len(asked)
    finally:
        x.XCloseDisplay(display)


def close_offered(display_name, title=APP_NAME):
    """Whether the window called `title` lets a window manager offer to close
    it: its Motif hints (what window managers grey a close button by) either
    say nothing about the window's functions or include closing."""
    x = _x11()
    display = x.XOpenDisplay(display_name.encode())
    if not display:
        raise DriveError("cannot open the display " + display_name)
    try:
        root = x.XDefaultRootWindow(display)
        windows = _windows_named(x, display, root, title)
        if len(windows) != 1:
            raise DriveError("%d windows called %s" % (len(windows), title))
        hints_atom = x.XInternAtom(display, b"_MOTIF_WM_HINTS", 0)
        actual_type = ctypes.c_ulong()
        actual_format = ctypes.c_int()
        items = ctypes.c_ulong()
        after = ctypes.c_ulong()
        data = ctypes.POINTER(ctypes.c_long)()
        status = x.XGetWindowProperty(display, windows[0], hints_atom, 0, 5, 0, 0,  # AnyPropertyType
                                      ctypes.byref(actual_type), ctypes.byref(actual_format),
                                      ctypes.byref(items), ctypes.byref(after),
                                      ctypes.byref(data))
        if status != 0:
            raise DriveError("cannot read the window's Motif hints")
        try:
            if actual_format.value != 32 or items.value < 2:
                return True  # no hints: every function is offered
            flags, functions = data[0], data[1]
            if not flags & _MWM_HINTS_FUNCTIONS:
                return True
            if functions & _MWM_FUNC_ALL:
                # Every function but those listed.
                return not functions & _MWM_FUNC_CLOSE
            return bool(functions & _MWM_FUNC_CLOSE)
        finally:
            if data:
                x.XFree(data)
    finally:
        x.XCloseDisplay(display)


_MWM_HINTS_FUNCTIONS = 1
_MWM_FUNC_ALL = 1
_MWM_FUNC_CLOSE = 32


def _windows_named(x, display, root, title):
    """The viewable top-level windows called `title` (toolkits keep unmapped
    helper windows of the same name)."""
    root_return = ctypes.c_ulong()
    parent_return = ctypes.c_ulong()
    children = ctypes.POINTER(ctypes.c_ulong)()
    count = ctypes.c_uint()
    x.XQueryTree(display, root, ctypes.byref(root_return), ctypes.byref(parent_return),
                 ctypes.byref(children), ctypes.byref(count))
    found = []
    for i in range(count.value):
        window = children[i]
        name = ctypes.c_char_p()
        if x.XFetchName(display, window, ctypes.byref(name)) and name.value is not None:
            matches = name.value.decode(errors="replace") == title
            x.XFree(name)
            if matches and _viewable(x, display, window):
                found.append(window)
    if children:
        x.XFree(children)
    return found


_STRUCTURE_NOTIFY_MASK = 1 << 17
_SUBSTRUCTURE_NOTIFY_MASK = 1 << 19
_CLIENT_MESSAGE = 33


class _XWindowAttributes(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int), ("y", ctypes.c_int), ("width", ctypes.c_int),
                ("height", ctypes.c_int), ("border_width", ctypes.c_int), ("depth", ctypes.c_int),
                ("visual", ctypes.c_void_p), ("root", ctypes.c_ulong), ("class_", ctypes.c_int),
                ("bit_gravity", ctypes.c_int), ("win_gravity", ctypes.c_int),
                ("backing_store", ctypes.c_int), ("backing_planes", ctypes.c_ulong),
                ("backing_pixel", ctypes.c_ulong), ("save_under", ctypes.c_int),
                ("colormap", ctypes.c_ulong), ("map_installed", ctypes.c_int),
                ("map_state", ctypes.c_int), ("all_event_masks", ctypes.c_long),
                ("your_event_mask", ctypes.c_long), ("do_not_propagate_mask", ctypes.c_long),
                ("override_redirect", ctypes.c_int), ("screen", ctypes.c_void_p)]


_IS_VIEWABLE = 2


def _viewable(x, display, window):
    attributes = _XWindowAttributes()
    return (x.XGetWindowAttributes(display, window, ctypes.byref(attributes))
            and attributes.map_state == _IS_VIEWABLE)


def _send_protocol(x, display, window, protocols, atom, token):
    event = _XEvent()
    event.xclient.type = _CLIENT_MESSAGE
    event.xclient.window = window
    event.xclient.message_type = protocols
    event.xclient.format = 32
    event.xclient.data[0] = atom
    event.xclient.data[1] = token  # the time stamp; 0 is CurrentTime
    event.xclient.data[2] = window
    x.XSendEvent(display, window, 0, 0, ctypes.byref(event))


def _await_pongs(x, display, root, protocols, ping, expected, timeout):
    """Waits until `expected` answers to our pings have reached the root."""
    deadline = time.monotonic() + timeout
    answered = set()
    event = _XEvent()
    while len(answered) < expected:
        while x.XPending(display):
            x.XNextEvent(display, ctypes.byref(event))
            client = event.xclient
            if (client.type == _CLIENT_MESSAGE and client.window == root
                    and client.message_type == protocols and client.data[0] == ping):
                answered.add(client.data[1])
        if len(answered) >= expected:
            break
        if time.monotonic() > deadline:
            raise DriveError("the window did not answer a ping within %d s" % timeout)
        time.sleep(0.01)
