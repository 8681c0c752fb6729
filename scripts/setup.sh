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
    # The secure protocol: signatures, sealed deltas, password hashing.
    libsodium-dev
    # The PDF report (reports/): libharu writes it, libxml2 reads layouts;
    # its tests read the PDFs back with poppler's pdftotext and pdffonts.
    libhpdf-dev libxml2-dev poppler-utils
    # The Debian packages (scripts/package-debian.sh) and their checks: the
    # service unit (systemd-analyze) and the man pages (groff).
    systemd groff-base man-db
)
# The Windows flavour (scripts/build-windows.sh): MinGW-w64 for 32-bit
# Windows, GoogleTest's sources to build the tests with it, Python for the
# icon, zip for the package, and Wine's 32-bit half (i386) to run them.
windows_packages=(g++-mingw-w64-i686 googletest python3 zip wine32:i386)

# Prints the packages of the arguments that are not installed.
missing_of() {
    for package in "$@"; do
        # "install ok installed", not merely known (removed packages keep a status).
        if [[ "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" != "install ok installed" ]]; then
            echo "$package"
        fi
    done
}
mapfile -t missing < <(missing_of "${packages[@]}")
mapfile -t missing_windows < <(missing_of "${windows_packages[@]}")
if [[ ${#missing[@]} -eq 0 && ${#missing_windows[@]} -eq 0 ]]; then
    exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
    echo "setup: missing packages: ${missing[*]} ${missing_windows[*]}; run this script as root" >&2
    exit 1
fi
echo "setup: installing ${missing[*]} ${missing_windows[*]}"
export DEBIAN_FRONTEND=noninteractive
if ! dpkg --print-foreign-architectures | grep -qx i386; then
    dpkg --add-architecture i386
fi
# One index that fails to download (a mirror in the middle of a sync) is no
# reason to stop: apt keeps the others, and the installs below say whether
# what they need was there.
apt-get update || echo "setup: apt-get update reported errors; trying the install anyway" >&2
if [[ ${#missing[@]} -gt 0 ]]; then
    apt-get install -y --no-install-recommends "${missing[@]}"
fi
# Without them only the Windows flavour is lost: its build or its tests
# fail later and say so, the Linux builds go on. One at a time, so that
# wine32, whose i386 libraries must match the installed amd64 versions
# exactly, can't keep the cross compiler from being installed.
for package in "${missing_windows[@]}"; do
    if ! apt-get install -y --no-install-recommends "$package"; then
        echo "setup: could not install $package: the Windows flavour will not build or run its tests" >&2
    fi
done
