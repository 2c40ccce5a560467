#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need; skips what is already there.
set -euo pipefail

packages=(
    build-essential cmake
    qtbase5-dev qtbase5-dev-tools
    libbenchmark-dev
    xvfb xauth
    python3 python3-pyvisa python3-pyvisa-py
    libqt5svg5-dev desktop-file-utils appstream
    libsqlite3-dev
    lintian pkg-config
)
# The fuzzers need clang and its libFuzzer runtime; only `make fuzz` asks for them.
if [ "${1:-}" = fuzz ]; then
    packages+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
