"""The cases of the main road and its turnings: a complete run, Tavio
refusing to quit, the window closed while waiting for it, a file the user may
not remove, a tampered app copy, a home with nothing to remove, and a
temporary copy of the program."""

import os
import signal
import subprocess

import drive
import sandbox
from harness import (NOBODY, Skip, check, Case, wait_until, confirm, user_name, keys,
                     footprint_state, footprint_difference, tamper_app)


def case_full_road(args, compositor=None):
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
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


def case_desktop_agents(args):
    """On an ordinary desktop session, with ssh-agent and gpg-agent running
    beside the program as the same unprivileged user (neither lets its user
    look at its executable) and no Tavio running, the run goes from the
    confirmation straight to its end: it never waits for Tavio, everything is
    removed, and the agents are left running."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
        sb.run_as(NOBODY)
        sb.hand_over()
        driver = c.start(player=False, agents=True)
        check(c.pids_named("ssh-agent") and c.pids_named("gpg-agent"),
              "the agents are not running in the sandbox")
        confirm(driver)
        seen = set()

        def ended(screen):
            seen.update(screen.titles)
            return any(t in screen.titles for t in (d.COMPLETED, d.INCOMPLETE, d.QUIT_FAILED))
        done = driver.wait(ended, 120, "the end of the run")
        check(d.WAITING not in seen, "the window waited for Tavio to quit")
        check(done.title == d.COMPLETED, "the run did not complete:\n" + done.dump())
        left = sb.remaining_planted()
        check(not left, "footprint items still there: %s" % left)
        check(c.pids_named("ssh-agent") and c.pids_named("gpg-agent"),
              "an agent was stopped")
        passed, output = sb.check_canaries()
        check(passed, "canaries: " + output)
    finally:
        c.close()


def wait_for_stubborn_tavio(c):
    """Starts the program beside a Tavio that ignores requests to quit and
    confirms the uninstall. Returns the footprint as it was before, and the
    driver once the window waits for Tavio."""
    before = footprint_state(c.sandbox)
    driver = c.start(player_args=("--ignore-quit",))
    confirm(driver)
    driver.wait_for_title(drive.WAITING, 60)
    return before, driver


def case_quit_refused(args):
    """Tavio will not quit: the quit-failed screen and nothing changed; once
    it has quit, "Try Again" runs the whole uninstall again and completes."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
        before, driver = wait_for_stubborn_tavio(c)
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
        d = drive
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
        d = drive
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


def case_tampered_app(args):
    """A changed byte in the app's executable: the review shows the copy
    skipped with its reason, and the copy is still there afterwards."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
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


def case_waiting_allows_quit(args):
    """While the uninstaller waits for Tavio nothing has been deleted, and
    closing the window quits."""
    c = Case(args)
    try:
        sb = c.sandbox
        before, driver = wait_for_stubborn_tavio(c)
        check(drive.close_window(sb.display, handled=False) >= 1, "no window to close")
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
        d = drive
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
        d = drive
        folder = os.path.join(sb.tmp, "io.tavio.Tavio.uninstaller-e2e")
        bundle = os.path.join(args.build, sandbox.BUNDLE_RELATIVE)
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
