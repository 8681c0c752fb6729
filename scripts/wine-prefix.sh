#!/usr/bin/env bash
# Prepares a private, headless Wine prefix: 64-bit, graphics driver "null",
# so windows and common controls exist without an X server.
#
#   bash scripts/wine-prefix.sh [PREFIX]     (default: build/wineprefix)
#
# Idempotent: a prepared prefix is recognised by its stamp file and the
# script returns at once. Source it (". scripts/wine-prefix.sh DIR") to also
# get WINEPREFIX, WINEARCH, WINEDEBUG and WINEDLLOVERRIDES in your shell.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
prefix="${1:-$root/build/wineprefix}"
mkdir -p "$(dirname "$prefix")"
prefix="$(cd "$(dirname "$prefix")" && pwd)/$(basename "$prefix")"

export WINEPREFIX="$prefix"
export WINEARCH=win64
export WINEDEBUG=-all
# No Mono or Gecko installers: the client needs neither, and without this
# wineboot waits for them.
export WINEDLLOVERRIDES="mscoree,mshtml="

stamp="$prefix/.vantor-headless"
if [[ ! -f "$stamp" ]]; then
    mkdir -p "$prefix"
    (
        # Two builds preparing the same prefix at once take turns.
        flock 9
        if [[ ! -f "$stamp" ]]; then
            wineboot -i >/dev/null 2>&1 || true
            wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
            # The registry reaches disk when the server exits.
            wineserver -w
            if ! grep -q '"Graphics"="null"' "$prefix/user.reg"; then
                echo "wine-prefix: could not set the null graphics driver in $prefix" >&2
                exit 1
            fi
            touch "$stamp"
        fi
    ) 9>"$prefix.lock"
fi
