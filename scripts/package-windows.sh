#!/usr/bin/env bash
# Makes the Windows package: build-windows/vantor-windows.zip, holding
#
#   vantor/vantor.exe, vantor-admin.exe, vantor-relay.exe   the programs
#   vantor/conf, data, userkey, fonts, ...                  a ready demo installation
#
# so that unpacking it and double-clicking vantor.exe starts the client on
# the demo data (password in README.md). The Windows programs come from
# scripts/build-windows.sh; the demo data is written by the Linux
# vantor-admin (build/admin/vantor-admin, built here if missing), whose
# files are byte for byte those the Windows one writes.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
out=build-windows

bash scripts/build-windows.sh "$out"

admin="${VANTOR_ADMIN_PATH:-$root/build/admin/vantor-admin}"
if [[ ! -x "$admin" ]]; then
    cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
    cmake --build build -j"${VANTOR_JOBS:-2}" --target vantor-admin
    admin="$root/build/admin/vantor-admin"
fi

stage="$(mktemp -d)"
trap 'rm -rf "$stage"' EXIT
VANTOR_ADMIN_PATH="$admin" bash scripts/new-workdir.sh "$stage/vantor"
cp "$out/vantor.exe" "$out/vantor-admin.exe" "$out/vantor-relay.exe" "$stage/vantor/"
# The build keeps its debugging information; the package goes without.
i686-w64-mingw32-strip "$stage"/vantor/*.exe

command -v zip >/dev/null || { echo "package-windows: zip is missing (run scripts/setup.sh)" >&2; exit 1; }
rm -f "$out/vantor-windows.zip"
(cd "$stage" && zip -qr -X "$root/$out/vantor-windows.zip" vantor)
echo "package-windows: $out/vantor-windows.zip"
