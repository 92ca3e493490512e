#!/usr/bin/python3
"""End-to-end tests of the real uninstaller in a bubblewrap sandbox, on its own
Xvfb display and private D-Bus session, driven only through AT-SPI.

    e2e_tests.py --build BUILD_DIR --scripts SCRIPTS_E2E_DIR CASE

Exit status 0 when the case passes, 1 when it fails (a tool or binding that
scripts/setup.sh installs being missing included), 77 when it cannot run
here (bubblewrap cannot make a sandbox, fanotify is not available).
"""

import argparse
import ctypes
import os
import select
import signal
import struct
import subprocess
import sys
import time
import traceback

SKIP = 77
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


def difference(before, after):
    lines = ["added: " + p for p in sorted(set(after) - set(before))]
    lines += ["removed: " + p for p in sorted(set(before) - set(after))]
    lines += ["changed: " + p for p in sorted(set(before) & set(after)) if before[p] != after[p]]
    return lines


class Case:
    """One sandbox with its display, bus, program and driver."""

    current = None

    def __init__(self, args, **plant):
        Case.current = self
        self.args = args
        self.sandbox = sandbox_module.Sandbox(args.build, prefix="tavio-e2e-")
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
            self.listener = drive_module.Listener(listen)
        with open(self.stderr_path, "wb") as err:
            sb.start_program(stdout=err, stderr=err, **program)
        self.driver = drive_module.Driver(alive=lambda: sb.program_process.poll() is None)
        self.driver.find_app(timeout=90)
        if compositor:
            self.check_on_wayland()
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
            if name == "Tavio" and state not in ("Z", "X"):
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

    def release(self):
        """Lets every held opener, and any later one, go on."""
        if self.fd < 0:
            return
        for fd in self.held:
            os.write(self.fd, self._RESPONSE.pack(fd, self._FAN_ALLOW))
            os.close(fd)
        self.held = []
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
    d = drive_module
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


# The cases --------------------------------------------------------------------

def case_full_road(args, compositor=None):
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        check(len(sb.planted) == 10, "unexpected footprint: %s" % sb.planted)
        # One location the user has already cleared away himself: with the
        # app copy in ~/Applications, which is never planted, two items of
        # the inventory are already gone when the run begins.
        logs = os.path.join(sb.home, "Library/Logs/io.tavio.Tavio")
        subprocess.run(["rm", "-rf", "--", logs], check=True)
        driver = c.start(compositor=compositor, player_args=("--quit-delay-ms", "300"))
        review = driver.wait_for_title(d.REVIEW, 90)
        check("“%s”" % user_name() in (review.detail(d.REVIEW) or ""),
              "the review does not name the user: %r" % review.detail(d.REVIEW))
        check(c.player_pids(), "the Tavio player is not running in the sandbox")
        confirm(driver)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 120)
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        left = sb.remaining_planted()
        check(not left, "footprint items still there: %s" % left)
        check(not c.player_pids(), "the Tavio player is still running")
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
        expected = ("The app and its data for “%s” were removed. Items that were already gone: "
                    "2. Your original .torrent files and downloads were not touched."
                    % user_name())
        check(done.detail(d.COMPLETED) == expected,
              "completed text: %r, expected %r" % (done.detail(d.COMPLETED), expected))
        driver.press("Quit")
        status = sb.wait_program(30)
        check(status == 0, "the program ended with %r after Quit" % status)
    finally:
        c.close()


def footprint_state(sb):
    """The footprint as it is: the home's Library and the applications folder."""
    return {"Library": tree_state(os.path.join(sb.home, "Library")),
            "applications": tree_state(sb.applications)}


def footprint_difference(before, after):
    lines = []
    for key in before:
        lines += ["%s: %s" % (key, line) for line in difference(before[key], after[key])]
    return lines


def case_quit_refused(args):
    """Tavio will not quit: the quit-failed screen and nothing changed; once
    it has quit, "Try Again" runs the whole uninstall again and completes."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        before = footprint_state(sb)
        driver = c.start(player_args=("--ignore-quit",))
        confirm(driver)
        driver.wait_for_title(d.WAITING, 60)
        # The uninstaller waits 30 seconds for Tavio before it gives up.
        failed = driver.wait_for_any([d.QUIT_FAILED, d.COMPLETED, d.INCOMPLETE], 120)
        check(failed.title == d.QUIT_FAILED, "expected the quit-failed screen:\n" + failed.dump())
        check(failed.detail(d.QUIT_FAILED).startswith("Nothing was deleted."),
              "quit-failed text: %r" % failed.detail(d.QUIT_FAILED))
        changes = footprint_difference(before, footprint_state(sb))
        check(not changes, "something changed although Tavio did not quit:\n" +
              "\n".join(changes))
        players = c.player_pids()
        check(players, "the Tavio player is gone although it ignores quit requests")
        for pid in players:
            os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not c.player_pids(), 30, "the Tavio player to end")
        driver.press("Try Again")
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 120)
        check(done.title == d.COMPLETED, "the second run did not complete:\n" + done.dump())
        check(not sb.remaining_planted(), "left: %s" % sb.remaining_planted())
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def lock_one_file(sb):
    """Makes one file of the cache undeletable (the immutable attribute: not
    even root may unlink it) and returns its path."""
    cache = os.path.join(sb.home, "Library/Caches/io.tavio.Tavio")
    for folder, dirs, files in sorted(os.walk(cache)):
        dirs.sort()
        for name in sorted(files):
            path = os.path.join(folder, name)
            if os.path.isfile(path) and not os.path.islink(path):
                result = subprocess.run(["chattr", "+i", path], capture_output=True, text=True)
                if result.returncode != 0:
                    raise Skip("cannot make a file immutable here: " + result.stderr.strip())
                sb.locked.append(path)
                return path
    raise AssertionError("no file in the cache to lock")


def case_permission_denied(args, compositor=None):
    """A file the user may not delete: the incomplete screen lists it with
    “Permission denied”, “Copy Paths” puts exactly the remaining paths on the
    clipboard, and “Try Again” leads back to the review."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        locked = lock_one_file(sb)
        driver = c.start(compositor=compositor, player=False)
        confirm(driver)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 120)
        check(done.title == d.INCOMPLETE, "expected an incomplete run:\n" + done.dump())
        rows = [(title, description) for title, description in done.items()]
        shown = [desc.rsplit(", ", 1)[0] for _, desc in rows]
        reasons = [desc.rsplit(", ", 1)[1] if ", " in desc else "" for _, desc in rows]
        inside_locked = sb.inside(locked)
        check(inside_locked in shown, "the locked file %s is not listed:\n%s"
              % (inside_locked, done.dump()))
        row = shown.index(inside_locked)
        check(reasons[row] == "Permission denied", "reason for the locked file: %r"
              % reasons[row])
        check(rows[row][0] == os.path.basename(locked), "row title: %r" % rows[row][0])
        for path in shown:
            check(os.path.lexists(sb.outside(path)), "listed but gone: " + path)
        if compositor:
            # A person presses the button with a key or a click, whose serial
            # Wayland asks for before it lets a client take the clipboard.
            keys("Shift_L")
        driver.press("Copy Paths")
        clipboard = wait_until(lambda: sb.clipboard(), 30, "text on the clipboard")
        check(clipboard.rstrip("\n").split("\n") == shown,
              "clipboard %r, remaining paths %r" % (clipboard, shown))
        driver.press("Try Again")
        review = driver.wait_for_title(d.REVIEW, 60)
        check(review.button("Uninstall…") is not None, "no Uninstall… on the review")
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def case_permission_denied_as_user(args):
    """The same as an unprivileged user: the program, its player and its
    buses run as “nobody”, whose home the sandbox replaces, and one folder of
    the cache belongs to root."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        sb.run_as(NOBODY)
        folder = os.path.join(sb.home, "Library/Caches/io.tavio.Tavio/Locked")
        os.makedirs(folder)
        locked = os.path.join(folder, "keep.bin")
        with open(locked, "wb") as out:
            out.write(b"not yours\n")
        sb.hand_over()
        os.chown(folder, 0, 0)
        os.chown(locked, 0, 0)
        driver = c.start(player_args=("--quit-delay-ms", "200"))
        review = driver.wait_for_title(d.REVIEW, 90)
        name = sb.user.pw_name
        check("“%s”" % name in (review.detail(d.REVIEW) or ""),
              "the review does not name %s: %r" % (name, review.detail(d.REVIEW)))
        confirm(driver)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 120)
        check(done.title == d.INCOMPLETE, "expected an incomplete run:\n" + done.dump())
        shown = [desc.rsplit(", ", 1)[0] for _, desc in done.items()]
        reasons = dict(zip(shown, [desc.rsplit(", ", 1)[-1] for _, desc in done.items()]))
        check(reasons.get(sb.inside(locked)) == "Permission denied",
              "the root-owned file is not listed with “Permission denied”:\n" + done.dump())
        for path in shown:
            check(os.path.lexists(sb.outside(path)), "listed but gone: " + path)
        driver.press("Copy Paths")
        clipboard = wait_until(lambda: sb.clipboard(), 30, "text on the clipboard")
        check(clipboard.rstrip("\n").split("\n") == shown,
              "clipboard %r, remaining paths %r" % (clipboard, shown))
        driver.press("Try Again")
        driver.wait_for_title(d.REVIEW, 60)
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def tamper_app(sb):
    """Changes one byte of the planted app's executable, so that the copy
    fails its check."""
    with open(sb.app_executable(), "r+b") as f:
        f.seek(100)
        byte = f.read(1)
        f.seek(100)
        f.write(bytes([byte[0] ^ 0xFF]))


def case_tampered_app(args):
    """A changed byte in the app's executable: the review shows the copy
    skipped with its reason, and the copy is still there afterwards."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        tamper_app(sb)
        driver = c.start(player=False)
        review = driver.wait_for_title(d.REVIEW, 90)
        app_rows = [desc for title, desc in review.items() if title == "Tavio app"]
        check(app_rows and "/Applications/Tavio.app" in app_rows[0] and
              "Skipped: not a verified Tavio app (the code signature is not valid)"
              in app_rows[0], "the app row: %r" % app_rows)
        check("Found" not in app_rows[0].split(", "), "a skipped copy is shown as found")
        confirm(driver)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 120)
        check(os.path.isdir(sb.app_bundle()), "the tampered copy was removed")
        left = [p for p in sb.remaining_planted() if p != sb.app_bundle()]
        check(not left, "other items left: %s\n%s" % (left, done.dump()))
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def case_screen_reader_states(args):
    """Nothing can be removed (the only thing found is a copy of the app that
    fails its check). A screen reader is told the truth: "Uninstall…" is
    neither enabled nor sensitive, offers no press and pressing it anyway does
    nothing; it is still the screen's default button; "Cancel" is enabled,
    sensitive, focusable and pressable; Tab reaches only what can be used."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        tamper_app(sb)
        for path in sb.planted:
            if path != sb.app_bundle() and not path.startswith(sb.app_bundle() + "/"):
                subprocess.run(["rm", "-rf", "--", path], check=True)
        driver = c.start(player=False)
        review = driver.wait_for_title(d.REVIEW, 90)
        uninstall, cancel = review.button("Uninstall…"), review.button("Cancel")
        check(uninstall and cancel, "the review's buttons:\n" + review.dump())
        check(not uninstall.enabled and not uninstall.sensitive,
              "the disabled “Uninstall…” is reported enabled=%s sensitive=%s"
              % (uninstall.enabled, uninstall.sensitive))
        check(uninstall.actions() == [], "the disabled button offers %r" % uninstall.actions())
        check(uninstall.is_default and not cancel.is_default,
              "default: Uninstall…=%s Cancel=%s" % (uninstall.is_default, cancel.is_default))
        check(cancel.enabled and cancel.sensitive and cancel.focusable,
              "“Cancel” is not reported usable: %r" % cancel)
        check("Press" in cancel.actions(), "“Cancel” offers %r" % cancel.actions())
        # A reader that still holds the old action list presses anyway.
        action = uninstall.accessible.get_action_iface()
        if action is not None:
            try:
                action.do_action(0)
            except Exception:  # noqa: BLE001 - a refusal may come back as an error
                pass
        focus_window()
        keys("Return")
        time.sleep(1)
        screen = driver.screen()
        check(d.ALERT not in screen.titles and screen.title == d.REVIEW,
              "pressing the disabled button did something:\n" + screen.dump())
        order = check_tab_order(driver)
        check(order == ["Cancel"], "Tab reached %r" % order)
        driver.press("Cancel")
        check(sb.wait_program(30) == 0, "no clean exit after Cancel")
        check(os.path.isdir(sb.app_bundle()), "the app copy went")
    finally:
        c.close()


ANNOUNCED = ["object:property-change:accessible-description",
             "object:property-change:accessible-value",
             "object:state-changed:sensitive"]


def case_screen_reader_announcements(args):
    """A screen reader hears the run without walking the window again: the
    progress bar's value changes, each category row's status (“removing”,
    “removed”) and “Cancel” going insensitive when removal starts. Default
    buttons and Tab order are checked on the review and the alert, and the
    screen behind the alert is reported disabled."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        driver, bulk = start_for_held_removal(c, listen=ANNOUNCED)
        review = driver.screen()
        check(review.button("Uninstall…").is_default and not review.button("Cancel").is_default,
              "the review's default button:\n" + review.dump())
        focus_window()
        order = check_tab_order(driver)
        check(order == ["Cancel", "Uninstall…"], "Tab on the review reached %r" % order)
        # The run is held twice: in the cache, and again in the saved window
        # state, the last folder before the app, when four rows are done. A
        # screen reader reads what an event is about when it handles the
        # event; holding the run while the events are handled makes what it
        # reads the state the event announced, however loaded the machine.
        saved_state = os.path.join(sb.home, "Library/Saved Application State",
                                   "io.tavio.Tavio.savedState")
        with OpenGate(saved_state) as later:
            with OpenGate(bulk) as gate:
                check_alert_announced(driver)
                driver.press("Uninstall")
                gate.wait_opened(120)
                first = hear_held_progress(driver, c.listener, 0)
                hear_row(driver, c.listener, "Temporary cache and update downloads", "removing")
            later.wait_opened(120)
            check(not os.path.exists(bulk), "the second hold came before the cache went")
            hear_held_progress(driver, c.listener, first)
            hear_row(driver, c.listener, "Logs and saved window state", "removing")
            for row in ["Settings", "Recent torrent copies", "Playback history and positions",
                        "Temporary cache and update downloads"]:
                hear_row(driver, c.listener, row, "removed")
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 180)
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        heard = c.listener.of_type("object:")
        c.listener.close()
        summary = "\n".join(repr(h) for h in heard)
        # Progress only ever goes up. (A bar already on its way out when its
        # event is handled answers nonsense near 0, left aside.)
        values = [h.value for h in heard if h.type.endswith("accessible-value")
                  and h.role == "progress bar" and h.value is not None and h.value >= 1]
        check(values == sorted(values), "progress was announced going back; heard:\n" + summary)
        insensitive = [h for h in heard if h.type == "object:state-changed:sensitive"
                       and h.detail == 0]
        check(insensitive, "“Cancel” going disabled was not announced; heard:\n" + summary)
        driver.press("Quit")
        check(sb.wait_program(30) == 0, "no clean exit after Quit")
    finally:
        c.close()


def check_alert_announced(driver):
    """Presses "Uninstall…": the alert's default button is "Cancel" and the
    buttons behind it are reported disabled."""
    driver.press("Uninstall…")
    alert = driver.wait_for_title(drive_module.ALERT, 30)
    inside = alert.in_dialog()
    behind = [n for n in alert.nodes if is_button(n) and n not in inside]
    check(behind and not any(n.enabled or n.sensitive for n in behind),
          "buttons behind the alert are reported usable:\n" + alert.dump())
    default = [n.name for n in inside if is_button(n) and n.is_default]
    check(default == ["Cancel"], "the alert's default buttons: %r" % default)


def hear_held_progress(driver, listener, before):
    """While the run is held: the progress bar reads more than `before` and
    less than its end, and a screen reader has been told that value. Returns
    it."""
    removing = driver.wait_for_title(drive_module.REMOVING, 60)
    bars = [n for n in removing.nodes if n.role == "progress bar"]
    check(len(bars) == 1 and bars[0].name == "Uninstall progress", "progress bar: %r" % bars)
    current, low, high = bars[0].value()
    check(low == 0 and before < current < high,
          "the held run's progress reads %r of %r..%r (before: %r)" % (current, low, high, before))
    driver.wait(lambda s: [h for h in listener.of_type("object:property-change:accessible-value")
                           if h.role == "progress bar" and h.value == current],
                30, "the progress %r to be announced" % current)
    return current


def hear_row(driver, listener, name, status):
    """While the run is held: a screen reader has been told that the row
    `name` now reads `status`."""
    kind = "object:property-change:accessible-description"
    driver.wait(lambda s: [h for h in listener.of_type(kind) if h.role == "list item"
                           and h.name == name and h.description == status],
                30, "the row “%s” to be announced as “%s”" % (name, status))


def window_pixels(sb):
    """The program's window as (width, height, rows of RGB bytes), from the
    display itself."""
    xwd = subprocess.run(["xwd", "-silent", "-display", sb.display, "-name", "Uninstall Tavio"],
                         capture_output=True, check=True, timeout=30,
                         env=sb.client_environment()).stdout
    ppm = subprocess.run(["xwdtopnm"], input=xwd, capture_output=True, check=True,
                         timeout=30).stdout
    return ppm_pixels(ppm, "the window")


def ppm_pixels(ppm, what):
    """A binary PPM image as (width, height, rows of RGB bytes)."""
    fields = ppm.split(maxsplit=4)
    check(fields[0] == b"P6" and fields[3] == b"255",
          "%s: unexpected image header %r" % (what, fields[:4]))
    return int(fields[1]), int(fields[2]), fields[4]


def lightness_at(image, x, y):
    width, _, data = image
    offset = 3 * (y * width + x)
    r, g, b = data[offset:offset + 3]
    return (max(r, g, b) + min(r, g, b)) / 510


def case_dark_desktop(args):
    """The desktop asks for dark through its portal (and Qt's platform theme
    gives a light palette): the window draws every surface dark."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        sb.start_display()
        sb.start_bus()
        os.environ.update(sb.client_environment())
        sb.start_dark_portal()
        with open(c.stderr_path, "wb") as err:
            sb.start_program(player=False, stdout=err, stderr=err)
        driver = d.Driver(alive=lambda: sb.program_process.poll() is None)
        c.driver = driver
        driver.find_app(timeout=90)
        driver.wait_for_title(d.REVIEW, 90)
        time.sleep(0.5)
        image = window_pixels(sb)
        width, height, _ = image
        for x, y in ((3, 3), (width - 4, height - 4), (width // 2, height - 4)):
            check(lightness_at(image, x, y) < 0.3,
                  "the window is light at (%d, %d) although the desktop asks for dark"
                  % (x, y))
        driver.press("Cancel")
        check(sb.wait_program(30) == 0, "no clean exit after Cancel")
    finally:
        c.close()


def add_bulk(sb, count=200):
    """A folder of small files in the cache, removed as part of the cache item."""
    root = os.path.join(sb.home, "Library/Caches/io.tavio.Tavio/bulk")
    os.makedirs(root)
    for i in range(count):
        os.close(os.open(os.path.join(root, "%03d" % i), os.O_CREAT | os.O_WRONLY, 0o644))
    return root


def signal_pending(pid, number):
    """Whether the signal waits to be delivered to the process or a thread."""
    bit = 1 << (number - 1)
    try:
        tasks = os.listdir("/proc/%d/task" % pid)
    except OSError:
        return False
    for task in tasks:
        try:
            with open("/proc/%d/task/%s/status" % (pid, task)) as status:
                for line in status:
                    if line.startswith(("SigPnd:", "ShdPnd:")) and int(line.split()[1], 16) & bit:
                        return True
        except OSError:
            continue
    return False


def start_for_held_removal(c, compositor=None, listen=()):
    """Starts the program on a home with a bulk folder in its cache and
    Tavio not running, so that removal begins as soon as "Uninstall" has been
    pressed and a gate on that folder holds it in the middle of the cache.
    Returns the driver, with the review shown, and the folder."""
    bulk = add_bulk(c.sandbox)
    driver = c.start(compositor=compositor, listen=listen, player=False)
    driver.wait_for_title(drive_module.REVIEW, 90)
    return driver, bulk


def hold_removal(driver, gate):
    """Confirms, then waits until the run is removing and stuck at the gate."""
    confirm(driver)
    gate.wait_opened(120)
    return driver.wait_for_title(drive_module.REMOVING, 60)


def check_still_removing(driver, sb, bulk):
    """The program still runs and shows the removal, held at the gate."""
    check(sb.program_process.poll() is None, "the program ended during removal")
    driver.wait_for_title(drive_module.REMOVING, 10)
    check(os.path.isdir(bulk), "the removal went past the gate")


def case_removal_refuses_close(args):
    """While items are being removed the window cannot be closed."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        driver, bulk = start_for_held_removal(c)
        check(d.close_offered(sb.display), "no close button on the review")
        with OpenGate(bulk) as gate:
            hold_removal(driver, gate)
            # The close button goes, for window managers that grey it...
            wait_until(lambda: not d.close_offered(sb.display), 10,
                       "the close button to go during removal")
            # ...and a close request that comes anyway is refused.
            try:
                asked = d.close_window(sb.display)
            except d.DriveError as error:
                raise AssertionError("the window went away during removal: %s" % error)
            check(asked >= 1, "no window to close")
            # The request has been read; give the refusal time to be final.
            time.sleep(0.5)
            check_still_removing(driver, sb, bulk)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 180)
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        wait_until(lambda: d.close_offered(sb.display), 10,
                   "the close button to come back after removal")
        time.sleep(1)
        check(sb.program_process.poll() is None, "the refused close took effect later")
        check(not sb.remaining_planted(), "left: %s" % sb.remaining_planted())
        driver.press("Quit")
        check(sb.wait_program(30) == 0, "no clean exit after Quit")
    finally:
        c.close()


def case_removal_defers_sigterm(args):
    """SIGTERM during removal is honoured only once the run has finished."""
    c = Case(args)
    try:
        sb = c.sandbox
        driver, bulk = start_for_held_removal(c)
        pid = c.program_pid()
        with OpenGate(bulk) as gate:
            hold_removal(driver, gate)
            os.kill(pid, signal.SIGTERM)
            # Once no thread has it pending, the handler has run and passed
            # it on to the event loop; give that a moment to act on it.
            wait_until(lambda: not signal_pending(pid, signal.SIGTERM), 30,
                       "the program to take the signal")
            time.sleep(0.5)
            check_still_removing(driver, sb, bulk)
        status = sb.wait_program(180)
        check(status is not None, "the program did not end after the run")
        check(status == 0, "the program ended with status %s" % status)
        check(not sb.remaining_planted(),
              "the program ended before the run had finished; left: %s" % sb.remaining_planted())
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def case_desktop_keys(args, compositor=None):
    """Ctrl+Q and Ctrl+W go through the same guard as every other way of
    quitting: refused while removing, honoured after."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        driver, bulk = start_for_held_removal(c, compositor)
        focus_window()
        order = check_tab_order(driver)
        check(order == ["Cancel", "Uninstall…"], "Tab on the review reached %r" % order)
        with OpenGate(bulk) as gate:
            hold_removal(driver, gate)
            focus_window()
            keys("ctrl+q")
            keys("ctrl+w")
            time.sleep(0.5)
            check_still_removing(driver, sb, bulk)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 180)
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        time.sleep(0.5)
        check(sb.program_process.poll() is None, "a refused key took effect later")
        focus_window()
        keys("ctrl+q")
        check(sb.wait_program(30) == 0, "Ctrl+Q did not quit after the run")
    finally:
        c.close()


def case_close_key(args):
    """Ctrl+W on the review closes the window, and the program ends."""
    c = Case(args)
    try:
        driver = c.start(player=False)
        driver.wait_for_title(drive_module.REVIEW, 90)
        focus_window()
        keys("ctrl+w")
        check(c.sandbox.wait_program(30) == 0, "Ctrl+W did not close the window")
    finally:
        c.close()


def case_single_instance(args, compositor=None):
    """A second start while the first is removing ends at once, without
    scanning or removing anything, and the first run completes alone. (Its
    request to raise the window is answered; whether the window comes to the
    front is the window system's business.)"""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        driver, bulk = start_for_held_removal(c, compositor)
        first = sb.program_process
        with OpenGate(bulk) as gate:
            hold_removal(driver, gate)
            second_output = os.path.join(sb.scratch, "second.output")
            with open(second_output, "wb") as err:
                second = sb.start_program(player=False, stdout=err, stderr=err)
            sb.program_process = first
            try:
                status = second.wait(timeout=30)
            except subprocess.TimeoutExpired:
                raise AssertionError("the second start is still running beside the first")
            check(status == 0, "the second start ended with %r" % status)
            # It went without trying to remove what the first run holds:
            # the gate saw no open of the folder but the first run's.
            pending, _, _ = select.select([gate.fd], [], [], 0)
            check(not pending, "the second start opened the folder being removed")
            check_still_removing(driver, sb, bulk)
            apps = [a for a in (Atspi_apps()) if a == d.APP_NAME]
            check(len(apps) == 1, "%d windows of the uninstaller on the bus" % len(apps))
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 180)
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
        driver.press("Quit")
        check(sb.wait_program(30) == 0, "no clean exit after Quit")
    finally:
        c.close()


def Atspi_apps():
    """The names of the applications on the accessibility bus."""
    from gi.repository import Atspi
    desktop = Atspi.get_desktop(0)
    names = []
    for i in range(desktop.get_child_count()):
        try:
            names.append(desktop.get_child_at_index(i).get_name())
        except Exception:  # noqa: BLE001 - an application may leave meanwhile
            continue
    return names


def case_waiting_allows_quit(args):
    """While the uninstaller waits for Tavio nothing has been deleted, and
    closing the window quits."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive_module
        before = footprint_state(sb)
        driver = c.start(player_args=("--ignore-quit",))
        confirm(driver)
        driver.wait_for_title(d.WAITING, 60)
        check(drive_module.close_window(sb.display, handled=False) >= 1, "no window to close")
        status = sb.wait_program(30)
        check(status is not None, "the program did not quit while waiting for Tavio")
        changes = footprint_difference(before, footprint_state(sb))
        check(not changes, "something changed:\n" + "\n".join(changes))
    finally:
        c.close()


def case_empty_home(args):
    """Nothing of Tavio anywhere: “Tavio Isn’t Installed”."""
    c = Case(args, plant=False)
    try:
        d = drive_module
        driver = c.start(player=False)
        screen = driver.wait_for_title(d.NOTHING, 90)
        expected = ("No Tavio app or app data was found for “%s”. Nothing was changed."
                    % user_name())
        check(screen.detail(d.NOTHING) == expected, "text: %r" % screen.detail(d.NOTHING))
        driver.press("Quit")
        check(c.sandbox.wait_program(30) == 0, "no clean exit after Quit")
    finally:
        c.close()


def case_temporary_copy(args):
    """A copy of the uninstaller that runs from its own folder directly in
    the temporary folder deletes that folder when it quits."""
    c = Case(args, plant=False)
    try:
        sb = c.sandbox
        d = drive_module
        folder = os.path.join(sb.tmp, "io.tavio.Tavio.uninstaller-e2e")
        bundle = os.path.join(args.build, sandbox_module.BUNDLE_RELATIVE)
        os.makedirs(folder)
        subprocess.run(["cp", "-a", bundle, folder], check=True)
        inside = "/tmp/io.tavio.Tavio.uninstaller-e2e/" + os.path.basename(bundle) + \
            "/Contents/MacOS/" + os.path.basename(sb.program)
        driver = c.start(player=False, program=inside)
        driver.wait_for_title(d.NOTHING, 90)
        check(os.path.isdir(folder), "the copy's folder went before the program quit")
        driver.press("Quit")
        check(sb.wait_program(30) == 0, "no clean exit after Quit")
        check(not os.path.lexists(folder), "the temporary copy is still there: " + folder)
    finally:
        c.close()


def png_pixels(path):
    """A PNG file as (width, height, rows of RGB bytes), through netpbm."""
    ppm = subprocess.run(["pngtopnm", path], capture_output=True, check=True, timeout=30).stdout
    return ppm_pixels(ppm, path)


def mean_luminance(image):
    """The mean relative luminance (0 black, 1 white), from a sample of pixels."""
    width, height, data = image
    total, count = 0.0, 0
    for offset in range(0, 3 * width * height, 3 * 7):
        r, g, b = data[offset:offset + 3]
        total += (0.2126 * r + 0.7152 * g + 0.0722 * b) / 255
        count += 1
    return total / count


def colours_in(image, top, bottom):
    """The distinct colours of the rows from top to bottom (exclusive)."""
    width, _, data = image
    row = 3 * width
    band = data[top * row:bottom * row]
    return {band[i:i + 3] for i in range(0, len(band), 3)}


def check_screenshot(shot):
    """One picture: the window manager's frame around the whole window, a
    title bar drawn above it, and no pointer in it."""
    name = os.path.basename(shot.path)
    image = png_pixels(shot.path)
    width, height, _ = image
    x, y, client_width, client_height = shot.client
    check((width, height) == tuple(shot.frame),
          "%s is %dx%d, the frame %dx%d" % (name, width, height, *shot.frame))
    check(width > client_width and height > client_height and x > 0 and y > 0,
          "%s (%dx%d) does not frame the window (%dx%d at %d,%d)"
          % (name, width, height, client_width, client_height, x, y))
    check(y >= 10, "%s: the title bar above the window is %d pixels high" % (name, y))
    # A title bar with a title, an icon and buttons has many colours; a
    # plain border or an empty strip a few.
    title_bar = colours_in(image, 0, y)
    check(len(title_bar) >= 12, "%s: the strip above the window has %d colours, no title bar"
          % (name, len(title_bar)))
    check(shot.pointer_unseen,
          "%s: the picture changed when the pointer moved over the window" % name)
    return image


def case_decorated_screenshots(args):
    """The pictures for software centres (scripts/e2e/screenshots.py): the
    window as a desktop frames it, on the review and on the result of an
    uninstall driven by keyboard, light and dark, with no pointer."""
    import screenshots
    missing = screenshots.missing_tools()
    check(not missing, "missing %s; scripts/setup.sh installs them" % ", ".join(missing))
    out = os.path.join(os.path.abspath(args.build), "screenshots")
    shots = {os.path.basename(shot.path): shot for shot in screenshots.make(args.build, out)}
    expected = {"%s-%s.png" % (screen, style)
                for screen in ("review", "result") for style in ("light", "dark")}
    check(set(shots) == expected, "pictures made: %s" % sorted(shots))
    images = {name: check_screenshot(shot) for name, shot in shots.items()}
    for screen in ("review", "result"):
        light = mean_luminance(images["%s-light.png" % screen])
        dark = mean_luminance(images["%s-dark.png" % screen])
        check(light > 0.6 and dark < 0.35 and light - dark > 0.35,
              "%s: mean luminance light %.2f, dark %.2f" % (screen, light, dark))
    # The review lists what will go; the result is the short final screen.
    check(shots["review-light.png"].client[3] > shots["result-light.png"].client[3],
          "the result picture is as tall as the review: not the result screen")


CASES = {
    "full_road": case_full_road,
    "quit_refused": case_quit_refused,
    "permission_denied": case_permission_denied,
    "permission_denied_as_user": case_permission_denied_as_user,
    "tampered_app": case_tampered_app,
    "removal_refuses_close": case_removal_refuses_close,
    "removal_defers_sigterm": case_removal_defers_sigterm,
    "waiting_allows_quit": case_waiting_allows_quit,
    "empty_home": case_empty_home,
    "temporary_copy": case_temporary_copy,
    "screen_reader_states": case_screen_reader_states,
    "screen_reader_announcements": case_screen_reader_announcements,
    "follows_Dark_desktop": case_dark_desktop,
    "desktop_keys": case_desktop_keys,
    "close_key": case_close_key,
    "single_instance": case_single_instance,
    "decorated_screenshots": case_decorated_screenshots,
    # Weston's headless compositor has no seat: the program must not crash
    # on it, and the whole road is driven through AT-SPI alone.
    "Wayland_full_road": lambda args: case_full_road(args, compositor="weston"),
    "Wayland_single_instance": lambda args: case_single_instance(args, compositor="weston"),
    # sway's has one: the keys, typed through it, and the clipboard, which
    # a Wayland client may only set while it has a seat's focus.
    "Wayland_desktop_keys": lambda args: case_desktop_keys(args, compositor="sway"),
    "Wayland_permission_denied": lambda args: case_permission_denied(args, compositor="sway"),
}


def main():
    global sandbox_module, drive_module
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--scripts", required=True)
    parser.add_argument("case", choices=sorted(CASES))
    args = parser.parse_args()
    sys.path.insert(0, args.scripts)
    import sandbox as imported_sandbox
    sandbox_module = imported_sandbox
    try:
        import drive as imported_drive
    # What scripts/setup.sh installs is never a reason to skip: without it
    # the case fails, saying what is missing.
    except (ImportError, ValueError) as error:
        print("FAILED: no AT-SPI bindings for /usr/bin/python3 (%s); "
              "scripts/setup.sh installs them" % error)
        return 1
    drive_module = imported_drive
    for tool in ("bwrap", "Xvfb", "dbus-daemon", "xclip", "setpriv", "chattr", "xdotool",
                 "weston", "sway", "wtype", "wl-paste"):
        if subprocess.run(["sh", "-c", "command -v " + tool], capture_output=True).returncode:
            print("FAILED: %s is not installed; scripts/setup.sh installs it" % tool)
            return 1
    probe = subprocess.run(["bwrap", "--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev",
                            "--unshare-pid", "true"], capture_output=True, text=True)
    if probe.returncode != 0:
        print("SKIP: bubblewrap cannot make a sandbox here: " + probe.stderr.strip())
        return SKIP
    started = time.monotonic()
    try:
        CASES[args.case](args)
    except Skip as skip:
        print("SKIP: %s" % skip)
        return SKIP
    except Exception:  # noqa: BLE001 - every failure is reported the same way
        traceback.print_exc()
        if Case.current is not None:
            print("--- the program's output (last 4000 characters):")
            print(Case.current.stderr())
        print("FAILED: %s after %.1f s" % (args.case, time.monotonic() - started))
        return 1
    print("PASSED: %s in %.1f s" % (args.case, time.monotonic() - started))
    return 0


sandbox_module = None
drive_module = None

if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    sys.exit(main())
