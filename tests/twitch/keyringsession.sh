#!/bin/sh
# Runs a command in a private D-Bus session with an unlocked gnome-keyring
# and a home folder of its own, so that tests use a real Secret Service
# without touching the user's.
set -u
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home" XDG_DATA_HOME="$home/.local/share" XDG_CONFIG_HOME="$home/.config" XDG_CACHE_HOME="$home/.cache"
export XDG_RUNTIME_DIR="$home/run"
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
dbus-run-session -- sh -c '
  eval "$(printf test | gnome-keyring-daemon --unlock --components=secrets)" >/dev/null
  export GNOME_KEYRING_CONTROL
  "$@"
' keyringsession "$@"
