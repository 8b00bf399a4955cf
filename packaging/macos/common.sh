# shellcheck shell=bash disable=SC2034
# What the scripts beside this file share. Sourced, not run.

readonly identifier=com.corvane.KXTool
readonly team=QK7ZP2M9XD
# Outside any bundle-shaped folder: in one, the system would not read the tool's own property list.
# The tool keeps its configuration and its log beside itself, so it has a folder of its own.
readonly install_directory=/usr/local/libexec/kxtool
# What is installed besides the tool: where it lies in the sources, and where it goes.
readonly -a documents=(
  docs/KXTool.1=/usr/local/share/man/man1/KXTool.1
  packaging/completions/KXTool.bash=/usr/local/share/bash-completion/completions/KXTool
  packaging/completions/_KXTool=/usr/local/share/zsh/site-functions/_KXTool)

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# need_usage COUNT TEXT ARGUMENT...: fails with the usage unless there are COUNT arguments.
need_usage() {
  local count=$1 text=$2
  shift 2
  [[ $# -eq $count ]] || fail "usage: $(basename "$0") $text"
}

need_file() { [[ -f $1 ]] || fail "there is no file $1"; }

# need_tool NAME...: fails unless the system has them.
need_tool() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null || fail "$tool is missing; it comes with macOS or Xcode's command-line tools"
  done
}

need_root() { [[ $EUID -eq 0 ]] || fail "run this as root"; }
