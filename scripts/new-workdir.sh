#!/usr/bin/env bash
# Makes a fresh working directory (one installation) from demo/:
#
#   bash scripts/new-workdir.sh DIR
#
# DIR is removed first. The prepared records and the first-admin key are
# written by scripts/make-demo-data.sh with the built vantor-admin
# ($VANTOR_ADMIN_PATH, or build/admin/vantor-admin). The PDF fonts are copied in under the names the
# reports load: Debian's metric-compatible Liberation fonts stand in for
# Arial and Times New Roman, DejaVu Sans for Verdana and DejaVu Sans
# Condensed for Tahoma (scripts/setup.sh installs them).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [[ $# -ne 1 ]]; then
    echo "usage: new-workdir.sh DIR" >&2
    exit 2
fi
dir="$1"

rm -rf "$dir"
cp -a "$root/demo" "$dir"
rm -f "$dir/data/init/.gitkeep"
mkdir -p "$dir/fonts" "$dir/tmp" "$dir/export" "$dir/layout"
bash "$root/scripts/make-demo-data.sh" "$dir"

liberation=/usr/share/fonts/truetype/liberation
dejavu=/usr/share/fonts/truetype/dejavu
fonts=(
    "arial.ttf:$liberation/LiberationSans-Regular.ttf"
    "arialbold.ttf:$liberation/LiberationSans-Bold.ttf"
    "times.ttf:$liberation/LiberationSerif-Regular.ttf"
    "timesbold.ttf:$liberation/LiberationSerif-Bold.ttf"
    "tahoma.ttf:$dejavu/DejaVuSansCondensed.ttf"
    "tahomabold.ttf:$dejavu/DejaVuSansCondensed-Bold.ttf"
    "verdana.ttf:$dejavu/DejaVuSans.ttf"
    "verdanabold.ttf:$dejavu/DejaVuSans-Bold.ttf"
)
missing=0
for entry in "${fonts[@]}"; do
    name="${entry%%:*}"
    from="${entry#*:}"
    if [[ -f "$from" ]]; then
        # A copy, not a link: an installation may be moved to a machine
        # without these packages.
        cp "$from" "$dir/fonts/$name"
    else
        echo "new-workdir: $from is missing (run scripts/setup.sh); fonts/$name not installed" >&2
        missing=1
    fi
done
echo "new-workdir: $dir ready (user key userkey/admin.vuk, password in README.md)"
exit $missing
