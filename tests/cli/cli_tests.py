#!/usr/bin/python3
"""The command line, run for real: the built `uninstall-tavio`, unchanged, in
the sandbox of the end-to-end tests (a planted throw-away home mounted over
the real one, a sandbox /Applications with a sealed Tavio.app, the rest of the
system read-only, no display), beside the quit-aware Tavio stand-in.

    cli_tests.py --build BUILD --scripts SCRIPTS --source SOURCE CASE
    cli_tests.py --list                       (the cases, one a line)

Exit status 0 when the case passed, 1 when it failed, 77 when it could not
run here (fanotify needs root)."""

import argparse
import json
import os
import pty
import select
import signal
import socket
import subprocess
import sys
import time
import traceback

CLI_RELATIVE = "src/app/Uninstall Tavio.app/Contents/MacOS/uninstall-tavio"
SKIP = 77
OPTIONS = ["--list", "--yes", "--json", "--quit-timeout", "--no-quit", "--quiet", "--help",
           "--version"]

# The end-to-end tests' sandbox and harness (checks, the fanotify gate,
# tampering and bulk files), imported once a case runs: listing the cases
# needs neither.
sandbox = harness = check = None


# The sandbox ------------------------------------------------------------

class Run:
    """One invocation's exit status and streams."""

    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err

    def json(self):
        try:
            return json.loads(self.out)
        except ValueError as error:
            raise AssertionError("not one JSON document (%s):\n%s" % (error, self.out))

    def __str__(self):
        return "exit %s\n--- stdout\n%s\n--- stderr\n%s" % (self.status, self.out, self.err)


class World:
    """A sandbox with a planted footprint, and the command line to run in it."""

    def __init__(self, args, cache_files=50):
        self.args = args
        self.sandbox = sandbox.Sandbox(args.build, prefix="tavio-cli-")
        self.cli = os.path.join(os.path.abspath(args.build), CLI_RELATIVE)
        check(os.access(self.cli, os.X_OK), "not built: " + self.cli)
        self.sandbox.program = self.cli
        self.sandbox.plant(cache_files=cache_files)

    def environment(self, **extra):
        env = {"PATH": "/usr/bin:/bin", "HOME": self.sandbox.inside_home, "TMPDIR": "/tmp",
               "XDG_RUNTIME_DIR": self.sandbox.runtime, "LANG": "C.UTF-8"}
        for name in ("USER", "LOGNAME", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                env[name] = os.environ[name]
        env.update(extra)
        return env

    def start(self, arguments, player=False, player_args=(), stdin=subprocess.DEVNULL,
              stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=None, **options):
        return self.sandbox.start_program(
            player=player, player_args=player_args, program=self.cli, program_args=arguments,
            stdin=stdin, stdout=stdout, stderr=stderr, environment=env or self.environment(),
            **options)

    def run(self, arguments, timeout=120, **options):
        process = self.start(arguments, **options)
        try:
            out, err = process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            process.kill()
            raise AssertionError("%s did not end within %d s" % (arguments, timeout))
        return Run(process.returncode, out.decode(), err.decode())

    def state(self):
        """Every file and folder of the home and the applications folder, with
        its kind, mode, owner and content's digest."""
        return sandbox.tree_digest([self.sandbox.home, self.sandbox.applications])

    def check_unchanged(self, before, what):
        changes = sandbox.difference(before, self.state())
        check(not changes, "%s changed files: %s" % (what, changes[:10]))

    def check_all_gone(self, what):
        left = self.sandbox.remaining_planted()
        check(not left, "%s left planted items: %s" % (what, left))
        passed, output = self.sandbox.check_canaries()
        check(passed, "%s touched a canary:\n%s" % (what, output))

    def close(self):
        self.sandbox.close()


def validate(document, args):
    """Checks a JSON document against the shipped schema with a real validator."""
    try:
        import jsonschema
    except ImportError:
        raise AssertionError("python3-jsonschema is missing (scripts/setup.sh installs it)")
    with open(os.path.join(args.source, "packaging/uninstall-tavio-report.schema.json")) as f:
        schema = json.load(f)
    jsonschema.Draft7Validator.check_schema(schema)
    jsonschema.validate(document, schema, cls=jsonschema.Draft7Validator)


def outcomes(document):
    return [item["outcome"] for item in document["items"]]


# The cases ---------------------------------------------------------------

def case_help_version_and_usage(args):
    w = World(args)
    try:
        helped = w.run(["--help"])
        check(helped.status == 0, "--help: %s" % helped)
        for option in OPTIONS:
            check(option in helped.out, "--help does not name %s" % option)
        for status in ("64", "70", "75"):
            check(status in helped.out, "--help does not give exit status %s" % status)
        version = w.run(["--version"])
        check(version.status == 0 and version.out.startswith("uninstall-tavio "),
              "--version: %s" % version)
        before = w.state()
        for wrong in (["--bogus"], ["--list", "extra"], ["--quit-timeout=soon"],
                      ["--quit-timeout"], ["--yes=1"], ["-y"]):
            refused = w.run(wrong)
            check(refused.status == 64, "%s: %s" % (wrong, refused))
            check("--help" in refused.err and refused.out == "",
                  "%s: no hint on standard error, or output on standard output: %s"
                  % (wrong, refused))
        w.check_unchanged(before, "usage errors")
        with open(os.path.join(args.source, "packaging/uninstall-tavio.1")) as f:
            manual = f.read().replace("\\-", "-")
        for option in OPTIONS:
            check(option in manual, "the manual page does not name %s" % option)
        for status in ("64", "70", "75", "128"):
            check(status in manual, "the manual page does not give exit status %s" % status)
    finally:
        w.close()


def case_no_display_no_qt(args):
    w = World(args)
    try:
        linked = subprocess.run(["ldd", w.cli], capture_output=True, text=True, check=True).stdout
        # What it does link is listed, so that a listing that came back
        # empty cannot pass for one without Qt.
        check("libsystemd" in linked and "libplist" in linked,
              "ldd did not list the command line's libraries:\n" + linked)
        check("Qt" not in linked, "the command line links Qt:\n" + linked)
        env = w.environment()
        for name in ("DISPLAY", "WAYLAND_DISPLAY"):
            env.pop(name, None)
        run = w.run(["--list"], env=env)
        check(run.status == 0, "--list without a display: %s" % run)
    finally:
        w.close()


def case_list_changes_nothing(args):
    w = World(args)
    try:
        before = w.state()
        listed = w.run(["--list", "--json"], player=True)
        check(listed.status == 0, "--list --json: %s" % listed)
        w.check_unchanged(before, "--list with Tavio running")
        document = listed.json()
        validate(document, args)
        check(document["dry_run"] is True and document["changed"] is False
              and document["result"] == "preview", "not a preview: %s" % listed.out)
        check("would-remove" in outcomes(document) and "removed" not in outcomes(document),
              "a preview that reads like a run: %s" % outcomes(document))
        check(document["counts"]["would_remove"] == outcomes(document).count("would-remove"),
              "counts do not match the items")
        check(listed.err == "", "output on standard error without a terminal: %r" % listed.err)
        text = w.run(["--list"])
        check(text.status == 0 and "Found" in text.out and "~/Library/Caches/io.tavio.Tavio"
              in text.out and "/Applications/Tavio.app" in text.out,
              "--list text: %s" % text)
        check("computer" in text.out and "Mac" not in text.out,
              "--list does not speak a Linux desktop's words: %s" % text.out)
        w.check_unchanged(before, "--list")
    finally:
        w.close()


def case_yes_removes_everything_then_unchanged(args):
    w = World(args)
    try:
        first = w.run(["--yes", "--json"], player=True)
        check(first.status == 0, "--yes with Tavio running: %s" % first)
        document = first.json()
        validate(document, args)
        check(document["changed"] is True and document["dry_run"] is False
              and document["result"] == "complete", "first run: %s" % first.out)
        check(set(outcomes(document)) <= {"removed", "already-gone"}
              and "removed" in outcomes(document), "first run's outcomes: %s" % outcomes(document))
        check(document["counts"]["left"] == 0, "items left: %s" % first.out)
        check(first.err == "", "progress without a terminal: %r" % first.err)
        w.check_all_gone("--yes")
        second = w.run(["--yes", "--json"])
        check(second.status == 0, "second run: %s" % second)
        again = second.json()
        validate(again, args)
        check(again["changed"] is False and again["result"] == "complete"
              and set(outcomes(again)) == {"already-gone"}, "second run: %s" % second.out)
        quiet = w.run(["--yes", "--quiet"])
        check(quiet.status == 0 and quiet.out == "" and quiet.err == "",
              "--quiet printed something: %s" % quiet)
    finally:
        w.close()


def case_items_left_exit_one(args):
    w = World(args)
    try:
        harness.tamper_app(w.sandbox)
        before_app = sandbox.tree_digest([w.sandbox.applications])
        run = w.run(["--yes", "--json"])
        check(run.status == 1, "a copy that fails its check left, yet: %s" % run)
        document = run.json()
        validate(document, args)
        left = [item for item in document["items"] if item["outcome"] == "left"]
        check(left and all(item["reason"] and item["leftovers"] for item in left),
              "items left without reasons: %s" % run.out)
        app = [item for item in left if item["category"] == "app"]
        check(app and app[0]["reason"]["code"] == "seal-not-valid",
              "the tampered copy's reason: %s" % left)
        check(document["result"] == "incomplete" and document["changed"] is True,
              "result: %s" % run.out)
        check(sandbox.tree_digest([w.sandbox.applications]) == before_app,
              "the copy that is not Tavio's was touched")
        text = w.run(["--yes"])
        check(text.status == 1 and "/Applications/Tavio.app" in text.out
              and "code signature is not valid" in text.out, "text report: %s" % text)
    finally:
        w.close()


def case_refusing_tavio_gives_75(args):
    w = World(args)
    try:
        before = w.state()
        run = w.run(["--yes", "--json", "--quit-timeout", "2"], player=True,
                    player_args=("--ignore-quit",))
        check(run.status == 75, "Tavio that will not quit: %s" % run)
        document = run.json()
        validate(document, args)
        check(document["result"] == "did-not-quit" and document["changed"] is False,
              "result: %s" % run.out)
        w.check_unchanged(before, "a run whose Tavio did not quit")
        no_quit = w.run(["--yes", "--no-quit"], player=True)
        check(no_quit.status == 75 and "Didn’t Quit" in no_quit.out, "--no-quit: %s" % no_quit)
        w.check_unchanged(before, "--no-quit")
        check(w.run(["--yes", "--no-quit", "--json"]).status == 0,
              "--no-quit with no Tavio running did not remove")
        w.check_all_gone("--no-quit without Tavio")
    finally:
        w.close()


def case_no_terminal_refuses(args):
    w = World(args)
    try:
        before = w.state()
        for arguments in (["--quiet"], ["--json"]):
            run = w.run(arguments)
            check(run.status == 64 and "--yes" in run.err and run.out == "",
                  "without a terminal and without --yes: %s" % run)
        w.check_unchanged(before, "a run with no terminal and no --yes")
    finally:
        w.close()


def run_on_terminal(w, arguments, answer, timeout=120, env=None):
    """Runs with a terminal as standard input and error, types `answer` at
    the prompt; returns (status, terminal output, standard output)."""
    master, slave = pty.openpty()
    process = w.start(arguments, stdin=slave, stderr=slave, env=env)
    os.close(slave)
    seen = b""
    deadline = time.monotonic() + timeout
    answered = False
    while time.monotonic() < deadline:
        ready, _, _ = select.select([master], [], [], 0.2)
        if ready:
            try:
                chunk = os.read(master, 4096)
            except OSError:  # EIO: every holder of the terminal has closed it
                chunk = b""
            if not chunk:
                break
            seen += chunk
        if not answered and b"[" in seen and b"/N] " in seen:
            os.write(master, answer.encode() + b"\n")
            answered = True
    out = process.stdout.read().decode()
    os.close(master)
    process.wait(timeout=timeout)
    return process.returncode, seen.decode(errors="replace"), out


def case_terminal_asks(args):
    w = World(args)
    try:
        before = w.state()
        status, terminal, out = run_on_terminal(w, ["--json"], "n")
        check(status == 0, "answered no: exit %s\n%s" % (status, terminal))
        check("Will be removed" in terminal and "[y/N]" in terminal,
              "no review and question on the terminal:\n" + terminal)
        w.check_unchanged(before, "a run answered no")
        status, terminal, out = run_on_terminal(w, ["--json"], "y")
        check(status == 0, "answered yes: exit %s\n%s" % (status, terminal))
        check("Removing (1 of " in terminal, "no progress on the terminal:\n" + terminal)
        check(json.loads(out)["changed"] is True and "Removing" not in out,
              "standard output is not the report alone:\n" + out)
        w.check_all_gone("a run answered yes")
    finally:
        w.close()


def case_german(args):
    w = World(args)
    try:
        harness.tamper_app(w.sandbox)
        german = w.environment(LANGUAGE="de")
        listed = w.run(["--list"], env=german)
        check(listed.status == 0 and "Einstellungen" in listed.out and "Gefunden" in listed.out
              and "Übersprungen" in listed.out and "Vorschau" in listed.out,
              "--list in German: %s" % listed)
        document = w.run(["--list", "--json"], env=german).json()
        validate(document, args)
        app = [item for item in document["items"] if item["category"] == "app"
               and item["outcome"] == "would-keep"]
        check(app and app[0]["reason"]["code"] == "seal-not-valid"
              and app[0]["reason"]["text"].startswith("Übersprungen"),
              "German reason with its stable code: %s" % document["items"])
        status, terminal, _ = run_on_terminal(w, ["--quiet"], "n", env=german)
        check(status == 0 and "[j/N]" in terminal, "German question:\n" + terminal)
        # "j" is yes in German: the run goes ahead, and leaves the copy that
        # fails its check.
        status, terminal, _ = run_on_terminal(w, ["--json"], "j", env=german)
        check(status == 1 and "Wird entfernt" in terminal,
              "German yes did not remove: exit %s\n%s" % (status, terminal))
    finally:
        w.close()


def wait_for_process(w, timeout=60):
    """The command line's process id, once it runs in the sandbox."""
    return harness.wait_until(lambda: w.sandbox.process_inside(w.cli), timeout,
                              "the command line to start")


def case_signal_before_removal(args):
    w = World(args)
    try:
        before = w.state()
        process = w.start(["--yes", "--json", "--quit-timeout", "60"], player=True,
                          player_args=("--ignore-quit",))
        pid = wait_for_process(w)
        # Into the wait for Tavio to quit, or (in a slow build) still in the
        # scan: either way nothing has been removed, and that is the report.
        time.sleep(3)
        os.kill(pid, signal.SIGINT)
        out, err = process.communicate(timeout=30)
        check(process.returncode == 128 + signal.SIGINT,
              "SIGINT while waiting for Tavio: exit %s\n%s" % (process.returncode, err.decode()))
        document = json.loads(out.decode())
        validate(document, args)
        check(document["result"] == "cancelled" and document["changed"] is False,
              "report of a stopped run: %s" % out.decode())
        w.check_unchanged(before, "a run stopped by SIGINT")
    finally:
        w.close()


def case_signal_during_removal(args):
    w = World(args)
    try:
        bulk = harness.add_bulk(w.sandbox, 100)
        with harness.OpenGate(bulk) as gate:
            process = w.start(["--yes", "--json"])
            gate.wait_opened(120)
            pid = wait_for_process(w)
            os.kill(pid, signal.SIGINT)
            os.kill(pid, signal.SIGTERM)
            time.sleep(0.5)
            check(process.poll() is None, "a signal cut the removal short")
            gate.release()
            out, err = process.communicate(timeout=120)
        check(process.returncode == 0,
              "signals during removal: exit %s\n%s" % (process.returncode, err.decode()))
        document = json.loads(out.decode())
        validate(document, args)
        check(document["result"] == "complete" and document["changed"] is True,
              "the report after signals during removal: %s" % out.decode())
        w.check_all_gone("a run signalled during removal")
    finally:
        w.close()


def receive(server, timeout=10):
    ready, _, _ = select.select([server], [], [], timeout)
    check(ready, "nothing reached the log socket")
    return server.recv(65536).decode(errors="replace")


def case_system_log(args):
    w = World(args)
    scratch = w.sandbox.scratch
    try:
        journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        journal_path = os.path.join(scratch, "journal.socket")
        journal.bind(journal_path)
        os.chmod(journal_path, 0o666)
        run = w.run(["--yes", "--json"], player=True, extra_options=(
            "--tmpfs", "/run/systemd", "--bind", journal_path, "/run/systemd/journal/socket"))
        check(run.status == 0, "run with a journal: %s" % run)
        entry = dict(line.split("=", 1) for line in receive(journal).splitlines() if "=" in line)
        check(entry.get("SYSLOG_IDENTIFIER") == "uninstall-tavio"
              and entry.get("RESULT") == "changed" and len(entry.get("MESSAGE_ID", "")) == 32
              and entry.get("LEFTOVERS") == "0" and "PRIORITY" in entry
              and entry.get("TAVIO_ACCOUNT"), "journal entry: %s" % entry)
        journal.close()
        syslog = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        syslog_path = os.path.join(scratch, "log.socket")
        syslog.bind(syslog_path)
        os.chmod(syslog_path, 0o666)
        again = w.run(["--yes"], extra_binds=((syslog_path, "/dev/log"),))
        check(again.status == 0, "run without a journal: %s" % again)
        line = receive(syslog)
        check("uninstall-tavio" in line and "RESULT=unchanged" in line,
              "syslog line: %r" % line)
        syslog.close()
        listed = w.run(["--list"], extra_binds=((syslog_path, "/dev/log"),))
        check(listed.status == 0, "--list: %s" % listed)
    finally:
        w.close()


CASES = {name[len("case_"):]: function for name, function in sorted(globals().items())
         if name.startswith("case_")}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build")
    parser.add_argument("--scripts")
    parser.add_argument("--source")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("case", nargs="?")
    args = parser.parse_args()
    if args.list:
        print("\n".join(CASES))
        return 0
    global sandbox, harness, check
    sys.path[:0] = [args.scripts, os.path.join(args.source, "tests/e2e")]
    import sandbox
    import harness
    check = harness.check
    try:
        CASES[args.case](args)
    except harness.Skip as skip:
        print("skipped: %s" % skip)
        return SKIP
    except Exception:
        traceback.print_exc()
        return 1
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
