#!/usr/bin/env bash
# The system's installer runs this after it has copied the tool's folder. Links the report script, the manual
# pages and the completions to where users expect them. Existing folders and files stay as they are.
set -euo pipefail
# shellcheck source=packaging/macos/payload.sh
source "$(dirname "${BASH_SOURCE[0]}")/payload.sh"

# make_folder PATH: creates the folder and its missing parents, and records each in $made_folders.
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
