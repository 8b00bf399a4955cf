#!/usr/bin/env bash
# Run by the system's installer when the tool's folder is in its place: links the manual page and the
# completions to where they are looked for. Folders that are there already stay as they are, and so does
# whatever lies in a link's place.
set -euo pipefail
# shellcheck source=packaging/macos/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# make_folder PATH: makes it and those above it that are missing, and notes which.
make_folder() {
  [[ ! -d $1 ]] || return 0
  make_folder "$(dirname "$1")"
  mkdir -m 755 "$1"
  printf '%s\n' "$1" >>"$made_folders"
}

for row in "${payload[@]}"; do
  read -r _ name _ link <<<"$row"
  [[ -n $link && ! -e $link && ! -L $link ]] || continue
  make_folder "$(dirname "$link")"
  ln -s "$install_directory/$name" "$link"
done
