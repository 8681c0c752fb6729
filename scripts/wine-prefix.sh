#!/usr/bin/env bash
# Prepares a private Wine prefix, 64-bit. By default it is headless:
# graphics driver "null", so windows and common controls exist without an
# X server. With "x11" it is for pictures under Xvfb: the X11 driver, and
# Wine drawing the captions itself, as plain Xvfb has no window manager.
#
#   bash scripts/wine-prefix.sh [PREFIX] [null|x11]   (default: build/wineprefix null)
#
# Idempotent: a prepared prefix is recognised by its stamp file and the
# script returns at once. Source it (". scripts/wine-prefix.sh DIR") to also
# get WINEPREFIX, WINEARCH, WINEDEBUG and WINEDLLOVERRIDES in your shell.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
prefix="${1:-$root/build/wineprefix}"
driver="${2:-null}"
mkdir -p "$(dirname "$prefix")"
prefix="$(cd "$(dirname "$prefix")" && pwd)/$(basename "$prefix")"

export WINEPREFIX="$prefix"
export WINEARCH=win64
export WINEDEBUG=-all
# No Mono or Gecko installers: the client needs neither, and without this
# wineboot waits for them.
export WINEDLLOVERRIDES="mscoree,mshtml="

if [[ "$driver" == null ]]; then
    stamp="$prefix/.vantor-headless"
else
    stamp="$prefix/.vantor-x11"
fi
if [[ ! -f "$stamp" ]]; then
    mkdir -p "$prefix"
    (
        # Two builds preparing the same prefix at once take turns.
        flock 9
        if [[ ! -f "$stamp" ]]; then
            wineboot -i >/dev/null 2>&1 || true
            if [[ "$driver" == null ]]; then
                wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
            else
                wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
            fi
            # The registry reaches disk when the server exits.
            wineserver -w
            if [[ "$driver" == null ]] && ! grep -q '"Graphics"="null"' "$prefix/user.reg"; then
                echo "wine-prefix: could not set the null graphics driver in $prefix" >&2
                exit 1
            fi
            touch "$stamp"
        fi
    ) 9>"$prefix.lock"
fi

# Wine's own TrueType fonts (Debian: fonts-wine) are not found from a new
# prefix by this Wine: only its bitmap fonts are. Without Marlett the
# caption's minimize, maximize and close buttons come out as the letters
# "0 1 r", and without Tahoma, the dialog font, text falls back to a
# bitmap font that loses spaces ("show here" becomes "showhere"). Wine
# always loads what lies in the prefix's windows/Fonts, so they are linked
# there; also into prefixes made before this step.
fonts="$prefix/drive_c/windows/Fonts"
if [[ -d /usr/share/wine/fonts && -d "$fonts" ]]; then
    for font in /usr/share/wine/fonts/*.ttf; do
        [[ -e "$fonts/$(basename "$font")" ]] || ln -s "$font" "$fonts/"
    done
fi
