"""A throw-away account for the real uninstaller, and the processes around it.

A Sandbox is a fresh temporary folder holding a home (with a planted Tavio
footprint and canaries), an applications folder (with a sealed Tavio.app), a
runtime folder for the buses and a temporary folder. The uninstaller runs
inside bubblewrap: a mount namespace in which the sandbox home is mounted over
the user's real home folder (the program finds its home through the user
database), the sandbox applications folder appears as /Applications, and
every other top-level folder of the system is mounted read-only. The program
itself is the built binary, unchanged.

Everything started here (Xvfb, the private D-Bus session, bubblewrap and what
runs in it) is started in its own process group and stopped by that group's
id in close(); every wait has a deadline.
"""

import hashlib
import os
import pwd
import select
import shutil
import signal
import stat
import subprocess
import tempfile
import time

IDENTIFIER = "io.tavio.Tavio"
PROGRAM_RELATIVE = "src/app/Uninstall Tavio.app/Contents/MacOS/Uninstall Tavio"
BUNDLE_RELATIVE = "src/app/Uninstall Tavio.app"


# The private session bus when the program runs as another user: like the
# standard session bus, but root may connect too.
SESSION_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <standard_session_servicedirs/>
  <policy context="default">
    <allow user="root"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


# A desktop portal that answers only the colour-scheme question, with "prefer
# dark", wrapped in two variants as older portals send it.
DARK_PORTAL = r"""
from gi.repository import Gio, GLib
XML = ('<node><interface name="org.freedesktop.portal.Settings"><method name="Read">'
       '<arg type="s" direction="in"/><arg type="s" direction="in"/>'
       '<arg type="v" direction="out"/></method></interface></node>')
info = Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0]
def call(connection, sender, path, interface, method, parameters, invocation):
    if tuple(parameters.unpack()) == ("org.freedesktop.appearance", "color-scheme"):
        inner = GLib.Variant("v", GLib.Variant("u", 1))
        invocation.return_value(GLib.Variant("(v)", (inner,)))
    else:
        invocation.return_dbus_error("org.freedesktop.portal.Error.NotFound", "no such key")
def bus_acquired(connection, name):
    connection.register_object("/org/freedesktop/portal/desktop", info, call, None, None)
def name_acquired(connection, name):
    print("ready", flush=True)
Gio.bus_own_name(Gio.BusType.SESSION, "org.freedesktop.portal.Desktop", 0,
                 bus_acquired, name_acquired, None)
GLib.MainLoop().run()
"""

# The window manager's settings: one desktop, new windows focused and
# placed in the middle, title bars in the named theme with the icon, the
# title and the buttons.
OPENBOX_CONFIG = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
  <placement><policy>Smart</policy><center>yes</center></placement>
  <theme>
    <name>%s</name>
    <titleLayout>NLIMC</titleLayout>
    <keepBorder>yes</keepBorder>
    <animateIconify>no</animateIconify>
    <font place="ActiveWindow"><name>DejaVu Sans</name><size>10</size><weight>Bold</weight></font>
    <font place="InactiveWindow"><name>DejaVu Sans</name><size>10</size><weight>Bold</weight></font>
  </theme>
  <desktops><number>1</number></desktops>
  <margins><top>0</top><bottom>0</bottom><left>0</left><right>0</right></margins>
</openbox_config>
"""


class SandboxError(RuntimeError):
    pass


def read_only_system(own=()):
    """The start of a bubblewrap command: a session and process ids of its
    own, every top-level folder of the system read-only but /tmp and those in
    `own` (which the caller mounts), and fresh /dev and /proc."""
    command = ["bwrap", "--die-with-parent", "--unshare-pid", "--unshare-ipc",
               "--new-session"]
    special = {"dev", "proc", "sys", "tmp"} | set(own)
    for name in sorted(os.listdir("/")):
        path = "/" + name
        if name in special:
            continue
        if os.path.islink(path):
            command += ["--symlink", os.readlink(path), path]
        elif os.path.isdir(path):
            command += ["--ro-bind", path, path]
    return command + ["--dev", "/dev", "--proc", "/proc", "--ro-bind", "/sys", "/sys"]


def mount_point_in_tmp(tmp, path):
    """A mount point for `path` when it lies in /tmp, made in `tmp` (the
    folder the sandbox shows as /tmp) so that every user may pass through it
    (bubblewrap would make it for root alone)."""
    if not path.startswith("/tmp/"):
        return
    point = tmp
    for part in path[len("/tmp/"):].split("/"):
        point = os.path.join(point, part)
        os.makedirs(point, exist_ok=True)
        os.chmod(point, 0o755)


def tree_digest(paths):
    """Every file and folder below the paths: its kind, mode, owner and the
    SHA-256 of its content (a link: its target)."""
    seen = {}

    def record(path):
        info = os.lstat(path)
        entry = (stat.S_IFMT(info.st_mode), stat.S_IMODE(info.st_mode), info.st_uid, info.st_gid)
        if stat.S_ISREG(info.st_mode):
            digest = hashlib.sha256()
            with open(path, "rb") as data:
                for block in iter(lambda: data.read(1 << 20), b""):
                    digest.update(block)
            entry += (digest.hexdigest(),)
        elif stat.S_ISLNK(info.st_mode):
            entry += (os.readlink(path),)
        seen[path] = entry

    for top in paths:
        if not os.path.lexists(top):
            continue
        record(top)
        for folder, dirs, files in os.walk(top):
            for name in dirs + files:
                record(os.path.join(folder, name))
    return seen


def difference(before, after):
    """What differs between two records of a tree, a line a path."""
    lines = ["added: " + p for p in sorted(set(after) - set(before))]
    lines += ["removed: " + p for p in sorted(set(before) - set(after))]
    lines += ["changed: " + p for p in sorted(set(before) & set(after)) if before[p] != after[p]]
    return lines


def real_home():
    """The home folder the user database gives the current user."""
    return pwd.getpwuid(os.getuid()).pw_dir


def _read_line(stream, timeout, what):
    """One line from a pipe, within the deadline."""
    deadline = time.monotonic() + timeout
    data = b""
    fd = stream.fileno()
    while b"\n" not in data:
        left = deadline - time.monotonic()
        if left <= 0:
            raise SandboxError("timed out waiting for %s" % what)
        ready, _, _ = select.select([fd], [], [], left)
        if not ready:
            continue
        chunk = os.read(fd, 4096)
        if not chunk:
            raise SandboxError("%s: the process ended without answering" % what)
        data += chunk
    return data.split(b"\n", 1)[0].decode().strip()


class Sandbox:
    def __init__(self, build_dir, prefix="tavio-sandbox-"):
        self.build_dir = os.path.abspath(build_dir)
        self.program = os.path.join(self.build_dir, PROGRAM_RELATIVE)
        self.footprint_tool = os.path.join(self.build_dir, "tools/footprint/tavio-footprint")
        self.player_tool = os.path.join(self.build_dir, "tools/fake-tavio/tavio-player")
        self.seal_tool = os.path.join(self.build_dir, "tools/seal/tavio-seal")
        for path in (self.program, self.footprint_tool, self.player_tool, self.seal_tool):
            if not os.access(path, os.X_OK):
                raise SandboxError("not built: " + path)
        self.root = tempfile.mkdtemp(prefix=prefix)
        os.chmod(self.root, 0o755)
        self.home = os.path.join(self.root, "home")
        self.applications = os.path.join(self.root, "Applications")
        self.runtime = os.path.join(self.root, "run")
        self.tmp = os.path.join(self.root, "tmp")
        self.scratch = os.path.join(self.root, "scratch")
        self.manifest = os.path.join(self.scratch, "canaries.manifest")
        for folder in (self.home, self.applications, self.scratch):
            os.makedirs(folder, exist_ok=True)
        for folder in (self.runtime, self.tmp):
            os.makedirs(folder, mode=0o700, exist_ok=True)
        self.inside_home = real_home()
        self.user = None  # a user database entry when the program runs as another user
        self.display = None       # a virtual display of our own
        self.wayland = None       # or a headless Wayland compositor: its socket's path
        self.host_display = None  # or the person's own display
        self.host_binds = []
        self.bus_address = None
        self.planted = []
        self.locked = []  # files made immutable, made mutable again in close()
        self._groups = []  # process groups to stop, newest last
        self._become_subreaper()
        self.program_process = None

    # The account -------------------------------------------------------

    def plant(self, cache_files=200, app_size_mb=2, app=True, canaries=True):
        """Plants the footprint (sealed app included) and the canaries."""
        command = [self.footprint_tool, "--home", self.home, "--applications",
                   self.applications, "--player", self.player_tool, "--manifest", self.manifest,
                   "--cache-files", str(cache_files), "--app-size-mb", str(app_size_mb)]
        if not app:
            command.append("--no-app")
        if not canaries:
            command.append("--no-canaries")
        out = subprocess.run(command, check=True, capture_output=True, text=True,
                             timeout=300).stdout
        self.planted = [line[len("planted: "):] for line in out.splitlines()
                        if line.startswith("planted: ")]
        return out

    def run_as(self, uid):
        """Runs the program, its Tavio player and the session bus as another
        (unprivileged) user, whose home (as the user database names it) the
        sandbox home replaces. Call before starting anything."""
        self.user = pwd.getpwuid(uid)
        self.inside_home = self.user.pw_dir
        for folder in (self.runtime, self.tmp):
            os.chown(folder, self.user.pw_uid, self.user.pw_gid)

    def hand_over(self):
        """Gives the planted home and applications folder to that user."""
        for root in (self.home, self.applications):
            for folder, dirs, files in os.walk(root):
                for name in [folder] + [os.path.join(folder, n) for n in dirs + files]:
                    os.lchown(name, self.user.pw_uid, self.user.pw_gid)

    def app_bundle(self):
        return os.path.join(self.applications, "Tavio.app")

    def app_executable(self):
        return os.path.join(self.app_bundle(), "Contents/MacOS/Tavio")

    def inside(self, path):
        """Where a sandbox path appears to the program."""
        if path == self.home or path.startswith(self.home + "/"):
            return self.inside_home + path[len(self.home):]
        if path == self.applications or path.startswith(self.applications + "/"):
            return "/Applications" + path[len(self.applications):]
        return path

    def outside(self, path):
        """Where a path the program shows lies in the sandbox."""
        if path == self.inside_home or path.startswith(self.inside_home + "/"):
            return self.home + path[len(self.inside_home):]
        if path == "/Applications" or path.startswith("/Applications/"):
            return self.applications + path[len("/Applications"):]
        return path

    def check_canaries(self):
        """(passed, output) of the footprint tool's canary check."""
        result = subprocess.run([self.footprint_tool, "--check-canaries", "--home", self.home,
                                 "--applications", self.applications, "--manifest",
                                 self.manifest], capture_output=True, text=True, timeout=120)
        return result.returncode == 0, (result.stdout + result.stderr).strip()

    def remaining_planted(self):
        return [p for p in self.planted if os.path.lexists(p)]

    # The processes -----------------------------------------------------

    @staticmethod
    def _become_subreaper():
        """Orphans of what is started here (services the bus starts on demand
        detach themselves) are handed to this process, which reaps them."""
        try:
            import ctypes
            libc = ctypes.CDLL(None, use_errno=True)
            libc.prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER
        except (OSError, AttributeError):
            pass

    @staticmethod
    def _reap_orphans():
        while True:
            try:
                pid, _ = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return

    def _spawn(self, command, **kwargs):
        process = subprocess.Popen(command, start_new_session=True, **kwargs)
        self._groups.append(process)
        return process

    def start_display(self, timeout=30):
        """An X server of our own on a free display."""
        read_fd, write_fd = os.pipe()
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.scratch}
        # -noreset: the server would otherwise reset (and refuse connections for
        # a moment) whenever its last client leaves.
        self._spawn(["Xvfb", "-displayfd", str(write_fd), "-nolisten", "tcp", "-noreset",
                     "-screen", "0", "1280x800x24"], pass_fds=(write_fd,), env=env, stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_fd)
        with os.fdopen(read_fd, "rb") as pipe:
            number = _read_line(pipe, timeout, "Xvfb to choose a display")
        self.display = ":" + number
        return self.display

    def start_wayland(self, compositor="weston", timeout=30):
        """A headless Wayland compositor of our own instead of an X server.
        weston's headless backend offers no seat (no keyboard, no pointer);
        sway's always has one, and wtype types on it. sway refuses to run as
        root, so it runs as nobody, in a runtime folder of its own beside the
        sandbox's (which nobody cannot enter), shown to the program too."""
        folder = os.path.join(self.root, "wayland")
        os.makedirs(folder, mode=0o700)
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.scratch,
               "XDG_RUNTIME_DIR": folder}
        user = {}
        if compositor == "weston":
            command = ["weston", "--backend=headless-backend.so", "--socket=wayland-tavio",
                       "--idle-time=0", "--no-config"]
        elif compositor == "sway":
            nobody = pwd.getpwnam("nobody")
            os.chown(folder, nobody.pw_uid, nobody.pw_gid)
            config = os.path.join(self.scratch, "sway.config")
            with open(config, "w") as out:
                out.write("default_border none\n")
            os.chmod(config, 0o644)
            env.update({"HOME": folder, "WLR_BACKENDS": "headless", "WLR_HEADLESS_OUTPUTS": "1",
                        "WLR_RENDERER": "pixman",
                        "WLR_LIBINPUT_NO_DEVICES": "1"})
            command = ["sway", "--config", config]
            user = {"user": nobody.pw_uid, "group": nobody.pw_gid, "extra_groups": []}
        else:
            raise SandboxError("unknown compositor " + compositor)
        self._spawn(command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL, **user)
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            sockets = [n for n in os.listdir(folder)
                       if n.startswith("wayland-") and not n.endswith(".lock")]
            if sockets:
                self.wayland = os.path.join(folder, sockets[0])
                if compositor == "sway":
                    self._hold_keyboard()
                return self.wayland
            time.sleep(0.05)
        raise SandboxError("%s did not open a Wayland socket within %d s" % (compositor, timeout))

    def _hold_keyboard(self):
        """Keeps a virtual keyboard on the compositor's seat for the whole run.
        A seat announces a keyboard only while one is plugged in: each wtype
        alone would plug one in, type and unplug it, and the program could
        miss keys typed before it has taken the new keyboard."""
        env = self.client_environment()
        self._spawn(["wtype", "-s", "3600000"], env=env, stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(0.3)

    def use_host_display(self, display, xauthority=None):
        """Shows the window on the person's display; a copy of the X authority
        file sits in the runtime folder."""
        self.host_display = display
        if xauthority and os.path.isfile(xauthority):
            copy = os.path.join(self.runtime, "Xauthority")
            shutil.copyfile(xauthority, copy)
            os.chmod(copy, 0o600)
            self.host_xauthority = copy

    def start_bus(self, timeout=30):
        """A private D-Bus session whose sockets live in the sandbox's runtime folder;
        the accessibility bus it starts on demand puts its socket there too. It
        is given no display, so that nothing it starts touches one: clients
        find the accessibility bus through the session bus."""
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.scratch,
               "XDG_RUNTIME_DIR": self.runtime}
        command = ["dbus-daemon", "--session", "--nofork", "--nosyslog",
                   "--address=unix:dir=" + self.runtime, "--print-address=1"]
        user = {}
        if self.user:
            # The program's user owns the buses; root (the driver) may connect.
            config = os.path.join(self.runtime, "session.conf")
            with open(config, "w") as out:
                out.write(SESSION_CONFIG)
            os.chmod(config, 0o644)
            command[1] = "--config-file=" + config
            env["HOME"] = self.runtime
            user = {"user": self.user.pw_uid, "group": self.user.pw_gid, "extra_groups": []}
        process = self._spawn(command, env=env, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **user)
        self.bus_address = _read_line(process.stdout, timeout, "the D-Bus session to start")
        return self.bus_address

    def start_dark_portal(self, timeout=30):
        """A desktop portal on the session bus whose colour scheme is "prefer
        dark". Call after start_bus()."""
        portal = self._spawn(["/usr/bin/python3", "-c", DARK_PORTAL],
                             env=self.client_environment(), stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        ready = _read_line(portal.stdout, timeout, "the dark portal to start")
        if ready != "ready":
            raise SandboxError("the dark portal did not start: %r" % ready)

    def start_window_manager(self, theme="Clearlooks", timeout=30):
        """openbox on the virtual display, drawing title bars and frames in
        one of its themes (Clearlooks light, Onyx dark). Call after
        start_display() and before the program starts, so that its window is
        framed from the first."""
        config = os.path.join(self.scratch, "openbox-%s.xml" % theme)
        with open(config, "w") as out:
            out.write(OPENBOX_CONFIG % theme)
        env = dict(self.client_environment(), HOME=self.scratch)
        self._spawn(["openbox", "--sm-disable", "--config-file", config], env=env,
                    stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            found = subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], env=env,
                                   capture_output=True, text=True, timeout=timeout)
            if "window id #" in found.stdout:
                return
            time.sleep(0.05)
        raise SandboxError("openbox did not manage the display within %d s" % timeout)

    def client_environment(self):
        """The environment of a process that talks to the program's window and buses."""
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.scratch,
               "XDG_RUNTIME_DIR": self.runtime, "LANG": "C.UTF-8"}
        if self.display:
            env["DISPLAY"] = self.display
        if self.wayland:
            env["WAYLAND_DISPLAY"] = self.wayland
        if self.bus_address:
            env["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address
        return env

    def bwrap_command(self, extra_binds=(), extra_options=()):
        """bubblewrap: the system read-only, the sandbox over the real home
        and as /Applications, fresh /dev, /proc (own pid namespace) and /tmp."""
        command = read_only_system(own=("Applications",))
        mount_point_in_tmp(self.tmp, self.runtime)
        command += ["--bind", self.tmp, "/tmp",
                    "--bind", self.home, self.inside_home,
                    "--bind", self.applications, "/Applications",
                    "--ro-bind", self.runtime, self.runtime]
        if self.wayland:
            folder = os.path.dirname(self.wayland)
            mount_point_in_tmp(self.tmp, folder)
            command += ["--ro-bind", folder, folder]
        command += list(extra_options)
        for source, target in extra_binds:
            command += ["--bind", source, target]
        for source, target in self.host_binds:
            command += ["--ro-bind", source, target]
        # The X servers' socket folder, read-only: a client also finds the
        # server there when the abstract socket is taken.
        if os.path.isdir("/tmp/.X11-unix"):
            command += ["--ro-bind", "/tmp/.X11-unix", "/tmp/.X11-unix"]
        return command

    def program_environment(self):
        env = {"PATH": "/usr/bin:/bin", "HOME": self.inside_home, "TMPDIR": "/tmp",
               "XDG_RUNTIME_DIR": self.runtime, "LANG": os.environ.get("LANG", "C.UTF-8"),
               "QT_QPA_PLATFORM": "xcb", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
        for name in ("USER", "LOGNAME", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS",
                     "LC_ALL"):
            if name in os.environ:
                env[name] = os.environ[name]
        if self.user:
            env["USER"] = env["LOGNAME"] = self.user.pw_name
        if self.display or self.host_display:
            env["DISPLAY"] = self.display or self.host_display
        if self.wayland:
            env["WAYLAND_DISPLAY"] = self.wayland
            env["QT_QPA_PLATFORM"] = "wayland"
        if getattr(self, "host_xauthority", None):
            env["XAUTHORITY"] = self.host_xauthority
        if self.bus_address:
            env["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address
        return env

    def start_program(self, player=True, player_args=(), program=None, extra_binds=(),
                      stdout=None, stderr=None, environment=None, agents=False,
                      program_args=(), stdin=subprocess.DEVNULL, extra_options=()):
        """Starts, inside the sandbox, the Tavio player from its bundle (so that
        the program finds it running, as a child that dies with it) and then
        the uninstaller. With `agents`, ssh-agent and gpg-agent run beside
        them first, as a desktop session starts them (each makes itself
        undumpable, and ssh-agent runs set-group-id: an ordinary user cannot
        look at their executables). `program` is the uninstaller's path as seen inside
        (the build folder is visible read-only at its own path);
        `environment` replaces program_environment(); `program_args` are
        passed to the program, which reads `stdin`; `extra_options` go to
        bubblewrap before the binds. Returns the bubblewrap process."""
        program = program or self.program
        script = "set -e\n"
        if agents:
            script += ('mkdir -m 700 /tmp/.gnupg\n'
                       'ssh-agent -a /tmp/.ssh-agent.sock >/dev/null\n'
                       'gpg-agent --homedir /tmp/.gnupg --daemon >/dev/null 2>&1\n')
        if player:
            script += ('rm -f /tmp/.player-ready\n'
                       '"$1" --exit-with-parent --ready-file /tmp/.player-ready %s '
                       '>/dev/null &\n'
                       'n=0; while [ ! -e /tmp/.player-ready ]; do\n'
                       '  n=$((n+1)); [ $n -lt 600 ] || { echo "player never ready" >&2; exit 97; }\n'
                       '  sleep 0.05; done\n'
                       'rm -f /tmp/.player-ready\n' % " ".join(player_args))
        script += 'program="$2"; shift 2; exec "$program" "$@"\n'
        command = self.bwrap_command(extra_binds, extra_options)
        # A build folder in /tmp or in the home folder would be hidden by the
        # sandbox's own: the program's bundle (or, for a program outside a
        # bundle, its folder) is then shown read-only at its path. A program
        # that lies in the sandbox's own /tmp is there already.
        if program.startswith("/tmp/") or program.startswith(self.inside_home + "/"):
            shown = os.path.dirname(program)
            contents = os.path.dirname(shown)
            if (os.path.basename(shown) == "MacOS" and os.path.basename(contents) == "Contents"
                    and os.path.dirname(contents).endswith(".app")):
                shown = os.path.dirname(contents)
            if os.path.isdir(shown):
                mount_point_in_tmp(self.tmp, shown)
                command += ["--ro-bind", shown, shown]
        command += ["--chdir", "/"]
        if self.user:
            command += ["setpriv", "--reuid=%d" % self.user.pw_uid,
                        "--regid=%d" % self.user.pw_gid, "--clear-groups", "--"]
        command += ["/bin/sh", "-c", script, "sh",
                    "/Applications/Tavio.app/Contents/MacOS/Tavio", program] + list(program_args)
        if environment is None:
            environment = self.program_environment()
        self.program_process = self._spawn(
            command, env=environment, stdin=stdin,
            stdout=stdout, stderr=stderr)
        return self.program_process

    def program_pid_inside(self):
        """The uninstaller's process id as seen from here, or None."""
        wanted = os.path.basename(self.program)[:15]  # the kernel keeps 15 characters
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                with open("/proc/%s/comm" % entry) as comm:
                    name = comm.read().strip()
            except OSError:
                continue
            if name == wanted and self._descends_from(int(entry), self.program_process.pid):
                return int(entry)
        return None

    def process_inside(self, executable):
        """The process id, as seen from here, of the process in the sandbox
        that runs this executable file, or None."""
        wanted = os.stat(executable)
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                running = os.stat("/proc/%s/exe" % entry)
            except OSError:
                continue
            if ((running.st_dev, running.st_ino) == (wanted.st_dev, wanted.st_ino)
                    and self._descends_from(int(entry), self.program_process.pid)):
                return int(entry)
        return None

    @staticmethod
    def _descends_from(pid, ancestor):
        for _ in range(64):
            if pid == ancestor:
                return True
            if pid <= 1:
                return False
            try:
                with open("/proc/%d/stat" % pid) as stat:
                    pid = int(stat.read().rsplit(")", 1)[1].split()[1])
            except OSError:
                return False
        return False

    def wait_program(self, timeout):
        """The program's exit status, or None when it is still running at the deadline."""
        try:
            return self.program_process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            return None

    def screenshot(self, path, window=None):
        """Saves the virtual screen, or only the window of that name, as a PNG
        (xwd, then netpbm)."""
        if not self.display:
            return False
        env = self.client_environment()
        which = ["-name", window] if window else ["-root"]
        with open(path, "wb") as out:
            xwd = subprocess.Popen(["xwd", "-silent", "-display", self.display] + which,
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=env)
            pnm = subprocess.Popen(["xwdtopnm"], stdin=xwd.stdout, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL)
            xwd.stdout.close()
            png = subprocess.Popen(["pnmtopng"], stdin=pnm.stdout, stdout=out,
                                   stderr=subprocess.DEVNULL)
            pnm.stdout.close()
            ok = all(p.wait(timeout=30) == 0 for p in (xwd, pnm, png))
        return ok

    def clipboard(self, timeout=10):
        """The text on the virtual display's clipboard (on Wayland, read
        through the compositor's data-control protocol, which needs no focus)."""
        command = ["xclip", "-o", "-selection", "clipboard"]
        if self.wayland:
            command = ["wl-paste", "--no-newline"]
        result = subprocess.run(command,
                                env=self.client_environment(), capture_output=True,
                                timeout=timeout)
        return result.stdout.decode(errors="replace") if result.returncode == 0 else None

    def close(self, keep=False):
        """Stops everything started here, newest first, and removes the folder."""
        for process in reversed(self._groups):
            if process.poll() is None:
                try:
                    os.killpg(process.pid, signal.SIGTERM)
                except ProcessLookupError:
                    pass
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    try:
                        os.killpg(process.pid, signal.SIGKILL)
                    except ProcessLookupError:
                        pass
                    process.wait(timeout=10)
            # Anything left in the group (services the bus started on demand).
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except (ProcessLookupError, PermissionError):
                pass
            if process.stdout:
                process.stdout.close()
        self._groups = []
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline and self._orphans_left():
            self._reap_orphans()
            time.sleep(0.05)
        if not keep:
            for path in self.locked:
                subprocess.run(["chattr", "-i", path], capture_output=True)
            shutil.rmtree(self.root, ignore_errors=True)

    @staticmethod
    def _orphans_left():
        me = str(os.getpid())
        for entry in os.listdir("/proc"):
            if entry.isdigit():
                try:
                    with open("/proc/%s/stat" % entry) as stat:
                        if stat.read().rsplit(")", 1)[1].split()[1] == me:
                            return True
                except (OSError, IndexError):
                    pass
        return False

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False
