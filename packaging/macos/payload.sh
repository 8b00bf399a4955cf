# shellcheck shell=bash disable=SC2034
# Shared by the scripts in this folder, which source it. The package contains it for the uninstaller.
# Written for bash 3.2, the version that macOS has.

readonly identifier=com.corvane.KXTool
readonly team=QK7ZP2M9XD
# The tool keeps its configuration and its log beside itself, so it needs its own folder. That folder must not
# look like a bundle: inside one, the system would not read the property list that the tool contains.
readonly install_directory=/usr/local/libexec/kxtool
# What that folder holds besides the tool. Each row has the path in the sources, the installed name, the mode
# and, where users need one, the path of a link to the installed file.
readonly -a payload=(
  'packaging/kxtool-report kxtool-report 755 /usr/local/bin/kxtool-report'
  'packaging/NOTICES NOTICES 644'
  'packaging/macos/payload.sh payload.sh 644'
  'packaging/macos/uninstall.sh uninstall.sh 755'
  'docs/KXTool.1 KXTool.1 644 /usr/local/share/man/man1/KXTool.1'
  'docs/kxtool-report.1 kxtool-report.1 644 /usr/local/share/man/man1/kxtool-report.1'
  'packaging/completions/KXTool.bash KXTool.bash 644 /usr/local/share/bash-completion/completions/KXTool'
  'packaging/completions/_KXTool _KXTool 644 /usr/local/share/zsh/site-functions/_KXTool')
# Lists the folders that postinstall.sh has created for the links.
readonly made_folders=$install_directory/made-folders.txt

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# need_usage LEAST MOST TEXT ARGUMENT...: fails with the usage unless there are LEAST to MOST arguments.
need_usage() {
  local least=$1 most=$2 text=$3
  shift 3
  [[ $# -ge $least && $# -le $most ]] || fail "usage: $(basename "$0") $text"
}

need_file() { [[ -f $1 ]] || fail "there is no file $1"; }

# need_tool NAME...: fails unless the system has these programs.
need_tool() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null || fail "$tool is missing; it comes with macOS or Xcode's command-line tools"
  done
}

need_root() { [[ $EUID -eq 0 ]] || fail "run this as root"; }

# find_identity POLICY KIND: prints the team's identity of this kind in the keychain.
find_identity() {
  local found
  found=$(security find-identity -v -p "$1" | sed -n "s/.*\"\($2: .*($team)\)\".*/\1/p")
  [[ -n $found ]] || fail "no valid \"$2\" identity of team $team in the keychain"
  printf '%s\n' "${found%%$'\n'*}"
}
