#!/usr/bin/env bash
# Runs the Linux program and the Windows program (under Wine) with the same
# arguments and the same standard input, and fails unless both exit alike
# and write the same bytes on standard output.
#
#   same-output.sh LINUX_PROGRAM WINDOWS_PROGRAM INPUT_FILE ARGUMENT...
#
# Wine is $VANTOR_WINE (default: wine), in the prefix $WINEPREFIX.
set -uo pipefail
if [[ $# -lt 3 ]]; then
    echo "usage: same-output.sh LINUX_PROGRAM WINDOWS_PROGRAM INPUT_FILE ARGUMENT..." >&2
    exit 2
fi
linux="$1"
windows="$2"
input="$3"
shift 3
if [[ ! -x "$linux" ]]; then
    echo "same-output: $linux is missing: build the Linux flavour first (build/)" >&2
    exit 1
fi

out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
"$linux" "$@" < "$input" > "$out/linux" 2> "$out/linux.err"
linux_status=$?
"${VANTOR_WINE:-wine}" "$windows" "$@" < "$input" > "$out/windows" 2> "$out/windows.err"
windows_status=$?

if [[ $linux_status -ne $windows_status ]]; then
    echo "same-output: exit status $linux_status on Linux, $windows_status on Windows" >&2
    cat "$out/windows.err" >&2
    exit 1
fi
if ! cmp "$out/linux" "$out/windows"; then
    echo "same-output: the outputs differ (Linux, then Windows):" >&2
    od -A d -t x1 "$out/linux" | head -20 >&2
    od -A d -t x1 "$out/windows" | head -20 >&2
    exit 1
fi
echo "same-output: $(wc -c < "$out/linux") identical bytes"
