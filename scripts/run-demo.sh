#!/usr/bin/env bash
# Installs what is missing, builds, and runs the demo installation: the
# client under Wine (headless, non-interactive) in a fresh copy of demo/,
# then vantor-admin on the demo's configuration list.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"${VANTOR_JOBS:-2}"

client="$root/build/app/vantor.exe.so"
admin="$root/build/admin/vantor-admin"
for program in "$client" "$admin"; do
    if [[ ! -x "$program" ]]; then
        echo "run-demo: $program was not built" >&2
        exit 1
    fi
done

# The client writes everything relative to its working directory; each run
# starts from a clean copy of the demo installation.
workdir="$root/build/demo-run"
rm -rf "$workdir"
cp -a "$root/demo" "$workdir"

source "$root/scripts/wine-prefix.sh" "$root/build/wineprefix"
export VANTOR_NONINTERACTIVE=1

echo "== vantor (in $workdir)"
status=0
(cd "$workdir" && wine "$client") || status=$?
echo "== vantor exited with status $status"

echo "== vantor-admin parse-list conf/cro.vtr"
(cd "$workdir" && "$admin" parse-list conf/cro.vtr)
exit $status
