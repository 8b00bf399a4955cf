#!/bin/sh
# Condition for Munki. Install it in /usr/local/munki/conditions, owned by root, mode 755. It sets these keys for
# the conditions in manifests:
#   kxtool_state   "not installed", "current", "outdated" or "unknown"
#   kxtool_issues  the number of critical issues, if known
# It does not run the detection, which could delay every run of Munki by minutes.
report=$(/usr/local/libexec/kxtool/kxtool-report --only updates --only issues --pretty 2>/dev/null)
case $report in
  *'"upToDate": true,'*) state=current ;;
  *'"upToDate": false,'*) state=outdated ;;
  *'"code": 20, '*) state='not installed' ;;
  *) state=unknown ;;
esac

folder=$(defaults read /Library/Preferences/ManagedInstalls ManagedInstallDir 2>/dev/null) ||
  folder='/Library/Managed Installs'
defaults write "$folder/ConditionalItems" kxtool_state -string "$state"
case $report in
  *'"criticalIssues": null,'* | '') ;;
  *)
    issues=$(printf '%s\n' "$report" | sed -n '/^  "criticalIssues": \[$/,/^  ]/s/^    //p' | grep -c .)
    defaults write "$folder/ConditionalItems" kxtool_issues -int "$issues"
    ;;
esac
