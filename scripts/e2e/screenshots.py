#!/usr/bin/python3
"""The screenshots that software centres show: the real program's window as
a desktop shows it, with the title bar and frame of a window manager and no
mouse pointer, on its review screen and on the result of an uninstall, in a
light and in a dark style.

    screenshots.py --build BUILD_DIR [--out DIR]

Writes review-light.png, result-light.png, review-dark.png and
result-dark.png (the names the AppStream file gives) to DIR, by default
BUILD_DIR/screenshots. Each style is one run of the built program, unchanged,
in the sandbox of the end-to-end tests (a planted throw-away home, Xvfb, a
private D-Bus session) under openbox: light with openbox's Clearlooks title
bars, dark with its Onyx ones and a desktop portal that prefers dark, which
is how the program learns that the desktop is dark. The program is driven by
keyboard alone, as a person would: Return on the review, Tab to the alert's
"Uninstall", Space; the accessibility interface is only read, to know which
screen is up. Each picture is taken from the X server, of the window
manager's frame window, with the pointer moved away from it.
"""

import argparse
import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import sandbox as sandbox_module  # noqa: E402

# The two styles: openbox's theme for the title bars, and whether the
# desktop prefers dark.
STYLES = {"light": ("Clearlooks", False), "dark": ("Onyx", True)}
TITLE = "Uninstall Tavio"
# Every tool this needs, all installed by scripts/setup.sh.
TOOLS = ("bwrap", "Xvfb", "dbus-daemon", "openbox", "xdotool", "xprop", "xwininfo", "xwd",
         "xwdtopnm", "pnmtopng", "pngtopnm")


class Shot:
    """One picture: where it is, the frame's size and where the program's
    own window (the client) lies in it, and whether a capture with the
    pointer over the window was the same as the one without."""

    def __init__(self, path, frame, client, pointer_unseen):
        self.path = path
        self.frame = frame        # (width, height)
        self.client = client      # (x, y, width, height) within the frame
        self.pointer_unseen = pointer_unseen


def missing_tools():
    return [tool for tool in TOOLS
            if subprocess.run(["sh", "-c", "command -v " + tool], capture_output=True).returncode]


def run(env, command, timeout=30):
    return subprocess.run(command, env=env, capture_output=True, check=True,
                          timeout=timeout).stdout


def window_info(env, window):
    """xwininfo's fields of a window, by name."""
    fields = {}
    for line in run(env, ["xwininfo", "-id", window]).decode().splitlines():
        name, _, value = line.strip().partition(":")
        fields[name.strip()] = value.strip()
    return fields


def geometry(env, window):
    """(x, y, width, height) on the screen."""
    info = window_info(env, window)
    return tuple(int(info[key]) for key in
                 ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height"))


def parent_of(env, window):
    """(the parent, the root) of a window."""
    lines = run(env, ["xwininfo", "-children", "-id", window]).decode().splitlines()
    value = {line.split(":")[0].strip(): line.split(":")[1].split()[0]
             for line in lines if line.strip().startswith(("Root window id", "Parent window id"))}
    return value["Parent window id"], value["Root window id"]


def frame_of(env, client):
    """The window manager's frame around the client: its ancestor that is a
    child of the root window."""
    window = client
    for _ in range(8):
        parent, root = parent_of(env, window)
        if int(parent, 16) == int(root, 16):
            return window
        window = parent
    raise RuntimeError("no frame around window %s" % client)


def client_window(env):
    found = run(env, ["xdotool", "search", "--sync", "--onlyvisible", "--name",
                      "^%s$" % TITLE], timeout=60).decode().split()
    if not found:
        raise RuntimeError("the program's window is not on the display")
    return found[0]


def capture(env, window):
    """The window's pixels as the X server has them, as a PPM image."""
    xwd = run(env, ["xwd", "-silent", "-id", window])
    return subprocess.run(["xwdtopnm"], input=xwd, capture_output=True, check=True,
                          timeout=30).stdout


def move_pointer(env, x, y):
    run(env, ["xdotool", "mousemove", "--sync", str(x), str(y)])


def away_from(frame, screen=(1280, 800)):
    """A point of the screen outside the frame."""
    x, y, width, height = frame
    for point in ((2, 2), (screen[0] - 3, 2), (2, screen[1] - 3), (screen[0] - 3, screen[1] - 3)):
        if not (x <= point[0] < x + width and y <= point[1] < y + height):
            return point
    raise RuntimeError("the frame covers the whole screen")


def settled_frame(env, client, timeout=10):
    """The frame, once its geometry and the client's stay the same for a
    moment (the window follows its screen's height, and the window manager
    redraws the title bar after each change)."""
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        frame = frame_of(env, client)
        now = (frame, geometry(env, frame), geometry(env, client))
        if now == last:
            return now
        last = now
        time.sleep(0.3)
    raise RuntimeError("the window did not settle within %d s" % timeout)


def shoot(env, client, path):
    """Saves the frame as a PNG. The pointer first rests on the window's own
    top margin, then far from the frame: both captures must be the same, or
    a pointer would show in them."""
    frame, (fx, fy, fw, fh), (cx, cy, cw, ch) = settled_frame(env, client)
    move_pointer(env, cx + 12, cy + 3)
    time.sleep(0.2)
    with_pointer = capture(env, frame)
    move_pointer(env, *away_from((fx, fy, fw, fh)))
    time.sleep(0.2)
    image = capture(env, frame)
    png = subprocess.run(["pnmtopng"], input=image, capture_output=True, check=True,
                         timeout=30).stdout
    with open(path, "wb") as out:
        out.write(png)
    return Shot(path, (fw, fh), (cx - fx, cy - fy, cw, ch), with_pointer == image)


def keys(env, *names):
    for name in names:
        run(env, ["xdotool", "key", "--clearmodifiers", name])


def uninstall_by_keyboard(env, driver, drive, client):
    """Review → Return → the alert → Tab to "Uninstall" → Space → the result."""
    run(env, ["xdotool", "windowactivate", "--sync", client])
    keys(env, "Return")
    driver.wait_for_title(drive.ALERT, 30)
    for _ in range(6):
        if driver.screen().focused_button() == "Uninstall":
            break
        keys(env, "Tab")
        time.sleep(0.2)
    if driver.screen().focused_button() != "Uninstall":
        raise RuntimeError("Tab never reached the alert's Uninstall:\n" + driver.screen().dump())
    keys(env, "space")
    done = driver.wait_for_any([drive.COMPLETED, drive.INCOMPLETE], 120)
    if done.title != drive.COMPLETED:
        raise RuntimeError("the uninstall did not complete:\n" + done.dump())


def wait_for_icon(env, client, timeout=10):
    """The window gets its icon once its first frame is on screen; the title
    bar shows it."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if b"_NET_WM_ICON(CARDINAL)" in run(env, ["xprop", "-id", client, "_NET_WM_ICON"]):
            return
        time.sleep(0.1)
    raise RuntimeError("the window has no icon after %d s" % timeout)


def shoot_style(build, out, style):
    """One run of the program in one style: its review and its result."""
    import drive
    theme, dark = STYLES[style]
    sb = sandbox_module.Sandbox(build, prefix="tavio-screenshots-")
    try:
        sb.plant()
        sb.start_display()
        sb.start_bus()
        if dark:
            sb.start_dark_portal()
        sb.start_window_manager(theme)
        env = sb.client_environment()
        os.environ.update(env)
        with open(os.path.join(sb.scratch, "program.output"), "wb") as err:
            sb.start_program(player=False, stdout=err, stderr=err)
        driver = drive.Driver(alive=lambda: sb.program_process.poll() is None)
        driver.find_app(timeout=90)
        driver.wait_for_title(drive.REVIEW, 90)
        client = client_window(env)
        wait_for_icon(env, client)
        shots = [shoot(env, client, os.path.join(out, "review-%s.png" % style))]
        uninstall_by_keyboard(env, driver, drive, client)
        shots.append(shoot(env, client, os.path.join(out, "result-%s.png" % style)))
        keys(env, "ctrl+q")
        sb.wait_program(30)
        return shots
    finally:
        sb.close()


def make(build, out):
    """Every picture, light then dark; a list of Shot. Each style runs in a
    process of its own: the accessibility library keeps the first
    accessibility bus it met for the life of the process."""
    missing = missing_tools()
    if missing:
        raise RuntimeError("missing %s; scripts/setup.sh installs them" % ", ".join(missing))
    os.makedirs(out, exist_ok=True)
    shots = []
    for style in STYLES:
        result = subprocess.run(["/usr/bin/python3", os.path.abspath(__file__), "--build", build,
                                 "--out", out, "--style", style],
                                capture_output=True, text=True, timeout=300)
        if result.returncode != 0:
            raise RuntimeError("the %s pictures failed:\n%s%s"
                               % (style, result.stdout, result.stderr))
        shots += [Shot(**record) for record in json.loads(result.stdout)]
    return shots


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", required=True)
    parser.add_argument("--out")
    parser.add_argument("--style", choices=sorted(STYLES), help=argparse.SUPPRESS)
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    out = os.path.abspath(args.out or os.path.join(build, "screenshots"))
    if args.style:
        # One style, for make(): what it took, for the parent to read.
        print(json.dumps([vars(shot) for shot in shoot_style(build, out, args.style)]))
        return 0
    for shot in make(build, out):
        print("screenshots: %s (%dx%d)" % (shot.path, shot.frame[0], shot.frame[1]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
