#!/usr/bin/env bash
# A picture of a Win32 program's window as a user sees it: runs the program
# under xvfb-run with Wine's X11 driver, in a prefix of its own
# (build/wineprefix-x11, see wine-prefix.sh), waits for its window of the
# given title and writes that window as a PNG. The program runs in the
# current directory and is ended after the picture.
#
#   bash scripts/screenshot.sh OUT.png TITLE PROGRAM [ARGUMENT...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [[ $# -lt 3 ]]; then
    echo "usage: screenshot.sh OUT.png TITLE PROGRAM [ARGUMENT...]" >&2
    exit 2
fi
out="$(realpath -m "$1")"
title="$2"
shift 2

source "$root/scripts/wine-prefix.sh" "$root/build/wineprefix-x11" x11
# Alerts print their text and take OK instead of waiting for a click.
export VANTOR_NONINTERACTIVE=1

# In the virtual display: start the program, wait until a window of the
# title is mapped (a minute at most; hidden windows may share the title),
# give it a moment to paint, take that window.
xvfb-run -a -s "-screen 0 1024x768x24" bash -c '
    out="$1"; title="$2"; shift 2
    wine "$@" >/dev/null 2>&1 &
    window=
    for _ in $(seq 600); do
        for id in $(xwininfo -root -tree | grep -F "\"$title\"" | awk "{print \$1}"); do
            if xwininfo -id "$id" | grep -q IsViewable; then window=$id; fi
        done
        [[ -n "$window" ]] && break
        sleep 0.1
    done
    sleep 2
    status=0
    import -window "${window:-root}" "$out" || status=$?
    wineserver -k
    exit $status
' screenshot "$out" "$title" "$@"
echo "screenshot: $out"
