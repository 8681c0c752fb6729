#!/usr/bin/env bash
# Installs what is missing, builds and runs every test in three flavours:
# the normal build (build/, with the Winelib client and the GUI tests), the
# Windows flavour (build-windows/, 32-bit Windows programs under Wine, see
# scripts/build-windows.sh) and the sanitizer build (build-asan/,
# AddressSanitizer + UndefinedBehaviorSanitizer).
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

# After the normal build: some of its tests compare with the Linux
# vantor-admin in build/. The Windows programs are always built; their tests
# need Wine able to run 32-bit programs (wine32, an i386 package): where
# apt could not install it, they are reported as not run instead of failing
# one by one.
start=$SECONDS
if bash scripts/build-windows.sh build-windows; then
    if [[ "$(wine build-windows/admin/vantor-admin.exe --version 2>/dev/null)" == vantor-admin* ]]; then
        (cd build-windows && ctest --output-on-failure -j"$jobs") || status=1
    else
        echo "test.sh: the Windows flavour is built, but 32-bit Wine can't run it here (is wine32 installed?): its tests were not run"
    fi
else
    status=1
fi
echo "test.sh: the Windows flavour took $((SECONDS - start)) s"

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
