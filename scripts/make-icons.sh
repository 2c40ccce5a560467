#!/usr/bin/env bash
# Converts every resources/icons/src/<name>.svg into resources/icons/<name>.ico with a 16x16 and a
# 32x32 image. A developer tool: the .ico files are kept in the repository, so the build needs none
# of this. Needs the Debian packages librsvg2-bin (rsvg-convert) and icoutils (icotool).
set -euo pipefail
cd "$(dirname "$0")/../resources/icons"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for svg in src/*.svg; do
    name=$(basename "$svg" .svg)
    for size in 16 32; do
        rsvg-convert -w "$size" -h "$size" -o "$work/$name-$size.png" "$svg"
    done
    icotool -c -o "$name.ico" "$work/$name-16.png" "$work/$name-32.png"
done
echo "Converted $(ls src/*.svg | wc -l) icons."
