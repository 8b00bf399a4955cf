#!/usr/bin/env bash
# Builds the installer package of the signed tool: package.sh BINARY PACKAGE
set -euo pipefail
# shellcheck source=packaging/macos/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need_usage 2 "BINARY PACKAGE" "$@"
binary=$1 package=$2
need_file "$binary"
[[ $package == *.pkg ]] || fail "the package's name must end in .pkg, not $package"
need_tool codesign pkgbuild security
codesign --verify --strict --all-architectures "$binary" || fail "$binary is not signed; run sign.sh first"

version=$("$binary" -getVersion) || fail "$binary does not say its version"
identity=$(security find-identity -v -p basic | sed -n "s/.*\"\(Developer ID Installer: .*($team)\)\".*/\1/p" | head -n 1)
[[ -n $identity ]] || fail "no valid \"Developer ID Installer\" identity of team $team in the keychain"

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
install -d -m 755 "$root$install_directory"
install -m 755 "$binary" "$root$install_directory/KXTool"
sources=$(dirname "${BASH_SOURCE[0]}")/../..
for document in "${documents[@]}"; do
  target=$root${document#*=}
  install -d -m 755 "$(dirname "$target")"
  install -m 644 "$sources/${document%=*}" "$target"
done
pkgbuild --root "$root" --ownership recommended --identifier "$identifier" --version "$version" \
  --min-os-version 10.11 --sign "$identity" --timestamp "$package"
