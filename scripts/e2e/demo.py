#!/usr/bin/python3
"""The demo: the real uninstaller on a throw-away account.

    demo.py --build BUILD_DIR [--screenshots DIR] [--headless]

Prepares a sandbox (a temporary home with a planted Tavio footprint and
canaries, a sandbox /Applications with a sealed Tavio.app, the Tavio player
running from that bundle) and starts the built uninstaller in it under
bubblewrap. With a display ($DISPLAY) the window opens for you. Without one
(or with --headless) it runs on a virtual display of its own and walks the
whole road itself through the accessibility interface, saving a screenshot of
every screen it passes, then prints the report and the canary check.
"""

import argparse
import os
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import sandbox as sandbox_module  # noqa: E402

SAFETY = ("demo: nothing of yours is touched: the uninstaller runs in bubblewrap with a "
          "throw-away home mounted over %s, a sandbox folder as /Applications and the rest of "
          "the system read-only")


def say(text):
    print(text, flush=True)


def summary(sb):
    passed, output = sb.check_canaries()
    say("demo: canary check: " + output.replace("\n", "; "))
    left = sb.remaining_planted()
    if left:
        say("demo: footprint items still there:")
        for path in left:
            say("  " + sb.inside(path))
    else:
        say("demo: every planted footprint item is gone")
    return passed


def run_with_display(sb):
    # The home folder is replaced inside, so the X authority file is handed
    # over explicitly (a copy of $XAUTHORITY, or of ~/.Xauthority).
    xauthority = os.environ.get("XAUTHORITY") or os.path.join(
        os.path.expanduser("~"), ".Xauthority")
    sb.use_host_display(os.environ["DISPLAY"], xauthority)
    sb.start_bus()
    process = sb.start_program(player_args=("--quit-delay-ms", "1500"))
    say("demo: the window is open on %s; close it or choose Quit when you are done"
        % os.environ["DISPLAY"])
    try:
        status = process.wait()
    except KeyboardInterrupt:
        say("demo: interrupted")
        return 130
    say("demo: the uninstaller ended with status %d" % status)
    return 0 if summary(sb) else 1


def run_headless(sb, screenshots):
    sb.start_display()
    sb.start_bus()
    os.environ.update(sb.client_environment())
    import drive
    os.makedirs(screenshots, exist_ok=True)
    for name in os.listdir(screenshots):  # the previous run's pictures
        if len(name) > 3 and name[:2].isdigit() and name[2] == "-" and name.endswith(".png"):
            os.remove(os.path.join(screenshots, name))
    process = sb.start_program(player_args=("--quit-delay-ms", "1500"),
                               stdout=open(os.path.join(sb.scratch, "program.output"), "wb"),
                               stderr=subprocess.STDOUT)
    driver = drive.Driver(alive=lambda: process.poll() is None)
    say("demo: no display; the uninstaller runs on the virtual display %s and is driven "
        "through its accessibility interface" % sb.display)
    driver.find_app(timeout=90)

    shots = []

    def shoot(title):
        name = "%02d-%s.png" % (len(shots) + 1, {
            drive.REVIEW: "review", drive.ALERT: "confirm", drive.WAITING: "waiting-for-tavio",
            drive.REMOVING: "removing", drive.COMPLETED: "completed",
            drive.INCOMPLETE: "incomplete", drive.QUIT_FAILED: "tavio-did-not-quit",
            drive.NOTHING: "nothing-to-remove"}.get(title, "screen"))
        path = os.path.join(screenshots, name)
        if sb.screenshot(path, window=drive.APP_NAME):
            shots.append(path)
            say("demo: screen “%s” → %s" % (title, path))

    review = driver.wait_for_any([drive.REVIEW, drive.NOTHING], 90)
    shoot(review.title)
    if review.title == drive.REVIEW:
        for line in review.report_lines():
            say("    " + line)
        driver.press("Uninstall…")
        driver.wait_for_title(drive.ALERT, 30)
        shoot(drive.ALERT)
        driver.press("Uninstall")
        # Every screen on the way, as it comes.
        seen = {drive.REVIEW}
        finals = (drive.COMPLETED, drive.INCOMPLETE, drive.QUIT_FAILED)
        deadline = time.monotonic() + 120
        final = None
        while final is None and time.monotonic() < deadline:
            if process.poll() is not None:
                raise drive.DriveError("the uninstaller ended on its own")
            try:
                screen = driver.screen()
            except Exception:  # noqa: BLE001 - look again
                continue
            title = screen.title
            if title and title not in seen and title != drive.ALERT:
                seen.add(title)
                shoot(title)
            if title in finals:
                final = screen
            time.sleep(0.03)
        if final is None:
            raise drive.DriveError("the run did not end within 120 s")
        for title in (drive.WAITING, drive.REMOVING):
            if title not in seen:
                say("demo: (the screen “%s” passed too quickly to be captured)" % title)
        say("demo: report:")
        for line in final.report_lines():
            say("    " + line)
        driver.press("Quit")
    else:
        for line in review.report_lines():
            say("    " + line)
        driver.press("Quit")
    status = sb.wait_program(30)
    say("demo: the uninstaller ended with status %s" % status)
    say("demo: %d screenshots in %s" % (len(shots), screenshots))
    return 0 if summary(sb) and status == 0 else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", required=True)
    parser.add_argument("--screenshots", default=None,
                        help="where the screenshots go (default: BUILD/demo-screenshots)")
    parser.add_argument("--headless", action="store_true",
                        help="use a virtual display even when $DISPLAY is set")
    args = parser.parse_args()
    screenshots = os.path.abspath(args.screenshots or os.path.join(args.build,
                                                                   "demo-screenshots"))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    signal.signal(signal.SIGHUP, lambda *_: sys.exit(129))
    sb = sandbox_module.Sandbox(args.build, prefix="tavio-demo-")
    try:
        say(SAFETY % sb.inside_home)
        say("demo: sandbox in %s" % sb.root)
        # Enough cache files that the removing screen stays up for a moment.
        sb.plant(cache_files=3000, app_size_mb=8)
        say("demo: planted a Tavio footprint (%d locations), canaries and a sealed "
            "/Applications/Tavio.app" % len(sb.planted))
        if os.environ.get("DISPLAY") and not args.headless:
            return run_with_display(sb)
        return run_headless(sb, screenshots)
    except Exception as error:  # noqa: BLE001 - say what went wrong, then clean up
        say("demo: failed: %s" % error)
        return 1
    finally:
        sb.close()
        say("demo: sandbox removed")


if __name__ == "__main__":
    sys.exit(main())
