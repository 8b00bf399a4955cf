#!/usr/bin/env bash
# Removes the tool, with its configuration, its log, its documents and the links to them: uninstall.sh
set -euo pipefail
# shellcheck source=packaging/macos/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need_usage 0 0 "" "$@"
need_root
need_tool pkgutil
[[ -d $install_directory ]] || fail "the tool is not installed in $install_directory"
for row in "${payload[@]}"; do
  read -r _ name _ link <<<"$row"
  if [[ -n $link && $(readlink "$link") == "$install_directory/$name" ]]; then rm "$link"; fi
  rm -f "$install_directory/$name"
done
if [[ -f $made_folders ]]; then
  # The deepest first. Where others have put something, the folder stays.
  sort -r "$made_folders" | while read -r folder; do rmdir "$folder" 2>/dev/null || true; done
fi
# The folder holds these and no more; anything else in it is not ours to remove.
rm -f "$made_folders" "$install_directory/KXTool" "$install_directory/configfile.txt" "$install_directory/log.txt"
rmdir "$install_directory" || fail "there is more in $install_directory: $(ls -A "$install_directory")"
pkgutil --forget "$identifier"
