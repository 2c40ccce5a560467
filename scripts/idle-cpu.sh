#!/usr/bin/env bash
# Prints the CPU the real program uses with tracing on and no traffic, as a share of one core, over
# a given time (default 30 s). Root only: runs in private IPC, /dev/shm and /tmp (shared/tools/iso)
# with its own X server, since the program always uses the product's segment.
# Usage: scripts/idle-cpu.sh [--build DIR] [--seconds S]
set -euo pipefail

BUILD=build
SECS=30
while [ $# -gt 0 ]; do
    case "$1" in
    --build) BUILD=$2; shift 2 ;;
    --seconds) SECS=$2; shift 2 ;;
    *) echo "usage: $0 [--build DIR] [--seconds S]" >&2; exit 2 ;;
    esac
done
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$BUILD" && pwd)

sh "$ROOT/../shared/tools/iso" bash -c '
    set -eu
    BUILD=$1; SECS=$2
    Xvfb :78 -screen 0 1280x1024x24 >/dev/null 2>&1 &
    XVFB=$!
    sleep 0.5
    DISPLAY=:78 "$BUILD/app/ZelVisaTraceTool" -t >/dev/null 2>&1 &
    TOOL=$!
    sleep 3
    ticks() { awk "{ print \$14 + \$15 }" "/proc/$TOOL/stat"; }
    before=$(ticks)
    sleep "$SECS"
    after=$(ticks)
    kill "$TOOL" "$XVFB" 2>/dev/null || true
    wait 2>/dev/null || true
    hz=$(getconf CLK_TCK)
    awk -v t=$((after - before)) -v hz="$hz" -v s="$SECS" \
        "BEGIN { printf \"idle CPU: %.2f%% of a core over %d s (tracing on, no traffic)\\n\", 100 * t / hz / s, s }"
' idle "$BUILD" "$SECS"
