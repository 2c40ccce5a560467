#!/usr/bin/env bash
# Prints the highest traffic rate at which the real program under Xvfb drains the trace segment with
# no record dropped by the producers. Root only: the program always uses the product's segment, so
# every trial runs in private IPC, /dev/shm and /tmp (shared/tools/iso) with its own X server.
# Usage: scripts/max-rate.sh [--build DIR] [--big] [--seconds S] [--low R] [--high R]
#   --big      a 1280x1000 window with "Scroll to bottom" on (default: the window as shipped)
#   rates are records per second in total, spread over 4 threads
set -euo pipefail

BUILD=build
BIG=0
SECONDS_PER_TRIAL=6
LOW=10000
HIGH=200000
while [ $# -gt 0 ]; do
    case "$1" in
    --build) BUILD=$2; shift 2 ;;
    --big) BIG=1; shift ;;
    --seconds) SECONDS_PER_TRIAL=$2; shift 2 ;;
    --low) LOW=$2; shift 2 ;;
    --high) HIGH=$2; shift 2 ;;
    *) echo "usage: $0 [--build DIR] [--big] [--seconds S] [--low R] [--high R]" >&2; exit 2 ;;
    esac
done
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "$BUILD" && pwd)
ISO="$ROOT/../shared/tools/iso"
[ -x "$ISO" ] || ISO="sh $ROOT/../shared/tools/iso"

# One trial: prints the records the generator dropped at this total rate.
trial() {
    $ISO bash -c '
        set -eu
        BUILD=$1; BIG=$2; SECS=$3; RATE=$4
        if [ "$BIG" = 1 ]; then
            mkdir -p "$XDG_CONFIG_HOME/Zelbrook"
            printf "[MainWindow]\nsize=@Size(1280 1000)\nScrollToBottom=true\n" \
                > "$XDG_CONFIG_HOME/Zelbrook/ZelVisaTraceTool.conf"
        fi
        Xvfb :77 -screen 0 1600x1200x24 >/dev/null 2>&1 &
        XVFB=$!
        sleep 0.5
        DISPLAY=:77 "$BUILD/program/ZelVisaTraceTool" -t >/dev/null 2>&1 &
        TOOL=$!
        sleep 2
        "$BUILD/tools/zel-traffic" --threads 4 --rate $((RATE / 4)) --duration "$SECS" --quiet | tail -1
        kill "$TOOL" "$XVFB" 2>/dev/null || true
        wait 2>/dev/null || true
    ' trial "$BUILD" "$BIG" "$SECONDS_PER_TRIAL" "$1" | awk '/dropped/ { print $4 }'
}

best=0
low=$LOW
high=$HIGH
while [ $((high - low)) -gt $((low / 20)) ]; do
    rate=$(((low + high) / 2))
    dropped=$(trial "$rate")
    echo "rate $rate/s: dropped ${dropped:-?}" >&2
    if [ "${dropped:-1}" = 0 ]; then
        best=$rate
        low=$rate
    else
        high=$rate
    fi
done
echo "highest zero-drop rate: $best records/s ($([ "$BIG" = 1 ] && echo '1280x1000, scroll to bottom' || echo 'window as shipped'))"
