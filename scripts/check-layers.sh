#!/usr/bin/env bash
# Fails when an include runs against the layer order of the tree.
#
# Each folder may include itself, the platform layer (foundation/platform/,
# the bottom of every program) and the folders listed for it below, all of
# which are lower layers. Operating-system headers belong to the platform
# layer (foundation/platform/) and, for windows, to the toolkit's native side
# (toolkit/win32/); every other folder reaches the system through them, so
# that the same sources build natively, with Winelib and with MinGW.
#
#   bash scripts/check-layers.sh [ROOT]     (default: the repository)
set -euo pipefail
root="${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}"
cd "$root"

declare -A allowed=(
    [foundation/platform]=""
    [foundation]=""
    [structures]="foundation"
    [storage]="foundation structures"
    [sync]="foundation structures storage"
    [toolkit]="foundation structures storage"
    [toolkit/win32]="foundation toolkit"
    [sheets]="foundation structures storage sync toolkit"
    [reports]="foundation structures storage sync toolkit sheets"
    [app]="foundation structures storage sync toolkit sheets reports"
    [relay]="foundation structures storage sync"
    [admin]="foundation structures storage sync toolkit sheets reports app"
)

# Headers of the operating system, by who may include them.
windows_headers='windows|winsock2|ws2tcpip|commctrl|shellapi|shlobj|mmsystem|process|io|direct'
posix_headers='unistd|fcntl|dirent|pthread|signal|termios|poll|netdb|arpa/[a-z_]+|netinet/[a-z_]+|sys/[a-z_]+'

# The folder a path belongs to: its first component, or the two-part name of
# the platform layer and the toolkit's native side.
folder_of() {
    case "$1" in
        foundation/platform/*) echo foundation/platform ;;
        toolkit/win32/*) echo toolkit/win32 ;;
        */*) echo "${1%%/*}" ;;
    esac
}

failures=0
fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

while IFS= read -r file; do
    from=$(folder_of "$file")
    [[ -v "allowed[$from]" ]] || continue
    while IFS=: read -r line text; do
        if [[ $text =~ ^[[:space:]]*#[[:space:]]*include[[:space:]]*\"([^\"]+)\" ]]; then
            target="${BASH_REMATCH[1]}"
            # A path relative to the including file ("platform/Platform.h").
            [[ -f $(dirname "$file")/$target ]] && target="$(dirname "$file")/$target"
            [[ $target == */* ]] || continue
            to=$(folder_of "$target")
            if [[ $to != "$from" && $to != foundation/platform && " ${allowed[$from]} " != *" $to "* ]]; then
                fail "$file:$line: $from may not include $target ($to is not below $from)"
            fi
        elif [[ $text =~ ^[[:space:]]*#[[:space:]]*include[[:space:]]*\<([^\>]+)\.h\> ]]; then
            header="${BASH_REMATCH[1]}"
            header_lower="${header,,}"
            if [[ $header_lower =~ ^($windows_headers)$ ]]; then
                [[ $from == toolkit/win32 || $file == foundation/platform/*Win32* ]] ||
                    fail "$file:$line: <$header.h> is a Windows header: only foundation/platform/*Win32* and toolkit/win32/ include it"
            elif [[ $header =~ ^($posix_headers)$ ]]; then
                [[ $from == foundation/platform ]] ||
                    fail "$file:$line: <$header.h> is an operating-system header: only foundation/platform/ includes it"
            fi
        fi
    done < <(grep -n '#[[:space:]]*include' "$file" || true)
done < <(git ls-files -- '*.h' '*.cpp' '*.inc' 2>/dev/null || find . -name '*.h' -o -name '*.cpp' -o -name '*.inc')

if [[ $failures -ne 0 ]]; then
    echo "check-layers: $failures include(s) against the layer order" >&2
    exit 1
fi
echo "check-layers: every include follows the layer order"
