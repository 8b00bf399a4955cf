#!/usr/bin/env bash
# Signs the tool with the vendor's "Developer ID Application" identity in the keychain: sign.sh BINARY
set -euo pipefail
# shellcheck source=packaging/macos/payload.sh
source "$(dirname "${BASH_SOURCE[0]}")/payload.sh"

need_usage 1 1 BINARY "$@"
binary=$1
need_file "$binary"
need_tool codesign lipo security

[[ $(lipo -archs "$binary" | tr ' ' '\n' | sort | xargs) == "arm64 x86_64" ]] ||
  fail "$binary has the slices $(lipo -archs "$binary"), not x86_64 and arm64"
identity=$(find_identity codesigning "Developer ID Application")

# The hardened runtime without entitlements: the same team signs the product's libraries, so library
# validation allows them, and the tool must not load any others.
codesign --force --timestamp --options runtime --identifier "$identifier" --sign "$identity" "$binary"
codesign --verify --strict --all-architectures --verbose=2 "$binary"
# Captured whole: with a pipe to grep -q, SIGPIPE could end codesign.
signature=$(codesign --display --verbose=2 "$binary" 2>&1)
[[ $'\n'$signature$'\n' == *$'\n'"TeamIdentifier=$team"$'\n'* ]] ||
  fail "$binary is signed, but not by team $team"
