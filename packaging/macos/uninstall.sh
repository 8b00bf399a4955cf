#!/usr/bin/env bash
# Removes the tool with its configuration, its logs, its documents and the links to them: uninstall.sh
set -euo pipefail
# shellcheck source=packaging/macos/payload.sh
source "$(dirname "${BASH_SOURCE[0]}")/payload.sh"

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
  # Deepest first. A folder that is in use by others stays.
  sort -r "$made_folders" | while read -r folder; do rmdir "$folder" 2>/dev/null || true; done
fi
# The tool, its configuration, its log and the logs that newsyslog has rotated. Other files are not ours to remove.
rm -f "$made_folders" "$install_directory"/{KXTool,configfile.txt,log.txt} "$install_directory"/log.txt.[0-9]
rmdir "$install_directory" || fail "cannot remove $install_directory, because it contains other files: $(ls -A "$install_directory")"
pkgutil --forget "$identifier"
