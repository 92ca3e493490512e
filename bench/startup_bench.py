#!/usr/bin/python3
"""Start-up of the uninstaller to the first rendered frame of its review
screen, against a bare Qt Quick window with one line of text.

    startup_bench.py --build BUILD_DIR [--runs N] [--cache-files N] [--app-size-mb N]

Both programs are started the same way, alternating, in the sandbox of the
end-to-end tests: bubblewrap, a planted temporary home mounted over the home
folder (the uninstaller scans it and checks the seal of the sandbox
Tavio.app before its window appears), a private Xvfb display and D-Bus
session, the same environment. Neither keeps a QML or shader cache on disk,
so every run starts cold in that respect; the files themselves are in the
page cache after an unmeasured first run of each.

The time runs from the spawn of bubblewrap to the moment the program reports
that its scene graph has finished rendering a frame (Qt's render-loop log,
switched on for both): with the threaded render loop, the first frame that
was not skipped for want of a ready window; with the basic loop, the first
frame rendered on the GUI thread; with the software scene graph (which the
uninstaller chooses), its first frame. Peak memory is the program's high-water
resident set size (VmHWM) once that frame is on screen. Prints the medians,
the ratio of the medians (target: at most 1.5) and the peak memory of each;
the bare window is also timed with the software scene graph the uninstaller
uses, for a stricter second ratio (target: at most 1.3). Exits with 1 when
either target is missed.

The breakdown of the uninstaller's time comes from its own start-up marks
(the logging category uninstall.startup): each step of its GUI thread with
the moment it ended, and each step that runs beside them on a thread of its
own (the first scan, the desktop's colour scheme) with when it began and
ended.
"""

import argparse
import os
import select
import signal
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "scripts", "e2e"))

import sandbox as sandbox_module  # noqa: E402

TARGET = 1.5
STRICT_TARGET = 1.3
BARE_RELATIVE = "bench/startup_bare_window"


class FrameWatch:
    """Reads a program's render-loop log and tells when it has finished its
    first real frame."""

    def __init__(self):
        self.thread_started = False
        self.thread_skipped = False

    def feed(self, line):
        if "(RT) - rendering started" in line:
            self.thread_started, self.thread_skipped = True, False
        elif "(RT) - window not ready, skipping render" in line:
            self.thread_skipped = True
        elif "(RT) - rendering done" in line:
            return self.thread_started and not self.thread_skipped
        elif "[gui thread] syncAndRender: frame rendered" in line:
            return True
        elif "Frame rendered with 'software' renderloop" in line:
            return True
        return False


def environment(sb, extra=None):
    env = sb.program_environment()
    # A person's start-up, without a screen reader.
    env.pop("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", None)
    env.update({
        "QT_LOGGING_RULES": ("qt.scenegraph.renderloop.debug=true;"
                             "qt.scenegraph.time.renderloop.debug=true;"
                             "uninstall.startup.debug=true"),
        "QT_MESSAGE_PATTERN": "%{message}",
        # What the uninstaller sets for itself, given to the bare window too.
        "QML_DISK_CACHE_PATH": "/dev/null/qmlcache",
        "QT_DISABLE_SHADER_DISK_CACHE": "1",
        "MESA_SHADER_CACHE_DISABLE": "true",
    })
    env.update(extra or {})
    return env


def high_water_kib(pid):
    try:
        with open("/proc/%d/status" % pid) as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


MARK = "startup mark: "
SPAN = "startup span: "


def read_mark(line, started, marks):
    """Files one start-up mark into `marks`, as seconds since the spawn: a
    step of the main thread (name, when it ended) under its name, a step
    that ran beside them on a thread of its own (name, when it began, when
    it ended) under its name with " began" and " ended"."""
    if line.startswith(MARK):
        step, nanoseconds = line[len(MARK):].rsplit(" ", 1)
        marks[step] = int(nanoseconds) / 1e9 - started
    elif line.startswith(SPAN):
        step, began, ended = line[len(SPAN):].rsplit(" ", 2)
        marks[step + " began"] = int(began) / 1e9 - started
        marks[step + " ended"] = int(ended) / 1e9 - started


def run_once(sb, executable, extra_environment=None, timeout=120, marks=None):
    """(seconds to the first frame, peak memory in KiB) of one start. The
    uninstaller's start-up marks go into `marks` (see read_mark)."""
    env = environment(sb, extra_environment)
    watch = FrameWatch()
    started = time.monotonic()
    process = sb.start_program(player=False, program=executable, environment=env,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    fd = process.stderr.fileno()
    pending = b""
    log = []
    seconds = None
    while seconds is None:
        left = started + timeout - time.monotonic()
        if left <= 0:
            raise RuntimeError("%s: no frame within %d s; its log:\n%s"
                               % (executable, timeout, "\n".join(log[-40:])))
        ready, _, _ = select.select([fd], [], [], left)
        if not ready:
            continue
        chunk = os.read(fd, 65536)
        now = time.monotonic()
        if not chunk:
            raise RuntimeError("%s ended before its first frame (status %s); its log:\n%s"
                               % (executable, process.wait(), "\n".join(log[-40:])))
        pending += chunk
        *lines, pending = pending.split(b"\n")
        for raw in lines:
            line = raw.decode(errors="replace")
            log.append(line)
            if marks is not None:
                read_mark(line, started, marks)
            if watch.feed(line):
                seconds = now - started
                break
    pid = sb.process_inside(executable)
    peak = high_water_kib(pid) if pid else None
    stop(process, pid)
    return seconds, peak


def stop(process, pid):
    """Ends the program the way a person's logout would, reading what it
    still writes so that it never blocks on a full pipe."""
    if pid:
        try:
            os.kill(pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
    deadline = time.monotonic() + 30
    fd = process.stderr.fileno()
    while process.poll() is None and time.monotonic() < deadline:
        ready, _, _ = select.select([fd], [], [], 0.1)
        if ready and not os.read(fd, 65536):
            break
    try:
        process.wait(timeout=max(0.1, deadline - time.monotonic()))
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
    process.stderr.close()


def print_breakdown(steps, medians):
    """Where each program's time to its first frame goes: each step of its
    main thread with its median end since the spawn and what it added; then
    each step that ran beside them on a thread of its own, with its median
    beginning, end and length."""
    for name, marks in steps.items():
        print("%s, where the time goes (median end of each step since the spawn):" % name)
        beside = {step[:-len(" began")] for step in marks if step.endswith(" began")}
        spans = {step + suffix for step in beside for suffix in (" began", " ended")}
        main_steps = {step: ends for step, ends in marks.items() if step not in spans}
        previous = 0.0
        for step, ends in sorted(main_steps.items(), key=lambda item: statistics.median(item[1])):
            end = statistics.median(ends)
            print("  %-16s %5.0f ms  (+%.0f ms)" % (step, end * 1000, (end - previous) * 1000))
            previous = end
        print("  %-16s %5.0f ms  (+%.0f ms)" % ("first frame", medians[name] * 1000,
                                                (medians[name] - previous) * 1000))
        for step in sorted(beside):
            began, ended = marks[step + " began"], marks[step + " ended"]
            lengths = [end - start for start, end in zip(began, ended)]
            print("  beside them, on a thread of its own: %s from %.0f ms to %.0f ms (%.0f ms)"
                  % (step, statistics.median(began) * 1000, statistics.median(ended) * 1000,
                     statistics.median(lengths) * 1000))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", required=True)
    parser.add_argument("--runs", type=int, default=7)
    parser.add_argument("--cache-files", type=int, default=3000)
    parser.add_argument("--app-size-mb", type=int, default=8)
    args = parser.parse_args()
    if args.runs < 5:
        parser.error("--runs must be at least 5")

    bare = os.path.join(os.path.abspath(args.build), BARE_RELATIVE)
    sb = sandbox_module.Sandbox(args.build, prefix="tavio-startup-bench-")
    try:
        sb.plant(cache_files=args.cache_files, app_size_mb=args.app_size_mb)
        sb.start_display()
        sb.start_bus()
        # The bare window as Qt starts it, which is the yardstick; and, for a
        # stricter comparison, drawn with the software scene graph that the
        # uninstaller chooses for itself.
        programs = {"uninstaller": (sb.program, None),
                    "bare window": (bare, None),
                    "bare window, software": (bare, {"QT_QUICK_BACKEND": "software"})}
        print("startup_bench: %d runs each, alternating; footprint of %d cache files and a "
              "sealed %d MB Tavio.app" % (args.runs, args.cache_files, args.app_size_mb))
        for path, extra in programs.values():
            run_once(sb, path, extra)  # brings the files into the page cache
        seconds = {name: [] for name in programs}
        peaks = {name: [] for name in programs}
        steps = {}
        for run in range(args.runs):
            order = list(programs) if run % 2 == 0 else list(reversed(list(programs)))
            for name in order:
                marks = {}
                took, peak = run_once(sb, *programs[name], marks=marks)
                for step, at in marks.items():
                    steps.setdefault(name, {}).setdefault(step, []).append(at)
                seconds[name].append(took)
                if peak is not None:
                    peaks[name].append(peak)
            print("  run %d: %s" % (run + 1, ", ".join(
                "%s %.0f ms" % (name, seconds[name][-1] * 1000) for name in programs)))
        medians = {name: statistics.median(values) for name, values in seconds.items()}
        print("median to the first frame: " + ", ".join(
            "%s %.0f ms" % (name, medians[name] * 1000) for name in programs))
        print("peak memory (VmHWM at the first frame, median): " + ", ".join(
            "%s %.1f MiB" % (name, statistics.median(peaks[name]) / 1024)
            for name in programs if peaks[name]))
        print_breakdown(steps, medians)
        ratio = medians["uninstaller"] / medians["bare window"]
        print("ratio uninstaller / bare window (median of %d): %.2f (target at most %.1f)"
              % (args.runs, ratio, TARGET))
        strict = medians["uninstaller"] / medians["bare window, software"]
        print("ratio uninstaller / bare window drawn in software: %.2f (target at most %.1f)"
              % (strict, STRICT_TARGET))
        return 0 if ratio <= TARGET and strict <= STRICT_TARGET else 1
    finally:
        sb.close()


if __name__ == "__main__":
    sys.exit(main())
