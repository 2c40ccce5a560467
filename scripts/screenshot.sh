#!/bin/sh
# Takes docs/screenshot.png of the real program: the tool with -t on a virtual X server while the
# traffic generator writes into the trace segment. A developer's script; it needs ImageMagick's
# `import` and `convert`, which the build does not. The settings go to a temporary folder, so the
# user's own are not touched.
set -eu

BUILD=${1:-build}
OUT=${2:-docs/screenshot.png}
DISPLAY_NUMBER=${DISPLAY_NUMBER:-97}
CONFIG=$(mktemp -d)
mkdir -p "$CONFIG/Zelbrook" "$(dirname "$OUT")"
cat > "$CONFIG/Zelbrook/ZelVisaTraceTool.conf" <<'CONF'
[MainWindow]
size=@Size(1180 560)
pos=@Point(10 10)
CONF

Xvfb ":$DISPLAY_NUMBER" -screen 0 1200x600x24 >/dev/null 2>&1 &
XVFB=$!
"$BUILD/tools/zel-traffic" --enable --processes 1 --threads 2 --rate 15 --seed 3 --quiet &
GENERATOR=$!
trap 'kill "$TOOL" "$GENERATOR" "$XVFB" 2>/dev/null || true; rm -rf "$CONFIG"' EXIT
sleep 1

DISPLAY=":$DISPLAY_NUMBER" XDG_CONFIG_HOME="$CONFIG" "$BUILD/program/ZelVisaTraceTool" -t &
TOOL=$!
sleep 6
DISPLAY=":$DISPLAY_NUMBER" import -window root "$OUT"
convert "$OUT" -crop 1180x560+10+10 +repage "$OUT"
echo "wrote $OUT"
