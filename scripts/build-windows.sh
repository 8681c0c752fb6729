#!/usr/bin/env bash
# Builds the Windows flavour: every program and test as a 32-bit Windows
# program (PE32, i386), cross-compiled by MinGW-w64 and statically linked.
#
#   bash scripts/build-windows.sh [DIR]      (default: build-windows)
#
# Installs what is missing first (scripts/setup.sh, as root), then leaves
# vantor.exe, vantor-admin.exe and vantor-relay.exe at the top of DIR. The
# tests run under Wine: cd DIR && ctest.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
dir="${1:-build-windows}"

bash scripts/setup.sh

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}"
cmake --build "$dir" -j"${VANTOR_JOBS:-2}"

cp "$dir/app/vantor.exe" "$dir/admin/vantor-admin.exe" "$dir/relay/vantor-relay.exe" "$dir/"
echo "build-windows: $dir/vantor.exe, $dir/vantor-admin.exe, $dir/vantor-relay.exe"
