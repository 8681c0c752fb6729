#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it
# (.clang-format). To format the tree: bash scripts/check-format.sh --fix
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t files < <(git ls-files -- '*.h' '*.cpp' '*.inc')
if [[ "${1:-}" == "--fix" ]]; then
    clang-format -i "${files[@]}"
    exit 0
fi
if ! clang-format --dry-run -Werror "${files[@]}" 2>/tmp/check-format.$$; then
    grep -o '^[^:]*:[0-9]*' /tmp/check-format.$$ | sort -u -t: -k1,1 | sed 's/$/: not formatted/' >&2
    rm -f /tmp/check-format.$$
    echo "check-format: run 'bash scripts/check-format.sh --fix'" >&2
    exit 1
fi
rm -f /tmp/check-format.$$
echo "check-format: ${#files[@]} files formatted"
