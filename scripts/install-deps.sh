#!/usr/bin/env bash
# Installs, from Debian 12's packages, whatever the build, the tests and the
# demo need and this machine lacks. Safe to run again; asks apt only when
# something is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config
    qt6-base-dev qt6-base-dev-tools libgl-dev qt6-svg-dev libqt6sql6-sqlite
    qt6-webengine-dev qt6-declarative-dev
    fonts-comfortaa fonts-jura
    libplist-dev libplist-utils libudev-dev libblkid-dev
    libbenchmark-dev
    libssl-dev zip python3-aiosmtpd
    python3
    dbus-daemon dbus-bin
    clang libclang-rt-14-dev
    poppler-utils xvfb xauth desktop-file-utils appstream
    at-spi2-core python3-pyatspi xdotool
    zlib1g-dev smartmontools e2fsprogs fdisk gdisk dosfstools memtester
    python3-prometheus-client systemd
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
