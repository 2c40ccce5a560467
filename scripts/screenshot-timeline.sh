#!/bin/sh
# Takes docs/timeline.png of the real program: the tool with -t and its timeline on a virtual X server,
# with the demo traffic of `make run` (the PyVISA script against the simulated instrument, and the
# generator); the first failed call is made current with F8, then the timeline shows all. Root only:
# runs in private IPC, /dev/shm and /tmp (shared/tools/iso), since the program always uses the
# product's segment. Needs ImageMagick's `import` and `convert`, and xdotool.
# Usage: scripts/screenshot-timeline.sh [BUILD] [OUT]
set -eu

BUILD=$(cd "${1:-build}" && pwd)
OUT=${2:-docs/timeline.png}
mkdir -p "$(dirname "$OUT")"
OUT=$(cd "$(dirname "$OUT")" && pwd)/$(basename "$OUT")
ROOT=$(cd "$(dirname "$0")/.." && pwd)

sh "$ROOT/../shared/tools/iso" sh -c '
    set -eu
    BUILD=$1; OUT=$2; ROOT=$3
    mkdir -p "$XDG_CONFIG_HOME/Zelbrook"
    printf "[MainWindow]\nsize=@Size(1180 860)\npos=@Point(10 10)\n[Analysis]\nTimelineVisible=true\n" \
        > "$XDG_CONFIG_HOME/Zelbrook/ZelVisaTraceTool.conf"
    Xvfb :93 -screen 0 1200x900x24 >/dev/null 2>&1 &
    PIDS=$!
    sleep 1
    PORT_FILE=$(mktemp)
    "$BUILD/tools/zel-instrument" --port 0 >"$PORT_FILE" &
    PIDS="$PIDS $!"
    while ! grep -q "^listening on " "$PORT_FILE"; do sleep 0.1; done
    PORT=$(sed -n "s/^listening on //p" "$PORT_FILE")
    DISPLAY=:93 "$BUILD/program/ZelVisaTraceTool" -t >/dev/null 2>&1 &
    PIDS="$PIDS $!"
    sleep 2
    PYVISA_LIBRARY=py@zeltrace ZELTRACE_LIBRARY="$BUILD/zeltrace/libzeltrace.so.1" PYTHONPATH="$ROOT/python" \
        PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 "$ROOT/scripts/pyvisa-demo.py" "$PORT" >/dev/null &
    PIDS="$PIDS $!"
    "$BUILD/tools/zel-traffic" --enable --processes 1 --threads 2 --rate 5 --seed 3 --quiet >/dev/null &
    PIDS="$PIDS $!"
    sleep 14
    # A row of the table, F8 to the next failed call; a click on the empty part of the timeline gives
    # it the keys, Home shows all.
    DISPLAY=:93 xdotool mousemove 600 300 click 1 sleep 0.3 key F8 sleep 0.3 mousemove 700 680 click 1 \
        sleep 0.3 key Home mousemove 600 880
    sleep 1.5
    DISPLAY=:93 import -window root "$OUT"
    convert "$OUT" -crop 1180x860+10+10 +repage "$OUT"
    kill $PIDS 2>/dev/null || true
    sleep 1
    kill -9 $PIDS 2>/dev/null || true
    wait 2>/dev/null || true
' shot "$BUILD" "$OUT" "$ROOT"
echo "wrote $OUT"
