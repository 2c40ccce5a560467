#!/bin/sh
# Starts the tool with live demo traffic: the traffic generator writes VISA calls into the product's
# trace segment in the background, the tool starts with tracing on, and the generator stops when the
# window closes. Without a display the tool runs under a virtual X server.
set -eu

BUILD=${1:-build}
TOOL="$BUILD/app/ZelVisaTraceTool"
TRAFFIC="$BUILD/tools/zel-traffic"

for binary in "$TOOL" "$TRAFFIC"; do
    if [ ! -x "$binary" ]; then
        echo "run-demo: $binary is missing; run 'make build' first" >&2
        exit 1
    fi
done

"$TRAFFIC" --enable --processes 2 --threads 2 --rate 20 --quiet &
GENERATOR=$!
trap 'kill "$GENERATOR" 2>/dev/null || true; wait "$GENERATOR" 2>/dev/null || true' EXIT INT TERM

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    "$TOOL" -t
else
    echo "run-demo: no display found, running under xvfb-run" >&2
    xvfb-run -a "$TOOL" -t
fi
