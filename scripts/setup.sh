#!/usr/bin/env bash
# Installs what building, testing and running Kelvane needs and this machine lacks: Debian 12 packages, with sudo when
# not root. Does nothing, and asks for nothing, when everything is there.
#
#   scripts/setup.sh [--window-tests]     also what scripts/window-test.py needs
set -euo pipefail

packages=(
    # building
    cmake ninja-build g++ clang ccache pkg-config
    qt6-base-dev qt6-svg-dev libplist-dev nlohmann-json3-dev libcli11-dev
    libcurl4-openssl-dev zlib1g-dev
    # testing and measuring
    libgtest-dev libbenchmark-dev libsystemd-dev libclang-rt-14-dev clang-format clang-tidy
    dbus dbus-daemon python3 procps xvfb locales
    # running
    polkitd restic rclone zip
)
if [ "${1:-}" = --window-tests ]; then
    packages+=(at-spi2-core python3-pyatspi xdotool)
fi

missing=()
for package in "${packages[@]}"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)" != installed ]; then
        missing+=("$package")
    fi
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "These packages are missing, and there is no sudo to install them with: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
