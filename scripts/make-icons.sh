#!/usr/bin/env bash
# Converts every resources/icons/src/<name>.svg into resources/icons/<name>.ico with images of 16, 24,
# 32, 48 and 64 pixels, so that tool bar and menu icons stay sharp at a display scale of 2 or 3. The
# first image stays 16 pixels: that is what a plain pixmap of the file shows. A developer tool: the
# .ico files are kept in the repository. Uses render-icon from a build directory (default: build).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
cmake --build "$build" --target render-icon >/dev/null
cd "$root/resources/icons"
for svg in src/*.svg; do
    "$build/resources/render-icon" ico "$svg" "$(basename "$svg" .svg).ico" 16 24 32 48 64 2>/dev/null
done
echo "Converted $(ls src/*.svg | wc -l) icons."
