#!/usr/bin/env bash
# Installs what the build and the tests need on Debian 12 (run as root).
# Returns at once when everything is already installed.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    libgtest-dev libgmock-dev libbenchmark-dev
    libsqlite3-dev liblmdb-dev
    # The relay benchmark (bench/relay_bench.cpp) compares with Redis.
    redis-server redis-tools
    clang-14 libfuzzer-14-dev libclang-rt-14-dev
    # The layout check of the tree (scripts/check-format.sh).
    clang-format git
    wine wine64 wine64-tools libwine-dev fonts-wine
    xvfb xauth
    fonts-liberation fonts-dejavu-core fonts-dejavu-extra
    # The Debian packages (scripts/package-debian.sh) and their checks: the
    # service unit (systemd-analyze) and the man pages (groff).
    systemd groff-base man-db
)

missing=()
for package in "${packages[@]}"; do
    # "install ok installed", not merely known (removed packages keep a status).
    if [[ "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" != "install ok installed" ]]; then
        missing+=("$package")
    fi
done
if [[ ${#missing[@]} -eq 0 ]]; then
    exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
    echo "setup: missing packages: ${missing[*]}; run this script as root" >&2
    exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}"
