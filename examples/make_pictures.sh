#!/bin/sh
# Bakes the pictures, the numbered sequence and the movie that the image examples and the poster
# show, into examples/pictures.
#
#     examples/make_pictures.sh [build/velto [DIRECTORY]]
#
# The movie needs oiiotool (Debian: openimageio-tools).
set -eu
here=$(dirname "$0")
velto=${1:-$here/../build/velto}
pictures=${2:-$here/pictures}
mkdir -p "$pictures"

"$velto" bake "$here/nodes/gradientplacement.json" -o "$pictures/picture.png" --size 256
"$velto" bake "$here/materials/artwork/sunset.json" -o "$pictures/sunset.png" --size 512 --supersample 2
"$velto" bake "$here/flames.json" -o "$pictures/flames_####.png" --size 128 --frames 0-11 --fps 12
oiiotool "$pictures"/flames_0000.png $(seq -f "$pictures/flames_%04.0f.png --siappend" 1 11) \
    --attrib:type=float FramesPerSecond 12 -d uint8 -o "$pictures/flames.gif"
