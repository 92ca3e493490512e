#!/usr/bin/python3
"""Checks that every system file a program loaded or opened belongs to a
package that the program's package reaches through its Depends.

    check_dependencies.py --depends "DEPENDS FIELD" --files LIST [--skip PREFIX]...

LIST holds one absolute path a line (from /proc/PID/maps and the opens that
strace saw). Paths under a --skip prefix (the unpacked package itself, the
test's home and temporary folders) and the kernel's own file systems are
not package content. Packages marked Essential count as reachable, as
Debian policy lets every package rely on them without naming them.
Prints one line per file no reachable package holds and exits with 1 when
there is any.
"""

import argparse
import os
import re
import subprocess
import sys

# Made on this machine rather than shipped by a package: the dynamic
# linker's cache (libc-bin's trigger), compiled locales, font and MIME
# caches, and the machine's own identity and users. They come with the
# system, whatever the program depends on.
GENERATED = (
    re.compile(r"^/etc/ld\.so\.cache$"),
    re.compile(r"^/usr/lib/locale/"),
    re.compile(r"^/var/cache/fontconfig/"),
    re.compile(r"^/usr/share/mime/[^/]+$"),
    re.compile(r"^/usr/lib/[^/]+/gconv/gconv-modules\.cache$"),
    re.compile(r"^/etc/(machine-id|passwd|group|nsswitch\.conf|localtime|host\.conf|resolv\.conf|hosts)$"),
    re.compile(r"^/usr/share/icons/[^/]+/icon-theme\.cache$"),
)
# Read when present, and not missed when absent: the C library's table of
# locale aliases, which only the locales package brings.
OPTIONAL = (
    re.compile(r"^/usr/share/locale/locale\.alias$"),
)
KERNEL = ("/proc/", "/sys/", "/dev/", "/run/", "/memfd:", "/tmp/.X11-unix/")


def strip_arch(name):
    return name.split(":")[0]


def installed():
    """name -> (essential, [dependency groups]), and virtual name -> providers."""
    fields = "${Package}\t${db:Status-Abbrev}\t${Essential}\t${Depends}\t${Pre-Depends}\t${Provides}\n"
    out = subprocess.run(["dpkg-query", "-W", "-f", fields], capture_output=True, text=True,
                         check=True).stdout
    packages, providers = {}, {}
    for line in out.splitlines():
        name, status, essential, depends, predepends, provides = line.split("\t")
        if not status.startswith("ii"):
            continue
        packages[name] = (essential == "yes", groups(depends) + groups(predepends))
        for virtual in groups(provides):
            providers.setdefault(virtual[0], set()).add(name)
    return packages, providers


def groups(field):
    """A dependency field as a list of alternatives, names only."""
    result = []
    for group in field.split(","):
        names = [strip_arch(re.sub(r"\(.*?\)|\[.*?\]|<.*?>", "", alt).strip())
                 for alt in group.split("|")]
        names = [name for name in names if name]
        if names:
            result.append(names)
    return result


def reachable(depends, packages, providers):
    wanted = groups(depends) + [[name] for name, (essential, _) in packages.items() if essential]
    seen = set()
    while wanted:
        for name in wanted.pop():
            for real in ({name} if name in packages else set()) | providers.get(name, set()):
                if real not in seen:
                    seen.add(real)
                    wanted.extend(packages[real][1])
    return seen


def candidates(path):
    """The path as opened, with links resolved, and in its other spelling
    on a merged /usr."""
    found = []
    for one in (path, os.path.realpath(path)):
        found.append(one)
        for merged in ("/lib", "/lib64", "/bin", "/sbin"):
            if one.startswith("/usr" + merged + "/"):
                found.append(one[len("/usr"):])
            elif one.startswith(merged + "/"):
                found.append("/usr" + one)
    return found


def owners(paths):
    """path -> set of packages that hold it."""
    result = {}
    if not paths:
        return result
    out = subprocess.run(["dpkg-query", "-S"] + sorted(paths), capture_output=True,
                         text=True).stdout
    for line in out.splitlines():
        if line.startswith("diversion ") or ": " not in line:
            continue
        names, path = line.split(": ", 1)
        result.setdefault(path, set()).update(strip_arch(n.strip()) for n in names.split(","))
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--depends", required=True)
    parser.add_argument("--files", required=True)
    parser.add_argument("--skip", action="append", default=[])
    args = parser.parse_args()

    with open(args.files) as listing:
        paths = {line.strip() for line in listing if line.startswith("/")}
    paths = {p for p in paths
             if not p.startswith(KERNEL)
             and not any(p == s or p.startswith(s.rstrip("/") + "/") for s in args.skip)
             and not os.path.isdir(p)
             and not any(pattern.search(p) for pattern in GENERATED + OPTIONAL)}
    spellings = {p: candidates(p) for p in paths}
    held = owners({c for cs in spellings.values() for c in cs})
    packages, providers = installed()
    allowed = reachable(args.depends, packages, providers)

    problems = []
    for path in sorted(paths):
        holders = set().union(*(held.get(c, set()) for c in spellings[path]))
        if not holders:
            problems.append("%s: no package holds it" % path)
        elif not holders & allowed:
            problems.append("%s: held by %s, not reached from Depends"
                            % (path, ", ".join(sorted(holders))))
    print("checked %d files of the system against %d packages reached from Depends"
          % (len(paths), len(allowed)))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
