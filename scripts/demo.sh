#!/usr/bin/env bash
# Installs what is missing, builds, and opens Orvex against the stand-in
# daemons on a private D-Bus session, in a temporary ORVEX_ROOT. On a machine
# without a display the window runs under Xvfb and a screenshot is saved.
#
#   scripts/demo.sh                the stand-in daemons play a believable pass
#   scripts/demo.sh --real-worker  the real worker tests this machine (run as
#                                  root to read the disks; it only reads)
set -euo pipefail
cd "$(dirname "$0")/.."

worker=standin
if [ "${1:-}" = "--real-worker" ]; then
    worker=real
    shift
fi

if [ "${1:-}" = "--inside" ]; then
    # The part that runs inside the private session.
    root=$2
    shift 2
    export ORVEX_ROOT=$root ORVEX_DAEMON_BUS=session
    # The demo's settings and store stay in the temporary root too.
    export XDG_CONFIG_HOME=$root/config XDG_DATA_HOME=$root/data
    if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
        export XDG_RUNTIME_DIR=$root/runtime
        mkdir -m 700 -p "$XDG_RUNTIME_DIR"
    fi
    worker=$1
    shift
    if [ "$worker" = real ]; then
        # The stand-in keeps the idle daemon and the agent; the real worker
        # tests this machine, with a small pattern test so the pass is short.
        build/tools/orvex-standin/orvex-standin --serve idle,agent >"$root/standin.log" 2>&1 &
        standin=$!
        build/tools/orvex-workerd/orvex-workerd --start --memory-test-size 64 >"$root/workerd.log" 2>&1 &
        workerd=$!
        trap 'kill $standin $workerd 2>/dev/null; wait $standin $workerd 2>/dev/null || true' EXIT
    else
        build/tools/orvex-standin/orvex-standin --start >"$root/standin.log" 2>&1 &
        standin=$!
        trap 'kill $standin 2>/dev/null; wait $standin 2>/dev/null || true' EXIT
    fi
    sleep 0.5
    build/tools/orvex/orvex "$@"
    exit
fi

scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target orvex orvex-standin orvex-workerd orvex-manual-pdf

root=$(mktemp -d /tmp/orvex-demo.XXXXXX)
echo "Files of this demo (report, daemon settings, logs): $root"
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    dbus-run-session -- "$0" --inside "$root" "$worker"
else
    shot=$root/orvex-demo.png
    echo "No display: running the window under Xvfb."
    xvfb-run -a -s "-screen 0 1280x800x24" dbus-run-session -- "$0" --inside "$root" "$worker" --screenshot "$shot"
    echo "The screenshot is at $shot"
fi
