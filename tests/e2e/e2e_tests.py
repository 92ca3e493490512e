#!/usr/bin/python3
"""End-to-end tests of the real uninstaller in a bubblewrap sandbox, on its own
Xvfb display and private D-Bus session, driven only through AT-SPI.

    e2e_tests.py --build BUILD_DIR --scripts SCRIPTS_E2E_DIR CASE

Exit status 0 when the case passes, 1 when it fails (a tool or binding that
scripts/setup.sh installs being missing included), 77 when it cannot run
here (bubblewrap cannot make a sandbox, fanotify is not available).

    e2e_tests.py --list

prints the names of the cases, one a line; CMake registers a test for each.

The cases live beside this file, a module per subject (road_cases,
screen_reader_cases, held_removal_cases, look_cases), on what harness.py
gives them. To add one, write `case_<name>(args)` in the module of its
subject and name it in CASES below.
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
         "weston", "sway", "wtype", "wl-paste", "ssh-agent", "gpg-agent")


# Every case by the name CTest gives it: the module of its subject, the
# function, and what it is called with besides the arguments. The case
# modules import the sandbox's modules, so a case's module is imported only
# when it runs; CMake reads the names (--list) without importing anything.
CASES = {
    "full_road": ("road_cases", "case_full_road", {}),
    "quit_refused": ("road_cases", "case_quit_refused", {}),
    "permission_denied": ("road_cases", "case_permission_denied", {}),
    "permission_denied_as_user": ("road_cases", "case_permission_denied_as_user", {}),
    "tampered_app": ("road_cases", "case_tampered_app", {}),
    "desktop_agents": ("road_cases", "case_desktop_agents", {}),
    "removal_refuses_close": ("held_removal_cases", "case_removal_refuses_close", {}),
    "removal_defers_sigterm": ("held_removal_cases", "case_removal_defers_sigterm", {}),
    "removal_killed_then_finished": ("held_removal_cases", "case_removal_killed_then_finished",
                                     {}),
    "waiting_allows_quit": ("road_cases", "case_waiting_allows_quit", {}),
    "empty_home": ("road_cases", "case_empty_home", {}),
    "temporary_copy": ("road_cases", "case_temporary_copy", {}),
    "screen_reader_states": ("screen_reader_cases", "case_screen_reader_states", {}),
    "screen_reader_announcements": ("screen_reader_cases", "case_screen_reader_announcements", {}),
    "follows_Dark_desktop": ("look_cases", "case_dark_desktop", {}),
    "desktop_keys": ("held_removal_cases", "case_desktop_keys", {}),
    "close_key": ("held_removal_cases", "case_close_key", {}),
    "single_instance": ("held_removal_cases", "case_single_instance", {}),
    "decorated_screenshots": ("look_cases", "case_decorated_screenshots", {}),
    # Weston's headless compositor has no seat: the program must not crash
    # on it, and the whole road is driven through AT-SPI alone.
    "Wayland_full_road": ("road_cases", "case_full_road", {"compositor": "weston"}),
    "Wayland_single_instance": ("held_removal_cases", "case_single_instance",
                                {"compositor": "weston"}),
    # sway's has one: the keys, typed through it, and the clipboard, which
    # a Wayland client may only set while it has a seat's focus.
    "Wayland_desktop_keys": ("held_removal_cases", "case_desktop_keys", {"compositor": "sway"}),
    "Wayland_permission_denied": ("road_cases", "case_permission_denied",
                                  {"compositor": "sway"}),
}


def run_case(name, args):
    module, function, options = CASES[name]
    getattr(importlib.import_module(module), function)(args, **options)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--list", action="store_true", help="print the names of the cases")
    parser.add_argument("--build")
    parser.add_argument("--scripts")
    parser.add_argument("case", nargs="?", choices=sorted(CASES))
    args = parser.parse_args()
    if args.list:
        print("\n".join(CASES))
        return 0
    if not (args.build and args.scripts and args.case):
        parser.error("a case needs --build, --scripts and its name")
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
        run_case(args.case, args)
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
