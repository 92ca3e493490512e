#!/usr/bin/python3
"""End-to-end tests of the real uninstaller in a bubblewrap sandbox, on its own
Xvfb display and private D-Bus session, driven only through AT-SPI.

    e2e_tests.py --build BUILD_DIR --scripts SCRIPTS_E2E_DIR CASE

Exit status 0 when the case passes, 1 when it fails (a tool or binding that
scripts/setup.sh installs being missing included), 77 when it cannot run
here (bubblewrap cannot make a sandbox, fanotify is not available).

The cases live beside this file, a module per subject (road_cases,
screen_reader_cases, held_removal_cases, look_cases), on what harness.py
gives them. To add one, write `case_<name>(args)` in the module of its
subject, name it in cases() below and in this folder's CMakeLists.txt (the
test e2e_every_case_registered fails until both name it).
"""

import argparse
import importlib
import signal
import subprocess
import sys
import time
import traceback

SKIP = 77

# Checked before any case runs: without one of these a case cannot work, and
# scripts/setup.sh installs them all.
TOOLS = ("bwrap", "Xvfb", "dbus-daemon", "xclip", "setpriv", "chattr", "xdotool",
         "weston", "sway", "wtype", "wl-paste")


def cases():
    """Every case by the name CTest gives it. The case modules import the
    sandbox's modules, so they are imported only once those are found."""
    from road_cases import (case_full_road, case_quit_refused, case_permission_denied,
                            case_permission_denied_as_user, case_tampered_app,
                            case_waiting_allows_quit, case_empty_home, case_temporary_copy)
    from screen_reader_cases import case_screen_reader_states, case_screen_reader_announcements
    from held_removal_cases import (case_removal_refuses_close, case_removal_defers_sigterm,
                                    case_desktop_keys, case_close_key, case_single_instance)
    from look_cases import case_dark_desktop, case_decorated_screenshots
    return {
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


def check_registered(table, registered):
    """A case written but not registered would never run; one registered but
    not written would fail only when run."""
    unregistered = sorted(set(table) - set(registered))
    unwritten = sorted(set(registered) - set(table))
    for name in unregistered:
        print("FAILED: case %s is not in tests/e2e/CMakeLists.txt" % name)
    for name in unwritten:
        print("FAILED: CMakeLists.txt names case %s, which e2e_tests.py does not have" % name)
    if unregistered or unwritten:
        return 1
    print("PASSED: all %d cases are registered" % len(table))
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--scripts", required=True)
    parser.add_argument("case", nargs="?")
    parser.add_argument("--registered", nargs="+", metavar="CASE",
                        help="check that these, the cases CTest runs, are all the cases")
    args = parser.parse_args()
    sys.path.insert(0, args.scripts)
    try:
        importlib.import_module("drive")
    # What scripts/setup.sh installs is never a reason to skip: without it
    # the case fails, saying what is missing.
    except (ImportError, ValueError) as error:
        print("FAILED: no AT-SPI bindings for /usr/bin/python3 (%s); "
              "scripts/setup.sh installs them" % error)
        return 1
    from harness import Case, Skip
    table = cases()
    if args.registered:
        return check_registered(table, args.registered)
    if args.case not in table:
        print("FAILED: no case %r; the cases are %s" % (args.case, ", ".join(sorted(table))))
        return 1
    for tool in TOOLS:
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
        table[args.case](args)
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


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    sys.exit(main())
