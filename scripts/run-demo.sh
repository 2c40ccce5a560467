#!/bin/sh
# Starts the tool with live demo traffic: an unchanged PyVISA script talks to the simulated SCPI
# instrument through the zeltrace backend (PYVISA_LIBRARY=py@zeltrace), an unchanged C program linked
# with the simulated VISA library libvisa-sim does the same through zel-run, and the traffic generator
# adds a little background load. The tool starts with tracing on; everything stops when the window
# closes. Without a display the tool runs under a virtual X server. DEMO_TRAFFIC=0 leaves the
# generator out.
set -eu

BUILD=${1:-build}
ROOT=$(cd "$(dirname "$0")/.." && pwd)
TOOL="$BUILD/program/ZelVisaTraceTool"
TRAFFIC="$BUILD/tools/zel-traffic"
INSTRUMENT="$BUILD/tools/zel-instrument"
LIBRARY="$BUILD/zeltrace/libzeltrace.so.1"
ZELRUN="$BUILD/tools/zel-run"
CDEMO="$BUILD/visa/demo/zel-visa-demo"

for binary in "$TOOL" "$TRAFFIC" "$INSTRUMENT" "$LIBRARY" "$ZELRUN" "$CDEMO"; do
    if [ ! -e "$binary" ]; then
        echo "run-demo: $binary is missing; run 'make build' first" >&2
        exit 1
    fi
done

# Debian's interpreter is the one that sees python3-pyvisa, whatever python3 comes first on the PATH.
PYTHON=python3
if [ -x /usr/bin/python3 ]; then
    PYTHON=/usr/bin/python3
fi

PIDS=""
cleanup() {
    for pid in $PIDS; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in $PIDS; do
        wait "$pid" 2>/dev/null || true
    done
    rm -f "${PORT_FILE:-}"
}
trap cleanup EXIT INT TERM

PORT_FILE=$(mktemp)
"$INSTRUMENT" --port 0 >"$PORT_FILE" &
PIDS="$PIDS $!"
while ! grep -q '^listening on ' "$PORT_FILE"; do
    sleep 0.1
done
PORT=$(sed -n 's/^listening on //p' "$PORT_FILE")

PYVISA_LIBRARY=py@zeltrace ZELTRACE_LIBRARY="$LIBRARY" PYTHONPATH="$ROOT/python" PYTHONDONTWRITEBYTECODE=1 \
    "$PYTHON" "$ROOT/scripts/pyvisa-demo.py" "$PORT" >/dev/null &
PIDS="$PIDS $!"

"$ZELRUN" "$CDEMO" "$PORT" >/dev/null &
PIDS="$PIDS $!"

if [ "${DEMO_TRAFFIC:-1}" != 0 ]; then
    "$TRAFFIC" --enable --processes 1 --threads 2 --rate 5 --quiet >/dev/null &
    PIDS="$PIDS $!"
fi

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    "$TOOL" -t
else
    # A virtual X server in a session of its own: Ctrl+C reaches the tool alone, which closes as its
    # window does (settings saved, tracing switched off), and the server goes after it.
    DISPLAY_FILE=$(mktemp)
    setsid Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp 3>"$DISPLAY_FILE" >/dev/null 2>&1 &
    PIDS="$PIDS $!"
    while [ ! -s "$DISPLAY_FILE" ]; do
        sleep 0.1
    done
    NUMBER=$(head -n 1 "$DISPLAY_FILE")
    rm -f "$DISPLAY_FILE"
    echo "run-demo: no display here, so the tool runs on the virtual display :$NUMBER where nobody sees it (a picture: DISPLAY=:$NUMBER import -window root shot.png); Ctrl+C ends it" >&2
    DISPLAY=":$NUMBER" "$TOOL" -t
fi
