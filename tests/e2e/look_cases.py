"""What the window looks like: following a dark desktop, and the
decorated screenshots made for software centres."""

import os
import subprocess
import time

import drive
from harness import check, Case, ppm_pixels


def window_pixels(sb):
    """The program's window as (width, height, rows of RGB bytes), from the
    display itself."""
    xwd = subprocess.run(["xwd", "-silent", "-display", sb.display, "-name", "Uninstall Tavio"],
                         capture_output=True, check=True, timeout=30,
                         env=sb.client_environment()).stdout
    ppm = subprocess.run(["xwdtopnm"], input=xwd, capture_output=True, check=True,
                         timeout=30).stdout
    return ppm_pixels(ppm, "the window")


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
        d = drive
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
