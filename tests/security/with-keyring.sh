#!/bin/sh
# Runs a program against a private Secret Service: a D-Bus session bus of its own with a
# gnome-keyring daemon whose "login" keyring (the default collection) is created and unlocked in
# a temporary home, which is removed afterwards. The user's own keyrings are never reached.
#
#   with-keyring.sh program [argument...]
#
# The program sees SORVEL_PRIVATE_KEYRING set to the temporary home. Needs dbus-run-session,
# gnome-keyring-daemon and gdbus.
set -eu

if [ $# -eq 0 ]; then
    echo "usage: $0 program [argument...]" >&2
    exit 2
fi

if [ "$1" != "--inside-session" ]; then
    home=$(mktemp -d "${TMPDIR:-/tmp}/sorvel-keyring.XXXXXX")
    trap 'rm -rf "$home"' EXIT
    mkdir -m 700 "$home/runtime"
    # The bus daemon hands this environment to every service it starts on demand, so even a
    # keyring daemon started that way keeps to the temporary home.
    export HOME="$home"
    export XDG_DATA_HOME="$home/data" XDG_CONFIG_HOME="$home/config" XDG_CACHE_HOME="$home/cache"
    export XDG_RUNTIME_DIR="$home/runtime"
    export SORVEL_PRIVATE_KEYRING="$home"
    unset DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL DISPLAY WAYLAND_DISPLAY
    status=0
    dbus-run-session -- "$0" --inside-session "$@" || status=$?
    exit "$status"
fi
shift

# Unlocking with a password on standard input creates the "login" keyring and makes it the
# default collection. The daemon stays a child of this shell so that it is stopped and reaped here.
printf '%s' "private-test-keyring" |
    gnome-keyring-daemon --foreground --unlock --components=secrets >/dev/null &
daemon=$!
trap 'kill "$daemon" 2>/dev/null || true; wait "$daemon" 2>/dev/null || true' EXIT

# The daemon owns the service name once it answers; waiting for the name keeps the bus from
# starting a second daemon on demand.
if ! gdbus wait --session --timeout 30 org.freedesktop.secrets; then
    echo "$0: the keyring daemon did not start" >&2
    exit 1
fi

status=0
"$@" || status=$?
exit "$status"
