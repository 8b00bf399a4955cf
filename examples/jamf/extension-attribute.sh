#!/bin/sh
# Extension attribute for Jamf Pro: a member of the report, as text. Add it once for each attribute that you
# want, and name the member here: state, productVersion, upToDate, criticalIssues or updateErrors.
member=state

case $member in
  state) group=detection ;; # takes 5 to 270 seconds
  productVersion) group=version ;;
  upToDate | updateErrors) group=updates ;;
  *) group=issues ;;
esac

# A list becomes its entries, joined by commas. What could be taken for a tag is replaced.
/usr/local/libexec/kxtool/kxtool-report --only "$group" --pretty 2>/dev/null | awk -v member="$member" '
  function shown(text) {
    sub(/,$/, "", text)
    gsub(/[{}"]/, "", text)
    gsub(/[<>&]/, "_", text)
    return text
  }
  /^    .*"code": 20, / { absent = 1 }
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
