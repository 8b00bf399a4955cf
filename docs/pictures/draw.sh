#!/usr/bin/env bash
# Draws each picture from the text beside this script: draw.sh DIRECTORY
# Run as `./kx docs`, which draws them here.
set -euo pipefail
sources=$(dirname "${BASH_SOURCE[0]}")
[[ $# -eq 1 && -d $1 ]] || {
  printf 'usage: draw.sh DIRECTORY\n' >&2
  exit 2
}
for source in "$sources"/*.dot; do
  dot -Tsvg -o "$1/$(basename "$source" .dot).svg" "$source"
done
for source in "$sources"/*.msc; do
  picture=$1/$(basename "$source" .msc).svg
  mscgen -T svg -i "$source" -o "$picture"
  # mscgen leaves the background open, which dark pages show.
  sed -i 's|geometricPrecision">$|&<rect width="100%" height="100%" fill="white"/>|' "$picture"
done
