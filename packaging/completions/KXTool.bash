# Completions of KXTool for bash (3.2 and later).

_kxtool_offer() {
  local match
  while IFS= read -r match; do
    COMPREPLY+=("$match")
  done < <(compgen "${@}" -- "${COMP_WORDS[COMP_CWORD]}")
}

_kxtool() {
  COMPREPLY=()
  if [[ $COMP_CWORD -eq 1 ]]; then
    _kxtool_offer -W '-runInstaller -runSetupDownloader -detect -getInstallationLink
      -checkForUpdateErrors -getUpdateStatus -hasCriticalIssues -isUpToDate -getUpdateLocations
      -startUpdate -getProductVersion -getLastUpdate -getFeatureStatus -getLastSystemScan
      -startFullScan -startQuickScan -getVersion'
    return
  fi
  case ${COMP_WORDS[1]}:$COMP_CWORD in
    -runInstaller:2 | -runSetupDownloader:2) _kxtool_offer -f ;;
    -getInstallationLink:[246]) _kxtool_offer -W '-slUrl -apiKey -packageName' ;;
    -getInstallationLink:8) _kxtool_offer -W '-setupDownloaderLink' ;;
  esac
}

complete -o filenames -F _kxtool KXTool
