#!/usr/bin/env bash
# Installs what is missing, builds, and runs the demo installation: the
# client under Wine (headless, non-interactive) in a fresh working directory
# made from demo/ (its start-up builds the workspace and makes the first
# admin's user row), then vantor-admin on that installation, then
# replication: a relay and two headless clients (replication-demo.sh) in
# build/replication-demo/, with the relay on $VANTOR_DEMO_PORT (default
# 8888).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"${VANTOR_JOBS:-2}"

client="$root/build/app/vantor.exe.so"
admin="$root/build/admin/vantor-admin"
relay="$root/build/relay/vantor-relay"
for program in "$client" "$admin" "$relay"; do
    if [[ ! -x "$program" ]]; then
        echo "run-demo: $program was not built" >&2
        exit 1
    fi
done

# The client writes everything relative to its working directory; each run
# starts from a clean copy of the demo installation.
workdir="$root/build/demo-run"
bash "$root/scripts/new-workdir.sh" "$workdir"

source "$root/scripts/wine-prefix.sh" "$root/build/wineprefix"
export VANTOR_NONINTERACTIVE=1

echo "== vantor (in $workdir)"
status=0
# The client waits at its login window; headless, nobody types the
# password, so the window is closed from outside as a person would, and
# the client ends normally.
closer="$root/build/tests/app/close-client.exe.so"
(cd "$workdir" && { wine "$client" & client_pid=$!
    wine "$closer" "Vantor 3.0" >/dev/null 2>&1
    wait $client_pid; }) || status=$?
echo "== vantor exited with status $status"

echo "== vantor-admin config check"
(cd "$workdir" && "$admin" config check)
echo "== vantor-admin sheet list"
(cd "$workdir" && "$admin" sheet list)

echo "== replication: a relay and two headless clients"
bash "$root/scripts/replication-demo.sh" "$root/build/replication-demo" "${VANTOR_DEMO_PORT:-8888}"
exit $status
