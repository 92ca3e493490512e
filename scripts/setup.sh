#!/usr/bin/env bash
# Installs, only when missing, every Debian package that building, running and
# testing the uninstaller needs. Quiet and quick when everything is present.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ pkg-config git
  googletest libgtest-dev libgmock-dev
  libplist-dev libssl-dev openssl
  # the command line's summaries in the system log (sd_journal_send)
  libsystemd-dev
  # the house style's checks (Debian 12's are version 14)
  clang-tidy clang-format
  # the window
  qt6-base-dev qt6-declarative-dev qt6-svg-dev qt6-tools-dev qt6-l10n-tools
  qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
  qml6-module-qtquick-templates qml6-module-qtquick-window qml6-module-qtqml-workerscript
  qml6-module-qttest qml6-module-qtqml
  # tests of the real window, its accessibility tree and the sandboxed demo
  xvfb xauth dbus dbus-x11 at-spi2-core gir1.2-atspi-2.0 python3-gi
  bubblewrap util-linux strace procps
  # the agents that every desktop session runs, which hide their executables
  # from their own user: the process check must not take them for Tavio
  openssh-client gpg-agent
  # screenshots of the virtual display (xwd, netpbm), its clipboard (xclip)
  # and its keyboard (xdotool)
  x11-apps netpbm xclip xdotool
  # a window manager that draws title bars on the virtual display, for the
  # software centres' screenshots of the window as a desktop shows it
  openbox
  # the same under headless Wayland compositors: weston (no seat), sway (a
  # seat) with wtype for its keyboard and wl-paste for its clipboard, and
  # Qt's Wayland plugin
  weston sway wtype wl-clipboard qt6-wayland
  # the Debian package (cpack: dpkg-shlibdeps and file) and the checks that
  # distributions run on it: lintian, the desktop entry's and the AppStream
  # file's validators, and xprop to read the window's class and icon
  dpkg-dev file lintian desktop-file-utils appstream x11-utils
  # the command line's JSON checked against its shipped schema, by a real
  # validator
  python3-jsonschema
  # the Ansible role for fleets: ansible-playbook, its linter, and sudo,
  # through which the role becomes each account of the sandbox machine
  ansible-core ansible-lint sudo
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}" >&2
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages and not root; run as root or install them: ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
