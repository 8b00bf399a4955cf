#!/usr/bin/env bash
# Builds the installer package for the signed tool: package.sh BINARY PACKAGE
# The result is a distribution package, because device management requires one.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
# shellcheck source=packaging/macos/payload.sh
source "$here/payload.sh"

need_usage 2 2 "BINARY PACKAGE" "$@"
binary=$1 package=$2
need_file "$binary"
[[ $package == *.pkg ]] || fail "the package's name must end in .pkg, not $package"
need_tool codesign pkgbuild productbuild security
codesign --verify --strict --all-architectures "$binary" || fail "$binary is not signed; run sign.sh first"

version=$("$binary" -getVersion) || fail "$binary does not report its version"
identity=$(find_identity basic "Developer ID Installer")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The payload is only the tool's folder, so the installer changes the owner and mode of no other folder.
install -d -m 755 "$work/payload" "$work/scripts" "$work/packages"
install -m 755 "$binary" "$work/payload/KXTool"
for row in "${payload[@]}"; do
  read -r source name mode _ <<<"$row"
  install -m "$mode" "$here/../../$source" "$work/payload/$name"
done
install -m 755 "$here/postinstall.sh" "$work/scripts/postinstall"
install -m 644 "$here/payload.sh" "$work/scripts/payload.sh"
pkgbuild --root "$work/payload" --install-location "$install_directory" --scripts "$work/scripts" \
  --ownership recommended --identifier "$identifier" --version "$version" --min-os-version 10.11 \
  "$work/packages/KXTool.pkg"

# Without the architectures, Apple silicon would ask for Rosetta.
cat >"$work/distribution.xml" <<XML
<?xml version="1.0" encoding="utf-8"?>
<installer-gui-script minSpecVersion="2">
  <title>KXTool</title>
  <product id="$identifier" version="$version"/>
  <options customize="never" require-scripts="false" hostArchitectures="x86_64,arm64"/>
  <domains enable_localSystem="true"/>
  <volume-check><allowed-os-versions><os-version min="10.11"/></allowed-os-versions></volume-check>
  <choices-outline><line choice="$identifier"/></choices-outline>
  <choice id="$identifier" title="KXTool"><pkg-ref id="$identifier"/></choice>
  <pkg-ref id="$identifier" version="$version">KXTool.pkg</pkg-ref>
</installer-gui-script>
XML
productbuild --distribution "$work/distribution.xml" --package-path "$work/packages" \
  --sign "$identity" --timestamp "$package"
