#!/usr/bin/env bash
# Draws the main view's icon strips (status bar, small and large toolbar) with ImageMagick and
# writes them as magenta-keyed 24-bit BMP files beside this script. Run it after changing an icon;
# the BMP files are what the build uses.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Each icon is drawn at 64x64 on transparency, then scaled; edges are cut hard against magenta so
# that no pink fringe is left where the key colour meets the picture.
icon() {
    local name=$1
    shift
    convert -size 64x64 xc:none "$@" "$work/$name.png"
}

icon globe -fill '#2e8b3a' -stroke '#1d5e26' -strokewidth 3 -draw 'circle 32,32 32,6' \
    -fill none -stroke white -strokewidth 3 -draw 'ellipse 32,32 11,25 0,360' \
    -draw 'line 7,32 57,32' -draw 'line 12,19 52,19' -draw 'line 12,45 52,45'
icon offline -fill '#8c8c8c' -stroke '#5a5a5a' -strokewidth 3 -draw 'circle 32,32 32,6' \
    -fill none -stroke white -strokewidth 3 -draw 'ellipse 32,32 11,25 0,360' \
    -draw 'line 7,32 57,32' -stroke '#d22' -strokewidth 8 -draw 'line 12,52 52,12'
icon browse -fill '#dfe8f5' -stroke '#34507a' -strokewidth 4 -draw 'roundrectangle 6,8 58,44 4,4' \
    -fill '#34507a' -stroke none -draw 'rectangle 26,44 38,52' -draw 'rectangle 16,52 48,57' \
    -fill '#f0c040' -stroke '#a07810' -strokewidth 2 -draw 'rectangle 16,18 34,36' \
    -draw 'rectangle 30,22 48,38'
icon search -fill '#cfe3ff' -stroke '#2b4f86' -strokewidth 7 -draw 'circle 26,26 26,8' \
    -stroke '#6b4a1a' -strokewidth 11 -draw 'line 40,40 56,56'
icon down -fill '#2f9e44' -stroke '#1d6b2c' -strokewidth 3 \
    -draw 'polygon 22,6 42,6 42,30 56,30 32,58 8,30 22,30'
icon up -fill '#2f6fd0' -stroke '#1c4a90' -strokewidth 3 \
    -draw 'polygon 22,58 42,58 42,34 56,34 32,6 8,34 22,34'
icon library -stroke '#333' -strokewidth 2 -fill '#c0392b' -draw 'rectangle 8,10 20,56' \
    -fill '#2e86c1' -draw 'rectangle 22,6 34,56' -fill '#27ae60' -draw 'rectangle 36,12 46,56' \
    -fill '#f1c40f' -draw 'polygon 48,14 58,12 62,54 52,56'
icon theater -fill '#303030' -stroke '#101010' -strokewidth 3 -draw 'roundrectangle 4,10 60,54 6,6' \
    -fill white -stroke none -draw 'polygon 24,20 24,44 44,32'
icon console -fill '#1e1e1e' -stroke '#555' -strokewidth 3 -draw 'rectangle 4,8 60,56' \
    -fill none -stroke '#3ddc55' -strokewidth 5 -draw 'polyline 14,22 26,32 14,42' \
    -draw 'line 30,44 48,44'
icon hosts -stroke '#555' -strokewidth 4 -draw 'line 32,14 12,48' -draw 'line 32,14 52,48' \
    -draw 'line 12,48 52,48' -fill '#e67e22' -stroke '#8a4a10' -strokewidth 3 \
    -draw 'circle 32,14 32,4' -fill '#3498db' -stroke '#1f5f8b' -draw 'circle 12,48 12,38' \
    -fill '#2ecc71' -stroke '#1c7c44' -draw 'circle 52,48 52,38'
icon options -fill none -stroke '#505a66' -strokewidth 12 -draw 'circle 32,32 32,14' \
    -strokewidth 8 -draw 'line 32,2 32,62' -draw 'line 2,32 62,32' -draw 'line 11,11 53,53' \
    -draw 'line 53,11 11,53' -stroke '#7a8794' -strokewidth 10 -draw 'circle 32,32 32,20' \
    -fill '#eeeeee' -stroke none -draw 'circle 32,32 32,24'
icon folder -fill '#e8b830' -stroke '#9a7410' -strokewidth 3 \
    -draw 'polygon 4,14 24,14 30,20 60,20 60,54 4,54' -fill '#f6d468' -draw 'polygon 4,26 60,26 60,54 4,54'

strip() {
    local size=$1 out=$2
    shift 2
    local parts=()
    for name in "$@"; do
        convert "$work/$name.png" -resize "${size}x${size}" -channel A -threshold 50% +channel \
            -background magenta -flatten "$work/$name-$size.png"
        parts+=("$work/$name-$size.png")
    done
    convert "${parts[@]}" +append -type TrueColor "BMP3:$out"
}

strip 16 status.bmp search globe hosts down up folder
strip 16 toolbar_small.bmp globe offline browse search down up library theater console hosts options
strip 24 toolbar_large.bmp globe offline browse search down up library theater console hosts options
