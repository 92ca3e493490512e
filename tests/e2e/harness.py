"""What every end-to-end case uses: the sandbox with its display, bus,
program and driver (Case), the fanotify gate that holds the removal at a known
point (OpenGate), keys typed into the window, and the checks of a footprint.

The modules drive and sandbox come from scripts/e2e, which e2e_tests.py puts on
the import path before it imports this."""

import ctypes
import os
import select
import struct
import subprocess
import time

import drive
import sandbox


NOBODY = 65534


class Skip(Exception):
    pass


def check(condition, message):
    if not condition:
        raise AssertionError(message)


def tree_state(root):
    """Every path below root with its type, size and content's modification time."""
    state = {}
    for folder, dirs, files in os.walk(root):
        for name in dirs + files:
            path = os.path.join(folder, name)
            st = os.lstat(path)
            state[os.path.relpath(path, root)] = (st.st_mode, st.st_size, st.st_mtime_ns)
    return state


difference = sandbox.difference


class Case:
    """One sandbox with its display, bus, program and driver."""

    current = None

    def __init__(self, args, **plant):
        Case.current = self
        self.args = args
        self.sandbox = sandbox.Sandbox(args.build, prefix="tavio-e2e-")
        self.driver = None
        self.listener = None
        self.output = None
        self.stderr_path = os.path.join(self.sandbox.scratch, "program.output")
        if plant.pop("plant", True):
            self.sandbox.plant(**plant)

    def start(self, compositor=None, listen=(), **program):
        """Starts the display (an X server, or the named headless Wayland
        compositor), the buses and the program, and finds its window. Events
        of the types in `listen` are recorded in self.listener from the
        program's first moment: it learns of the listeners as it starts."""
        sb = self.sandbox
        if compositor:
            sb.start_wayland(compositor)
        else:
            sb.start_display()
        sb.start_bus()
        os.environ.update(sb.client_environment())
        if listen:
            self.listener = drive.Listener(listen)
        with open(self.stderr_path, "wb") as err:
            sb.start_program(stdout=err, stderr=err, **program)
        self.driver = drive.Driver(alive=lambda: sb.program_process.poll() is None)
        self.driver.find_app(timeout=90)
        if compositor:
            self.check_on_wayland()
        return self.driver

    def start_again(self, **program):
        """Starts the program once more, on the display and buses of the
        first start, once the first program has ended and left the
        accessibility bus, and finds its new window."""
        sb = self.sandbox
        check(sb.program_process.poll() is not None, "the first program is still running")
        wait_until(lambda: not drive.Driver().app_present(), 30,
                   "the ended program to leave the accessibility bus")
        # Appended, so that a failure shows what both starts said.
        with open(self.stderr_path, "ab") as err:
            sb.start_program(stdout=err, stderr=err, **program)
        self.driver = drive.Driver(alive=lambda: sb.program_process.poll() is None)
        self.driver.find_app(timeout=90)
        return self.driver

    def check_on_wayland(self):
        """The program draws through Qt's Wayland plugin, not through an X
        server (there is none)."""
        pid = self.program_pid()
        with open("/proc/%d/maps" % pid) as maps:
            mapped = maps.read()
        check("libQt6WaylandClient" in mapped, "the program is not a Wayland client")
        check("libxcb-" not in mapped or "libqxcb" not in mapped,
              "the program loaded the X11 platform plugin")

    def program_pid(self):
        return wait_until(lambda: self.sandbox.program_pid_inside(), 30, "the program's pid")

    def player_pids(self):
        """The Tavio players alive in the sandbox (a player that has quit stays
        a zombie until the program, its parent after the exec, ends)."""
        return self.pids_named("Tavio")

    def pids_named(self, wanted):
        """The live processes of the sandbox with this command name."""
        found = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit() or not self.sandbox._descends_from(
                    int(entry), self.sandbox.program_process.pid):
                continue
            try:
                with open("/proc/%s/stat" % entry) as stat:
                    text = stat.read()
            except OSError:
                continue
            name = text[text.index("(") + 1:text.rindex(")")]
            state = text.rsplit(")", 1)[1].split()[0]
            if name == wanted and state not in ("Z", "X"):
                found.append(int(entry))
        return found

    def stderr(self):
        if self.output is not None:
            return self.output
        try:
            with open(self.stderr_path, errors="replace") as err:
                return err.read()[-4000:]
        except OSError:
            return ""

    def close(self):
        self.output = self.stderr()
        self.sandbox.close()


class OpenGate:
    """Holds up whoever opens one folder until released, through fanotify's
    permission events: the kernel makes the opener wait for our answer. A test
    uses it to stop the removal at a known point, with no race against the
    clock, while the rest of the program keeps running. Only opens that read
    a folder are held; looking a path up (O_PATH, stat) is not."""

    _FAN_CLASS_CONTENT = 0x4
    _FAN_CLOEXEC = 0x1
    _FAN_MARK_ADD = 0x1
    _FAN_OPEN_PERM = 0x10000
    _FAN_ONDIR = 0x40000000
    _FAN_ALLOW = 0x1
    _AT_FDCWD = -100
    _EVENT = struct.Struct("IBBHQii")
    _RESPONSE = struct.Struct("iI")

    def __init__(self, folder):
        libc = ctypes.CDLL(None, use_errno=True)
        libc.fanotify_init.argtypes = [ctypes.c_uint, ctypes.c_uint]
        libc.fanotify_mark.argtypes = [ctypes.c_int, ctypes.c_uint, ctypes.c_uint64,
                                       ctypes.c_int, ctypes.c_char_p]
        self.fd = libc.fanotify_init(self._FAN_CLASS_CONTENT | self._FAN_CLOEXEC,
                                     os.O_RDONLY | os.O_CLOEXEC)
        if self.fd < 0:
            raise Skip("fanotify permission events are not available here: "
                       + os.strerror(ctypes.get_errno()))
        if libc.fanotify_mark(self.fd, self._FAN_MARK_ADD, self._FAN_OPEN_PERM | self._FAN_ONDIR,
                              self._AT_FDCWD, folder.encode()) != 0:
            error = ctypes.get_errno()
            os.close(self.fd)
            raise Skip("cannot watch %s with fanotify: %s" % (folder, os.strerror(error)))
        self.held = []

    def wait_opened(self, timeout):
        """Waits until someone tries to open the folder, and holds them."""
        ready, _, _ = select.select([self.fd], [], [], timeout)
        check(ready, "nobody opened the watched folder within %d s" % timeout)
        data = os.read(self.fd, 4096)
        offset = 0
        while offset + self._EVENT.size <= len(data):
            length, _, _, _, _, fd, pid = self._EVENT.unpack_from(data, offset)
            self.held.append(fd)
            offset += length
        return pid

    def allow(self):
        """Lets the held openers go on, and keeps watching: the next open is
        held again."""
        for fd in self.held:
            os.write(self.fd, self._RESPONSE.pack(fd, self._FAN_ALLOW))
            os.close(fd)
        self.held = []

    def release(self):
        """Lets every held opener, and any later one, go on."""
        if self.fd < 0:
            return
        self.allow()
        # Closing the group answers "allow" to anything still queued and
        # removes the mark.
        os.close(self.fd)
        self.fd = -1

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.release()


def wait_until(predicate, timeout, what):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out after %d s waiting for %s" % (timeout, what))


def confirm(driver):
    """Review → "Uninstall…" → the alert's "Uninstall"."""
    d = drive
    driver.wait_for_title(d.REVIEW, 90)
    driver.press("Uninstall…")
    driver.wait_for_title(d.ALERT, 30)
    driver.press("Uninstall")


def user_name():
    import pwd
    return pwd.getpwuid(os.getuid()).pw_name


def keys(*names):
    """Types keys into the focused window: through XTEST on an X server,
    through the virtual-keyboard protocol on a Wayland compositor. A name is
    a key ("Tab") or a modifier and a key ("ctrl+q")."""
    wayland = Case.current is not None and Case.current.sandbox.wayland
    for name in names:
        if not wayland:
            command = ["xdotool", "key", "--clearmodifiers", name]
        elif "+" in name:
            modifier, key = name.split("+", 1)
            command = ["wtype", "-M", modifier, key, "-m", modifier]
        else:
            command = ["wtype", "-k", name]
        subprocess.run(command, check=True, capture_output=True, timeout=30)


def focus_window():
    """Gives the program's window the keyboard. An X server here has no
    window manager to do it; a Wayland compositor focuses a new window by
    itself."""
    if Case.current is not None and Case.current.sandbox.wayland:
        return
    subprocess.run(["xdotool", "search", "--sync", "--name", "^Uninstall Tavio$",
                    "windowfocus", "--sync"], check=True, capture_output=True, timeout=60)


def is_button(node):
    return node.role in ("push button", "button")


def check_tab_order(driver):
    """Tab moves the focus through every enabled button of the screen, in
    reading order, and round again; disabled ones are passed over."""
    screen = driver.screen()
    order = [n.name for n in screen.nodes if is_button(n) and n.enabled]
    check(order, "no enabled button to reach:\n" + screen.dump())
    check(all(n.focusable for n in screen.nodes if is_button(n) and n.enabled),
          "an enabled button is not focusable:\n" + screen.dump())
    start = screen.focused_button()
    index = order.index(start) + 1 if start in order else 0
    for step in range(len(order) + 1):
        expected = order[(index + step) % len(order)]
        keys("Tab")
        driver.wait(lambda s, e=expected: s.focused_button() == e, 10,
                    "Tab to focus “%s” (order %s)" % (expected, order))
    return order


def footprint_state(sb):
    """The footprint as it is: the home's Library and the applications folder."""
    return {"Library": tree_state(os.path.join(sb.home, "Library")),
            "applications": tree_state(sb.applications)}


def footprint_difference(before, after):
    lines = []
    for key in before:
        lines += ["%s: %s" % (key, line) for line in difference(before[key], after[key])]
    return lines


def tamper_app(sb):
    """Changes one byte of the planted app's executable, so that the copy
    fails its check."""
    with open(sb.app_executable(), "r+b") as f:
        f.seek(100)
        byte = f.read(1)
        f.seek(100)
        f.write(bytes([byte[0] ^ 0xFF]))


def ppm_pixels(ppm, what):
    """A binary PPM image as (width, height, rows of RGB bytes)."""
    fields = ppm.split(maxsplit=4)
    check(fields[0] == b"P6" and fields[3] == b"255",
          "%s: unexpected image header %r" % (what, fields[:4]))
    return int(fields[1]), int(fields[2]), fields[4]


def add_bulk(sb, count=200):
    """A folder of small files in the cache, removed as part of the cache item."""
    root = os.path.join(sb.home, "Library/Caches/io.tavio.Tavio/bulk")
    os.makedirs(root)
    for i in range(count):
        os.close(os.open(os.path.join(root, "%03d" % i), os.O_CREAT | os.O_WRONLY, 0o644))
    return root


def start_for_held_removal(c, compositor=None, listen=()):
    """Starts the program on a home with a bulk folder in its cache and
    Tavio not running, so that removal begins as soon as "Uninstall" has been
    pressed and a gate on that folder holds it in the middle of the cache.
    Returns the driver, with the review shown, and the folder."""
    bulk = add_bulk(c.sandbox)
    driver = c.start(compositor=compositor, listen=listen, player=False)
    driver.wait_for_title(drive.REVIEW, 90)
    return driver, bulk


def hold_removal(driver, gate):
    """Confirms, then waits until the run is removing and stuck at the gate."""
    confirm(driver)
    gate.wait_opened(120)
    return driver.wait_for_title(drive.REMOVING, 60)


def check_still_removing(driver, sb, bulk):
    """The program still runs and shows the removal, held at the gate."""
    check(sb.program_process.poll() is None, "the program ended during removal")
    driver.wait_for_title(drive.REMOVING, 10)
    check(os.path.isdir(bulk), "the removal went past the gate")
