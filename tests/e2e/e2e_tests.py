#!/usr/bin/python3
"""End-to-end tests of the real uninstaller in a bubblewrap sandbox, on its own
Xvfb display and private D-Bus session, driven only through AT-SPI.

    e2e_tests.py --build BUILD_DIR --scripts SCRIPTS_E2E_DIR CASE

Exit status 0 when the case passes, 1 when it fails, 77 when it cannot run
here (no bubblewrap, no Xvfb, no AT-SPI bindings).
"""

import argparse
import os
import signal
import subprocess
import sys
import time
import traceback

SKIP = 77


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
        self.output = None
        self.stderr_path = os.path.join(self.sandbox.scratch, "program.output")
        if plant.pop("plant", True):
            self.sandbox.plant(**plant)

    def start(self, **program):
        sb = self.sandbox
        sb.start_display()
        sb.start_bus()
        os.environ.update(sb.client_environment())
        with open(self.stderr_path, "wb") as err:
            sb.start_program(stdout=err, stderr=err, **program)
        self.driver = drive_module.Driver(alive=lambda: sb.program_process.poll() is None)
        self.driver.find_app(timeout=90)
        return self.driver

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


# The cases --------------------------------------------------------------------

def case_full_road(args):
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
        driver = c.start(player_args=("--quit-delay-ms", "300"))
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


CASES = {
    "full_road": case_full_road,
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
    except (ImportError, ValueError) as error:
        print("SKIP: no AT-SPI bindings for /usr/bin/python3 (%s)" % error)
        return SKIP
    drive_module = imported_drive
    for tool in ("bwrap", "Xvfb", "dbus-daemon", "xclip", "xwd"):
        if subprocess.run(["sh", "-c", "command -v " + tool], capture_output=True).returncode:
            print("SKIP: %s is not installed (scripts/setup.sh installs it)" % tool)
            return SKIP
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
