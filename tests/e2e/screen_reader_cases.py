"""What a screen reader finds through AT-SPI: every control's true
state and the Tab order, and the changes announced while the removal runs."""

import os
import subprocess
import time

import drive
from harness import (check, Case, OpenGate, keys, focus_window, is_button, check_tab_order,
                     tamper_app, start_for_held_removal)


def case_screen_reader_states(args):
    """Nothing can be removed (the only thing found is a copy of the app that
    fails its check). A screen reader is told the truth: "Uninstall…" is
    neither enabled nor sensitive, offers no press and pressing it anyway does
    nothing; it is still the screen's default button; "Cancel" is enabled,
    sensitive, focusable and pressable; Tab reaches only what can be used."""
    c = Case(args)
    try:
        sb = c.sandbox
        d = drive
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
        d = drive
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
    alert = driver.wait_for_title(drive.ALERT, 30)
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
    removing = driver.wait_for_title(drive.REMOVING, 60)
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
