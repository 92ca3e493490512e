#!/usr/bin/python3
"""The Ansible role in packaging/ansible, run the way a fleet runs it
(ansible-playbook with become), on a sandbox machine of the test's own.

    fleet_tests.py --build BUILD_DIR [--ansible PACKAGING_ANSIBLE_DIR]
                   [--command UNINSTALLER] CASE

Exit status 0 when the case passes, 1 when it fails. A tool that
scripts/setup.sh installs being missing is a failure that names it: these
cases are never skipped.

    fleet_tests.py --list

prints the names of the cases, one a line; CMake registers a test for each.

The sandbox machine is a bubblewrap mount namespace, entered as root: the
system read-only, a private /tmp, /dev and /proc (its own process ids), and
copies of /etc/passwd, /etc/group and /etc/shadow that add throw-away
accounts, mounted over the real files inside the sandbox only. /home and
/Applications are folders of the sandbox, so the accounts' homes exist only
there; no account is ever added to the machine itself, and the whole sandbox
folder goes when the case ends.

Two accounts get a planted Tavio footprint (with canaries that no removal may
touch), each with its own sealed Tavio.app in ~/Applications. Two more, with
uids just outside the range the role scans (999 and 60000, or the nearest
free ones), get one too: the role must never touch them.
"""

import argparse
import grp
import json
import os
import pwd
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
# The end-to-end sandbox's helpers: the read-only system view, /tmp mount
# points, and records of trees.
sys.path.insert(0, os.path.normpath(os.path.join(HERE, "../../scripts/e2e")))
import sandbox  # noqa: E402
COMMAND_RELATIVE = "src/app/Uninstall Tavio.app/Contents/MacOS/uninstall-tavio"
PLAYBOOK = "uninstall-tavio.yml"
HOST = "localhost"

# Task names of the role, as the JSON callback reports them.
SCAN_TASK = "Scan each person's account"
REMOVE_TASK = "Remove Tavio from each account"
FAIL_TASK = "Fail for each account that still holds Tavio"

# What the role scans: people's accounts.
PEOPLE_UIDS = range(1000, 60000)

# Checked before a case runs; scripts/setup.sh installs them all.
TOOLS = ("bwrap", "sudo", "setpriv", "ansible-playbook")
LINT_TOOL = "ansible-lint"

PLAYBOOK_TIMEOUT = 300

# ansible-core's own callbacks have no machine-readable one (a JSON callback
# comes only with a collection), so the sandbox gets this one: per play, per
# task and per host the result as the module gave it, then the statistics,
# as one line on standard output.
REPORT_MARK = "FLEET-REPORT "
REPORT_CALLBACK = '''
import json
from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "stdout"
    CALLBACK_NAME = "fleet_report"

    def __init__(self):
        super().__init__()
        self.plays = []

    def v2_playbook_on_play_start(self, play):
        self.plays.append({"play": {"name": play.get_name()}, "tasks": []})

    def v2_playbook_on_task_start(self, task, is_conditional):
        self.plays[-1]["tasks"].append({"task": {"name": task.name}, "hosts": {}})

    def _record(self, result):
        self.plays[-1]["tasks"][-1]["hosts"][result._host.get_name()] = dict(result._result)

    def v2_runner_on_ok(self, result):
        self._record(result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self._record(result)

    def v2_runner_on_skipped(self, result):
        self._record(result)

    def v2_runner_on_unreachable(self, result):
        self._record(result)

    def v2_playbook_on_stats(self, stats):
        summary = {host: stats.summarize(host) for host in sorted(stats.processed)}
        self._display.display(%r + json.dumps({"plays": self.plays, "stats": summary},
                                                default=str))
''' % REPORT_MARK


class Failure(AssertionError):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


# The accounts -----------------------------------------------------------


def _taken():
    """Names and ids the machine's own user and group databases use (the
    files, and whatever else the name service adds)."""
    names, ids = set(), set()
    for path in ("/etc/passwd", "/etc/group"):
        with open(path) as database:
            for line in database:
                fields = line.rstrip("\n").split(":")
                if len(fields) >= 3 and fields[2].isdigit():
                    names.add(fields[0])
                    ids.add(int(fields[2]))
    names.update(e.pw_name for e in pwd.getpwall())
    names.update(e.gr_name for e in grp.getgrall())
    ids.update(e.pw_uid for e in pwd.getpwall())
    ids.update(e.gr_gid for e in grp.getgrall())
    return names, ids


def _known_id(number):
    for lookup in (pwd.getpwuid, grp.getgrgid):
        try:
            lookup(number)
            return True
        except KeyError:
            pass
    return False


def _free_id(taken, candidates):
    for number in candidates:
        if number not in taken and not _known_id(number):
            taken.add(number)
            return number
    raise Failure("no free user id among %s" % candidates)


def _free_name(taken, base):
    name, n = base, 1
    while name in taken:
        n += 1
        name = "%s%d" % (base, n)
    taken.add(name)
    return name


class Account:
    def __init__(self, name, uid, homes):
        self.name = name
        self.uid = uid
        self.home_inside = "/home/" + name
        self.home = os.path.join(homes, name)          # where the sandbox keeps it
        self.applications = os.path.join(self.home, "Applications")
        self.manifest = None
        self.planted = []


# The sandbox machine ------------------------------------------------------


class Machine:
    def __init__(self, build, ansible_dir, command):
        self.build = build
        self.ansible_dir = ansible_dir
        self.command = command
        self.footprint_tool = os.path.join(build, "tools/footprint/tavio-footprint")
        self.player_tool = os.path.join(build, "tools/fake-tavio/tavio-player")
        # 0700: the copy of /etc/shadow holds the machine's own password hashes.
        self.root = tempfile.mkdtemp(prefix="tavio-fleet-")
        self.etc = os.path.join(self.root, "etc")
        self.homes = os.path.join(self.root, "home")
        self.applications = os.path.join(self.root, "Applications")
        self.tmp = os.path.join(self.root, "tmp")
        self.scratch = os.path.join(self.root, "scratch")
        os.mkdir(self.etc, 0o700)
        os.mkdir(self.scratch, 0o700)
        for folder in (self.homes, self.applications):
            os.mkdir(folder)
            os.chmod(folder, 0o755)
        self.empty = os.path.join(self.root, "empty")
        os.mkdir(self.empty, 0o755)
        self.var_tmp = os.path.join(self.root, "var-tmp")
        for folder in (self.tmp, self.var_tmp):
            os.mkdir(folder)
            os.chmod(folder, 0o1777)
        self.accounts = []
        self.decoys = []
        self._make_accounts()

    def _make_accounts(self):
        names, ids = _taken()
        people = [Account(_free_name(names, "tavio-fleet-" + which),
                          _free_id(ids, range(42000, 60000)), self.homes)
                  for which in ("ana", "ben")]
        decoys = [Account(_free_name(names, "tavio-decoy-low"),
                          _free_id(ids, range(999, 99, -1)), self.homes),
                  Account(_free_name(names, "tavio-decoy-high"),
                          _free_id(ids, range(60000, 65000)), self.homes)]
        everyone = people + decoys
        passwd = "".join("%s:x:%d:%d:Tavio fleet test:%s:/bin/sh\n"
                         % (a.name, a.uid, a.uid, a.home_inside) for a in everyone)
        group = "".join("%s:x:%d:\n" % (a.name, a.uid) for a in everyone)
        shadow = "".join("%s:!:19000:0:99999:7:::\n" % a.name for a in everyone)
        for name, added, mode in (("passwd", passwd, 0o644), ("group", group, 0o644),
                                  ("shadow", shadow, 0o640)):
            copy = os.path.join(self.etc, name)
            shutil.copyfile("/etc/" + name, copy)
            os.chmod(copy, mode)
            with open(copy, "a") as out:
                out.write(added)
        os.chown(os.path.join(self.etc, "shadow"), 0, os.stat("/etc/shadow").st_gid)
        self.accounts, self.decoys = people, decoys
        for account in everyone:
            os.mkdir(account.home, 0o700)
        # The machine's own people keep a home too (an empty one, theirs),
        # so that the role scans each of them as it would on a real host.
        for entry in pwd.getpwall():
            if (entry.pw_uid in PEOPLE_UIDS and entry.pw_dir.startswith("/home/")
                    and "/" not in entry.pw_dir[len("/home/"):]):
                folder = os.path.join(self.homes, entry.pw_dir[len("/home/"):])
                if not os.path.exists(folder):
                    os.mkdir(folder, 0o700)
                    os.chown(folder, entry.pw_uid, entry.pw_gid)

    def plant(self, account):
        """The footprint and canaries, handed to the account."""
        for path in (self.footprint_tool, self.player_tool):
            check(os.access(path, os.X_OK), "not built: " + path)
        account.manifest = os.path.join(self.scratch, account.name + ".manifest")
        out = subprocess.run(
            [self.footprint_tool, "--home", account.home, "--applications",
             account.applications, "--player", self.player_tool, "--manifest",
             account.manifest, "--cache-files", "40", "--app-size-mb", "1"],
            check=True, capture_output=True, text=True, timeout=300).stdout
        account.planted = [line[len("planted: "):] for line in out.splitlines()
                           if line.startswith("planted: ")]
        check(account.planted, "the footprint tool planted nothing: " + out)
        for folder, dirs, files in os.walk(account.home):
            for name in [folder] + [os.path.join(folder, n) for n in dirs + files]:
                os.lchown(name, account.uid, account.uid)

    def plant_all(self):
        for account in self.accounts + self.decoys:
            self.plant(account)

    def canaries(self, account):
        result = subprocess.run([self.footprint_tool, "--check-canaries", "--home", account.home,
                                 "--applications", account.applications, "--manifest",
                                 account.manifest], capture_output=True, text=True, timeout=120)
        return result.returncode == 0, (result.stdout + result.stderr).strip()

    # Running ansible in it ----------------------------------------------

    def _bwrap(self):
        command = sandbox.read_only_system(own=("home", "Applications"))
        command += ["--bind", self.tmp, "/tmp",
                    # ansible's place for what an account it becomes must read
                    "--bind", self.var_tmp, "/var/tmp",
                    "--bind", self.homes, "/home",
                    "--bind", self.applications, "/Applications"]
        # The uninstaller reports each run to the system log: the journal's
        # socket would let it through to the machine's own log, so the
        # sandbox shows an empty folder there (and /dev/log is its own).
        if os.path.isdir("/run/systemd/journal"):
            command += ["--ro-bind", self.empty, "/run/systemd/journal"]
        for name in ("passwd", "group", "shadow"):
            command += ["--ro-bind", os.path.join(self.etc, name), "/etc/" + name]
        # Anything under /tmp would be hidden by the sandbox's own /tmp: the
        # uninstaller's bundle (or its folder) and the role are shown
        # read-only at their own paths.
        shown = os.path.dirname(self.command)
        if shown.endswith("/Contents/MacOS") and shown[:-len("/Contents/MacOS")].endswith(".app"):
            shown = shown[:-len("/Contents/MacOS")]
        for folder in (shown, self.ansible_dir):
            if folder.startswith("/tmp/") and os.path.isdir(folder):
                sandbox.mount_point_in_tmp(self.tmp, folder)
                command += ["--ro-bind", folder, folder]
        return command + ["--chdir", "/"]

    def _environment(self):
        config = os.path.join(self.tmp, "ansible.cfg")
        if not os.path.exists(config):
            with open(config, "w") as out:
                out.write("[defaults]\n")
            os.chmod(config, 0o644)
        callbacks = os.path.join(self.tmp, "callbacks")
        if not os.path.isdir(callbacks):
            os.mkdir(callbacks, 0o755)
            with open(os.path.join(callbacks, "fleet_report.py"), "w") as out:
                out.write(REPORT_CALLBACK)
        return {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                "HOME": "/tmp/root", "LANG": "C.UTF-8", "TMPDIR": "/tmp",
                "ANSIBLE_CONFIG": "/tmp/ansible.cfg",
                "ANSIBLE_CALLBACK_PLUGINS": "/tmp/callbacks",
                "ANSIBLE_LOCAL_TEMP": "/tmp/root/.ansible/local",
                "ANSIBLE_REMOTE_TMP": "/tmp/root/.ansible/tmp",
                "ANSIBLE_NOCOLOR": "1",
                "ANSIBLE_RETRY_FILES_ENABLED": "0",
                "ANSIBLE_PYTHON_INTERPRETER": "/usr/bin/python3"}

    @staticmethod
    def _reachable(path):
        """Whether an account that owns none of the folders on the way may
        run the program (what is under /tmp is shown through open folders)."""
        if path.startswith("/tmp/"):
            return True
        folder = os.path.dirname(path)
        while folder != "/":
            if not os.stat(folder).st_mode & stat.S_IXOTH:
                return False
            folder = os.path.dirname(folder)
        return bool(os.stat(path).st_mode & stat.S_IXOTH)

    def run_inside(self, argv, player_for=None, timeout=PLAYBOOK_TIMEOUT):
        """Runs argv as root in the sandbox machine. With player_for, a Tavio
        that refuses to quit runs first in that account, from its app copy."""
        script = "set -e\nmkdir -p -m 700 /tmp/root\n"
        if player_for is not None:
            script += ('rm -f /tmp/.player-ready\n'
                       'setpriv --reuid=%d --regid=%d --clear-groups -- "%s" --ignore-quit '
                       '--exit-with-parent --ready-file /tmp/.player-ready >/dev/null &\n'
                       'n=0; while [ ! -e /tmp/.player-ready ]; do\n'
                       '  n=$((n+1)); [ $n -lt 600 ] || { echo "player never ready" >&2; exit 97; }\n'
                       '  sleep 0.05; done\n'
                       % (player_for.uid, player_for.uid,
                          player_for.home_inside + "/Applications/Tavio.app/Contents/MacOS/Tavio"))
        script += 'set +e\n"$@"\nexit $?\n'
        command = self._bwrap() + ["/bin/sh", "-c", script, "sh"] + argv
        process = subprocess.Popen(command, env=self._environment(), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                   start_new_session=True)
        try:
            out, err = process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            out, err = process.communicate()
            raise Failure("timed out after %d s: %s\n%s" % (timeout, " ".join(argv), err[-4000:]))
        return process.returncode, out, err

    def playbook(self, extra_vars=None, check_mode=False, player_for=None):
        """One ansible-playbook run on this host; (exit status, JSON report, stderr)."""
        check(os.access(self.command, os.X_OK), "not built: " + self.command)
        check(self._reachable(self.command),
              "the accounts cannot reach %s: a folder on its way is closed to others"
              % self.command)
        variables = {"uninstall_tavio_command": self.command}
        variables.update(extra_vars or {})
        argv = ["env", "ANSIBLE_STDOUT_CALLBACK=fleet_report", "ansible-playbook", "-i", HOST + ",",
                "-c", "local", "-e", json.dumps(variables),
                os.path.join(self.ansible_dir, PLAYBOOK)]
        if check_mode:
            argv.append("--check")
        status, out, err = self.run_inside(argv, player_for=player_for)
        lines = [line for line in out.splitlines() if line.startswith(REPORT_MARK)]
        try:
            report = json.loads(lines[-1][len(REPORT_MARK):])
        except (IndexError, ValueError):
            raise Failure("ansible-playbook (status %d) gave no JSON report:\n%s\n%s"
                          % (status, out[-4000:], err[-4000:]))
        return status, report, err

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)


# Reading ansible's JSON report ------------------------------------------------


def task_result(report, name):
    """This host's result of the task of that name, or None when it did not run."""
    for play in report.get("plays", []):
        for task in play.get("tasks", []):
            if task["task"]["name"] == name:
                return task["hosts"].get(HOST)
    return None


def item_results(report, name):
    """{item: result} of a looped task (empty when it was skipped or had no items)."""
    result = task_result(report, name) or {}
    # A loop over results has them as items: their label names the account.
    return {r.get("_ansible_item_label", r.get("item")): r
            for r in result.get("results", []) if "item" in r}


def stats(report):
    return report["stats"][HOST]


def changed_tasks(report):
    names = []
    for play in report.get("plays", []):
        for task in play.get("tasks", []):
            if (task["hosts"].get(HOST) or {}).get("changed"):
                names.append(task["task"]["name"])
    return names


def summary(status, report, err):
    return "ansible-playbook exit status %d, stats %s\nstderr: %s\nreport: %s" % (
        status, json.dumps(report.get("stats")), err[-2000:], json.dumps(report)[-6000:])


# Looking at the accounts ------------------------------------------------------


tree_digest = sandbox.tree_digest


def difference(before, after):
    return "\n".join(sandbox.difference(before, after)[:40])


def check_untouched(machine, accounts, before, what):
    after = tree_digest([p for a in accounts for p in a.planted])
    check(before == after, "%s: the footprint changed:\n%s" % (what, difference(before, after)))
    for account in accounts:
        ok, output = machine.canaries(account)
        check(ok, "%s: canaries of %s: %s" % (what, account.name, output))


def check_removed(machine, status, report, err):
    """A run that removed Tavio from both accounts and from no one else."""
    context = summary(status, report, err)
    check(status == 0, "the run failed:\n" + context)
    check(stats(report)["failures"] == 0 and stats(report)["unreachable"] == 0,
          "a task failed:\n" + context)
    scanned = item_results(report, SCAN_TASK)
    for account in machine.accounts:
        check(account.name in scanned, "%s was not scanned:\n%s" % (account.name, context))
    for account in machine.decoys:
        check(account.name not in scanned,
              "%s (uid %d) is outside the people's range but was scanned:\n%s"
              % (account.name, account.uid, context))
    for name in scanned:
        uid = pwd_in_sandbox(machine, name)
        check(uid in PEOPLE_UIDS, "scanned %s (uid %s), outside 1000-59999" % (name, uid))
    removed = item_results(report, REMOVE_TASK)
    check(sorted(removed) == sorted(a.name for a in machine.accounts),
          "removal ran for %s, not for exactly the two planted accounts:\n%s"
          % (sorted(removed), context))
    for account in machine.accounts:
        result = removed[account.name]
        check(result.get("changed") is True, "%s: not reported changed:\n%s" % (account.name, context))
        document = json.loads(result["stdout"])
        check(document["result"] == "complete" and document["changed"] is True
              and document["account"] == account.name,
              "%s: the uninstaller says %s" % (account.name, result["stdout"]))
        left = [p for p in account.planted if os.path.lexists(p)]
        check(not left, "%s: still there after the run: %s" % (account.name, left))
        ok, output = machine.canaries(account)
        check(ok, "%s: canaries: %s" % (account.name, output))


def pwd_in_sandbox(machine, name):
    with open(os.path.join(machine.etc, "passwd")) as database:
        for line in database:
            fields = line.split(":")
            if fields[0] == name:
                return int(fields[2])
    return None


# The cases ------------------------------------------------------------------------


def case_first_run(machine):
    machine.plant_all()
    decoys = tree_digest([p for a in machine.decoys for p in a.planted])
    status, report, err = machine.playbook()
    check_removed(machine, status, report, err)
    check_untouched(machine, machine.decoys, decoys, "the accounts outside the range")


def case_second_run(machine):
    machine.plant_all()
    status, report, err = machine.playbook()
    check_removed(machine, status, report, err)
    homes = tree_digest([machine.homes, machine.applications])
    # Found again, nothing is left to run on; named, the uninstaller runs and
    # must say that it changed nothing.
    for named in (None, [a.name for a in machine.accounts]):
        extra = {"uninstall_tavio_accounts": named} if named else {}
        status, report, err = machine.playbook(extra_vars=extra)
        context = summary(status, report, err)
        what = "the second run" + (" with the accounts named" if named else "")
        check(status == 0, "%s failed:\n%s" % (what, context))
        check(stats(report)["changed"] == 0 and not changed_tasks(report),
              "%s changed %s:\n%s" % (what, changed_tasks(report), context))
        check(stats(report)["failures"] == 0, "%s failed a task:\n%s" % (what, context))
        ran = item_results(report, REMOVE_TASK)
        check(sorted(ran) == sorted(named or []),
              "%s ran the uninstaller for %s" % (what, sorted(ran)))
        for name, result in ran.items():
            check(result.get("rc") == 0 and json.loads(result["stdout"])["changed"] is False,
                  "%s: %s: %s" % (what, name, result.get("stdout")))
        after = tree_digest([machine.homes, machine.applications])
        check(homes == after, "%s changed the homes:\n%s" % (what, difference(homes, after)))


def case_check_mode(machine):
    machine.plant_all()
    before = tree_digest([machine.homes, machine.applications])
    status, report, err = machine.playbook(check_mode=True)
    context = summary(status, report, err)
    check(status == 0, "the check run failed:\n" + context)
    check(stats(report)["failures"] == 0, "a task failed:\n" + context)
    would = item_results(report, REMOVE_TASK)
    check(sorted(would) == sorted(a.name for a in machine.accounts),
          "the check run looked at %s, not at the two planted accounts:\n%s"
          % (sorted(would), context))
    for account in machine.accounts:
        result = would[account.name]
        check(result.get("changed") is True,
              "%s: the check run does not say it would change:\n%s" % (account.name, context))
        document = json.loads(result["stdout"])
        check(document["dry_run"] is True and document["counts"]["would_remove"] > 0,
              "%s: not a preview: %s" % (account.name, result["stdout"]))
    check(REMOVE_TASK in changed_tasks(report), "no task reported a change:\n" + context)
    after = tree_digest([machine.homes, machine.applications])
    check(before == after, "the check run changed the homes:\n" + difference(before, after))


def case_tavio_running(machine):
    machine.plant_all()
    running, other = machine.accounts
    before = tree_digest([p for a in machine.accounts for p in a.planted])
    # The account is named: the other one, not named, must be left alone as well.
    status, report, err = machine.playbook(
        extra_vars={"uninstall_tavio_accounts": [running.name], "uninstall_tavio_quit_timeout": 3},
        player_for=running)
    context = summary(status, report, err)
    check(status != 0, "the run succeeded while Tavio would not quit:\n" + context)
    check(stats(report)["failures"] >= 1, "the host did not fail:\n" + context)
    scanned = [name for name, result in item_results(report, SCAN_TASK).items()
               if not result.get("skipped")]
    check(not scanned, "%s scanned although an account was named:\n%s" % (scanned, context))
    failed = item_results(report, FAIL_TASK)
    check(running.name in failed and failed[running.name].get("failed") is True,
          "no failure for %s:\n%s" % (running.name, context))
    message = failed[running.name].get("msg", "")
    check("Tavio is running, retry later" in message and running.name in message,
          "the failure says %r" % message)
    check(sorted(failed) == [running.name], "failures for %s" % sorted(failed))
    removal = item_results(report, REMOVE_TASK)
    check(sorted(removal) == [running.name], "removal ran for %s" % sorted(removal))
    check(removal[running.name]["rc"] == 75 and not removal[running.name].get("changed"),
          "%s: %s" % (running.name, json.dumps(removal[running.name])))
    check_untouched(machine, [running, other], before, "while Tavio ran")


def case_syntax_check(machine):
    status, out, err = machine.run_inside(
        ["ansible-playbook", "--syntax-check", "-i", HOST + ",",
         os.path.join(machine.ansible_dir, PLAYBOOK)], timeout=120)
    check(status == 0, "the syntax check failed (%d):\n%s\n%s" % (status, out, err))
    check("WARNING" not in out + err, "the syntax check warns:\n%s\n%s" % (out, err))


def case_lint(machine):
    # Debian 12 ships ansible-lint: without it this fails, never skips.
    check(shutil.which(LINT_TOOL), "%s is not installed; scripts/setup.sh installs it" % LINT_TOOL)
    status, out, err = machine.run_inside(
        ["sh", "-c", 'cd "$1" && exec ansible-lint --offline --strict --nocolor -p', "sh",
         machine.ansible_dir], timeout=300)
    check(status == 0, "ansible-lint is not clean (%d):\n%s\n%s" % (status, out, err[-4000:]))


CASES = {
    "first_run": case_first_run,
    "second_run": case_second_run,
    "check_mode": case_check_mode,
    "tavio_running": case_tavio_running,
    "syntax_check": case_syntax_check,
    "lint": case_lint,
}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--list", action="store_true", help="print the names of the cases")
    parser.add_argument("--build")
    parser.add_argument("--ansible", default=os.path.normpath(
        os.path.join(HERE, "../../packaging/ansible")))
    parser.add_argument("--command", help="the uninstaller's command line (default: the built one)")
    parser.add_argument("case", nargs="?", choices=sorted(CASES))
    args = parser.parse_args()
    if args.list:
        print("\n".join(CASES))
        return 0
    if not (args.build and args.case):
        parser.error("a case needs --build and its name")
    if os.geteuid() != 0:
        print("FAILED: the fleet cases run as root (the sandbox machine mounts its own "
              "user database and switches to its accounts)")
        return 1
    for tool in TOOLS:
        if shutil.which(tool) is None:
            print("FAILED: %s is not installed; scripts/setup.sh installs it" % tool)
            return 1
    build = os.path.abspath(args.build)
    command = os.path.abspath(args.command or os.path.join(build, COMMAND_RELATIVE))
    ansible_dir = os.path.abspath(args.ansible)
    started = time.monotonic()
    machine = None
    try:
        machine = Machine(build, ansible_dir, command)
        CASES[args.case](machine)
    except Exception:  # noqa: BLE001 - every failure is reported the same way
        traceback.print_exc()
        print("FAILED: %s after %.1f s" % (args.case, time.monotonic() - started))
        return 1
    finally:
        if machine is not None:
            machine.close()
    print("PASSED: %s in %.1f s" % (args.case, time.monotonic() - started))
    return 0


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    sys.exit(main())
