#!/usr/bin/env bash
# Installs what is missing, builds and runs every test twice: the normal
# build (build/, with the Winelib client and the GUI tests) and the sanitizer
# build (build-asan/, AddressSanitizer + UndefinedBehaviorSanitizer).
#
# The sanitizer build is native only: Wine's preloader reserves fixed parts
# of the address space that ASan needs for its shadow memory, so a sanitized
# Winelib program does not start. Everything but the Win32 platform layer is
# covered natively.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh

jobs="${VANTOR_JOBS:-2}"
status=0

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs") || status=1
# The Debian packages of vantor-relay and vantor-admin (build/*.deb).
bash scripts/package-debian.sh build || status=1

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTOR_SANITIZE=ON -DVANTOR_WINELIB=OFF \
    -DVANTOR_BENCHMARKS=OFF
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure -j"$jobs") || status=1

if [[ $status -ne 0 ]]; then
    echo "test.sh: FAILED" >&2
else
    echo "test.sh: all tests passed"
fi
exit $status
