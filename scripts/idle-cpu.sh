#!/usr/bin/env bash
# Prints the CPU the real program uses with tracing on and no traffic, as a share of one core, over
# a given time (default 30 s). Root only: runs in private IPC, /dev/shm and /tmp (shared/tools/iso)
# with its own X server, since the program always uses the product's segment.
# --timeline shows the timeline dock as well.
# Usage: scripts/idle-cpu.sh [--build DIR] [--seconds S] [--timeline]
set -euo pipefail

BUILD=build
SECS=30
TIMELINE=false
while [ $# -gt 0 ]; do
    case "$1" in
    --build) BUILD=$2; shift 2 ;;
    --seconds) SECS=$2; shift 2 ;;
    --timeline) TIMELINE=true; shift ;;
    *) echo "usage: $0 [--build DIR] [--seconds S] [--timeline]" >&2; exit 2 ;;
    esac
done
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$BUILD" && pwd)

sh "$ROOT/../shared/tools/iso" bash -c '
    set -eu
    BUILD=$1; SECS=$2
    mkdir -p "$XDG_CONFIG_HOME/Zelbrook"
    printf "[Analysis]\nTimelineVisible=%s\n" "$3" > "$XDG_CONFIG_HOME/Zelbrook/ZelVisaTraceTool.conf"
    Xvfb :78 -screen 0 1280x1024x24 >/dev/null 2>&1 &
    XVFB=$!
    sleep 0.5
    DISPLAY=:78 "$BUILD/program/ZelVisaTraceTool" -t >/dev/null 2>&1 &
    TOOL=$!
    sleep 3
    # Nanoseconds on a CPU, all threads: finer than the clock ticks of /proc/PID/stat.
    cpu() { for t in /proc/$TOOL/task/*/schedstat; do awk "{ print \$1 }" "$t"; done | awk "{ s += \$1 } END { print s }"; }
    before=$(cpu)
    sleep "$SECS"
    after=$(cpu)
    kill "$TOOL" "$XVFB" 2>/dev/null || true
    wait 2>/dev/null || true
    awk -v t=$((after - before)) -v s="$SECS" \
        "BEGIN { printf \"idle CPU: %.3f%% of a core over %d s (tracing on, no traffic)\\n\", 100 * t / 1e9 / s, s }"
' idle "$BUILD" "$SECS" "$TIMELINE"
