#!/usr/bin/env bash
# Installs the tool from its package: install.sh PACKAGE
set -euo pipefail
# shellcheck source=packaging/macos/payload.sh
source "$(dirname "${BASH_SOURCE[0]}")/payload.sh"

need_usage 1 1 PACKAGE "$@"
need_file "$1"
need_root
need_tool installer pkgutil
signature=$(pkgutil --check-signature "$1") || true
[[ $signature == *"($team)"* ]] || fail "$1 is not signed by team $team"
installer -pkg "$1" -target /
"$install_directory/KXTool" -getVersion
printf '\n'
