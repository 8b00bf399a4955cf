#!/bin/sh
# Extension attribute for Jamf Pro: prints one member of the report as text. Add the script once for each
# attribute, and name the member here; `man kxtool-report` lists the members.
member=state

case $member in
  toolVersion) group=tool ;;
  state | company | group | endpoint) group=detection ;; # takes 5 to 270 seconds
  productVersion) group=version ;;
  upToDate | lastUpdate | updateErrors | locations) group=updates ;;
  criticalIssues) group=issues ;;
  features) group=features ;;
  lastFullScan | lastQuickScan) group=scans ;;
  *) echo "<result>no such member: $member</result>" && exit ;;
esac

# Joins the entries of a list with commas, and replaces characters that could form a tag.
/usr/local/libexec/kxtool/kxtool-report --only "$group" --pretty 2>/dev/null | awk -v member="$member" '
  function shown(text) {
    sub(/,$/, "", text)
    gsub(/[{}"]/, "", text)
    gsub(/[<>&]/, "_", text)
    return text
  }
  /^    .*"code": 20, / || /^  "state": "not installed"/ { absent = 1 }
  index($0, "  \"" member "\": ") == 1 {
    value = shown(substr($0, length(member) + 7))
    list = value == "["
    if (list) value = ""
    next
  }
  /^  / && !/^    / { list = 0 }
  list { sub(/^ */, ""); value = value (value == "" ? "" : ", ") shown($0); next }
  END {
    if (NR == 0) value = "no report"
    else if (value == "null") value = absent ? "not installed" : "unknown"
    else if (value == "" || value == "[]") value = "none"
    print "<result>" value "</result>"
  }'
