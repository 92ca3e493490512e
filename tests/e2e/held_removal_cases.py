"""The cases that hold the removal at a known point with a fanotify
gate: the window and the program refuse to end while files are being removed,
the desktop's keys, and a second start of the program."""

import os
import select
import signal
import subprocess
import time

import drive
from harness import (check, Case, OpenGate, wait_until, keys, focus_window, check_tab_order,
                     start_for_held_removal, hold_removal, check_still_removing)


def case_removal_refuses_close(args):
    """While items are being removed the window cannot be closed."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
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
        d = drive
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
        driver.wait_for_title(drive.REVIEW, 90)
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
        d = drive
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
