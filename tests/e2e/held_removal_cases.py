"""The cases that hold the removal at a known point with a fanotify
gate: the window and the program refuse to end while files are being removed,
the desktop's keys, a second start of the program, and a run killed in the
middle of the app copy, which the next run finishes."""

import os
import select
import signal
import subprocess
import threading
import time

import drive
from harness import (check, Case, OpenGate, wait_until, confirm, keys, focus_window,
                     check_tab_order, start_for_held_removal, hold_removal, check_still_removing,
                     tree_state)


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


INTERRUPTED_NOTE = "An earlier removal of this copy was interrupted"


def last_folder_entered(bundle):
    """The folder of the app copy that its removal opens last, and the files
    it has deleted by then. The removal goes depth first, through each
    folder's entries in the order the file system lists them; os.scandir
    lists them in that same order, so a gate on this folder holds the removal
    with most of the copy gone, whichever order this file system keeps."""
    order = []

    def walk(folder):
        for entry in list(os.scandir(folder)):
            is_folder = entry.is_dir(follow_symlinks=False)
            order.append((entry.path, is_folder))
            if is_folder:
                walk(entry.path)
    walk(bundle)
    last = max(i for i, (_, is_folder) in enumerate(order) if is_folder)
    return order[last][0], [path for path, is_folder in order[:last] if not is_folder]


def removal_records(sb):
    """The program's records of removals begun, in the sandbox home."""
    folder = os.path.join(sb.home, ".local/state/io.tavio.Tavio.Uninstaller")
    try:
        names = os.listdir(folder)
    except FileNotFoundError:
        return []
    return sorted(os.path.join(folder, n) for n in names
                  if n.startswith("removal-") and n.endswith(".plist"))


def hold_app_removal(sb, gate, timeout=120):
    """Starts holding the removal of the app copy at the gated folder, and
    returns a function that waits until it is held. The copy is verified and
    its contents listed once more before it goes, and those opens of the
    folder are let through; the record is written after them and before the
    first deletion, so the first open once it exists is the removal's. The
    watch runs beside the driver: the window scans again, verifying the copy,
    while it handles the confirming press, which must not wait for itself."""
    outcome = {}

    def watch():
        try:
            deadline = time.monotonic() + timeout
            while True:
                gate.wait_opened(max(1, deadline - time.monotonic()))
                if removal_records(sb):
                    return
                gate.allow()
        except Exception as error:  # noqa: BLE001 - handed to the waiting case
            outcome["error"] = error

    watcher = threading.Thread(target=watch, daemon=True)
    watcher.start()

    def wait_held():
        watcher.join(timeout + 10)
        check(not watcher.is_alive(), "the gate's watch did not end")
        if "error" in outcome:
            raise outcome["error"]
    return wait_held


def app_row(screen):
    rows = [desc for title, desc in screen.items() if title == "Tavio app"]
    check(len(rows) == 1, "not one row for the app:\n" + screen.dump())
    return rows[0]


def case_removal_killed_then_finished(args):
    """The program is killed while it deletes the app copy. The copy is left
    half removed with the record of its removal; the next start lists what is
    left as the app copy, with a note that an earlier removal was
    interrupted, removes it, and takes the record and its folders away."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
        bundle = sb.app_bundle()
        local = os.path.join(sb.home, ".local")
        check(not os.path.lexists(local), "the planted home has a .local folder already")
        driver = c.start(player=False)
        review = driver.wait_for_title(d.REVIEW, 90)
        first_row = app_row(review)
        check(sb.inside(bundle) in first_row and INTERRUPTED_NOTE not in first_row,
              "the app row before any removal: %r" % first_row)
        pid = c.program_pid()
        gated, deleted_first = last_folder_entered(bundle)
        check(deleted_first, "no file of the copy goes before %s" % gated)
        with OpenGate(gated) as gate:
            wait_held = hold_app_removal(sb, gate)
            confirm(driver)
            wait_held()
            driver.wait_for_title(d.REMOVING, 60)
            check(not [p for p in deleted_first if os.path.lexists(p)],
                  "the removal is held before it has deleted what comes first")
            # Killed while held, before the gate lets it go: nothing more of
            # the copy is deleted, as when the power fails at that point.
            os.kill(pid, signal.SIGKILL)
        check(sb.wait_program(30) is not None, "the killed program did not end")
        check(os.path.isdir(gated), "the gated folder went after the kill")
        check(not [p for p in deleted_first if os.path.lexists(p)],
              "files of the copy came back")
        records = removal_records(sb)
        check(len(records) == 1, "records after the kill: %s" % records)

        driver = c.start_again(player=False)
        review = driver.wait_for_title(d.REVIEW, 90)
        row = app_row(review)
        check(sb.inside(bundle) in row and INTERRUPTED_NOTE in row and "Skipped" not in row,
              "the app row after the kill: %r\n%s" % (row, review.dump()))
        confirm(driver)
        done = driver.wait_for_any([d.COMPLETED, d.INCOMPLETE], 180)
        check(done.title == d.COMPLETED, "the second run did not complete:\n" + done.dump())
        check(not sb.remaining_planted(), "left: %s" % sb.remaining_planted())
        check(not os.path.lexists(bundle), "the app copy is still there")
        check(not os.path.lexists(local),
              "left in the home's .local: %s" % sorted(tree_state(local)))
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
