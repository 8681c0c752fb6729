#!/usr/bin/env bash
# Builds the Debian packages of the native programs from the built tree:
#
#   bash scripts/package-debian.sh [OUT]      (default OUT: build/)
#
#   vantor-relay_VERSION_ARCH.deb  the relay, its man page and a systemd
#                                  service: system user vantor-relay, store in
#                                  /var/lib/vantor-relay, log to the journal,
#                                  options in /etc/default/vantor-relay
#   vantor-admin_VERSION_ARCH.deb  the operators' tool and its man page
#
# The programs are $VANTOR_ADMIN_PATH and $VANTOR_RELAY_PATH, or the ones in
# build/; the version is the one they were built with. Plain dpkg-deb from
# a staging tree under OUT: no debhelper, no root.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="${1:-$root/build}"
admin="${VANTOR_ADMIN_PATH:-$root/build/admin/vantor-admin}"
relay="${VANTOR_RELAY_PATH:-$root/build/relay/vantor-relay}"
for program in "$admin" "$relay"; do
    if [[ ! -x "$program" ]]; then
        echo "package-debian: $program is not built" >&2
        exit 1
    fi
done
version=$("$relay" --version | awk '{print $2}')
if [[ "$("$admin" --version | awk '{print $2}')" != "$version" ]]; then
    echo "package-debian: $admin and $relay are of different versions" >&2
    exit 1
fi
arch=$(dpkg --print-architecture)
staging="$out/package-staging"
rm -rf "$staging"
mkdir -p "$out"

# stage NAME PROGRAM: the program and its man page (the version filled in).
stage() {
    local name="$1" program="$2" tree="$staging/$1"
    install -d "$tree/DEBIAN" "$tree/usr/bin" "$tree/usr/share/man/man1" "$tree/usr/share/doc/$name"
    install -m 0755 "$program" "$tree/usr/bin/$name"
    strip --strip-unneeded "$tree/usr/bin/$name"
    sed "s/\"Vantor [0-9.]*\"/\"Vantor $version\"/" "$root/docs/man/$name.1" | gzip -9n > "$tree/usr/share/man/man1/$name.1.gz"
    printf 'Vantor %s\nBuilt from the Vantor source tree by scripts/package-debian.sh.\n' "$version" \
        > "$tree/usr/share/doc/$name/README"
}

# control NAME DESCRIPTION...: DEBIAN/control, with the installed size.
control() {
    local name="$1" tree="$staging/$1"
    shift
    local size
    size=$(du -sk --exclude=DEBIAN "$tree" | cut -f1)
    {
        echo "Package: $name"
        echo "Version: $version"
        echo "Architecture: $arch"
        echo "Maintainer: Vantor operators <root@localhost>"
        echo "Installed-Size: $size"
        echo "Depends: libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1"
        echo "Section: misc"
        echo "Priority: optional"
        echo "Description: $1"
        shift
        for line in "$@"; do echo " $line"; done
    } > "$tree/DEBIAN/control"
}

stage vantor-admin "$admin"
control vantor-admin "Vantor operators' tool" \
    "vantor-admin makes Vantor installations (init), checks configurations," \
    "makes user keys, works on records as a headless client, synchronises" \
    "with the relay and shows what a relay's store holds."

stage vantor-relay "$relay"
tree="$staging/vantor-relay"
install -D -m 0644 "$root/relay/vantor-relay.service" "$tree/lib/systemd/system/vantor-relay.service"
install -D -m 0644 "$root/relay/vantor-relay.default" "$tree/etc/default/vantor-relay"
echo /etc/default/vantor-relay > "$tree/DEBIAN/conffiles"
cat > "$tree/DEBIAN/postinst" <<'SCRIPT'
#!/bin/sh
# The service's own system user; systemd makes /var/lib/vantor-relay for it
# (StateDirectory). The service is enabled, not started: the operator sets
# the address in /etc/default/vantor-relay first.
set -e
if [ "$1" = configure ]; then
    if ! getent passwd vantor-relay > /dev/null; then
        useradd --system --user-group --home-dir /var/lib/vantor-relay --no-create-home \
            --shell /usr/sbin/nologin --comment "Vantor relay" vantor-relay
    fi
    if [ -d /run/systemd/system ]; then
        systemctl daemon-reload || true
        systemctl enable vantor-relay.service || true
    fi
fi
SCRIPT
cat > "$tree/DEBIAN/prerm" <<'SCRIPT'
#!/bin/sh
set -e
if [ "$1" = remove ] && [ -d /run/systemd/system ]; then
    systemctl stop vantor-relay.service || true
    systemctl disable vantor-relay.service || true
fi
SCRIPT
cat > "$tree/DEBIAN/postrm" <<'SCRIPT'
#!/bin/sh
# The store in /var/lib/vantor-relay stays, also on purge: it holds deltas
# that users have not collected yet.
set -e
if [ -d /run/systemd/system ]; then
    systemctl daemon-reload || true
fi
SCRIPT
chmod 0755 "$tree/DEBIAN/postinst" "$tree/DEBIAN/prerm" "$tree/DEBIAN/postrm"
control vantor-relay "Vantor relay server" \
    "vantor-relay stores the changes that the users of one Vantor" \
    "organisation send each other until each addressee collects them." \
    "Runs as the systemd service vantor-relay."

for name in vantor-admin vantor-relay; do
    # gzip: a fraction of the time of the default xz, for a few MB more.
    dpkg-deb --root-owner-group -Zgzip --build "$staging/$name" "$out/${name}_${version}_${arch}.deb" > /dev/null
    echo "package-debian: $out/${name}_${version}_${arch}.deb"
done
