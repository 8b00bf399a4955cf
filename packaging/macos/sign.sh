#!/usr/bin/env bash
# Signs the tool: sign.sh BINARY
# The identity is the maker's "Developer ID Application" in the keychain.
set -euo pipefail
# shellcheck source=packaging/macos/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need_usage 1 1 BINARY "$@"
binary=$1
need_file "$binary"
need_tool codesign lipo security

[[ $(lipo -archs "$binary" | tr ' ' '\n' | sort | xargs) == "arm64 x86_64" ]] ||
  fail "$binary has the slices $(lipo -archs "$binary"), not x86_64 and arm64"
identity=$(find_identity codesigning "Developer ID Application")

# The hardened runtime without any entitlement: the product's libraries are of the same team as the
# tool, so library validation lets the tool load them, and it is to load no others.
codesign --force --timestamp --options runtime --identifier "$identifier" --sign "$identity" "$binary"
codesign --verify --strict --all-architectures --verbose=2 "$binary"
# Read whole before it is looked into: a reader that leaves early ends the writer by a signal.
signature=$(codesign --display --verbose=2 "$binary" 2>&1)
[[ $'\n'$signature$'\n' == *$'\n'"TeamIdentifier=$team"$'\n'* ]] ||
  fail "$binary is signed, but not by team $team"
