#!/usr/bin/env bash
# Has Apple notarise the package, and staples the ticket to it: notarize.sh PACKAGE PROFILE [KEYCHAIN]
# `xcrun notarytool store-credentials PROFILE` creates the profile. KEYCHAIN defaults to the user's keychain.
set -euo pipefail
# shellcheck source=packaging/macos/payload.sh
source "$(dirname "${BASH_SOURCE[0]}")/payload.sh"

need_usage 2 3 "PACKAGE PROFILE [KEYCHAIN]" "$@"
package=$1
credentials=(--keychain-profile "$2" ${3:+--keychain "$3"})
need_file "$package"
need_tool pkgutil spctl xcrun
xcrun --find notarytool >/dev/null 2>&1 || fail "notarytool is missing; it comes with Xcode 13 or later"
pkgutil --check-signature "$package" >/dev/null || fail "$package is not signed; package.sh signs it"

result=$(xcrun notarytool submit "$package" "${credentials[@]}" --wait --output-format plist) || true
status=$(plutil -extract status raw -o - - <<<"$result") || fail "$package could not be submitted"
if [[ $status != Accepted ]]; then
  id=$(plutil -extract id raw -o - - <<<"$result")
  xcrun notarytool log "$id" "${credentials[@]}" >&2 || true
  fail "Apple's answer is \"$status\"; the log is above"
fi
xcrun stapler staple "$package"
spctl --assess --type install --verbose=2 "$package"
