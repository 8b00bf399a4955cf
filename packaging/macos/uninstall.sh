#!/usr/bin/env bash
# Removes the tool, with its configuration, its log and its documents: uninstall.sh
set -euo pipefail
# shellcheck source=packaging/macos/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need_usage 0 "" "$@"
need_root
need_tool pkgutil
[[ -d $install_directory ]] || fail "the tool is not installed in $install_directory"
# The folder holds these three and no more; anything else in it is not ours to remove.
rm -f "$install_directory/KXTool" "$install_directory/configfile.txt" "$install_directory/log.txt"
for document in "${documents[@]}"; do rm -f "${document#*=}"; done
rmdir "$install_directory" || fail "there is more in $install_directory: $(ls -A "$install_directory")"
pkgutil --forget "$identifier"
