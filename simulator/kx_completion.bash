# Completion of ./kx for bash. zsh can also source this file. kx_script holds the path of ./kx.
# shellcheck shell=bash disable=SC2154,SC2207
if [[ -n ${ZSH_VERSION:-} ]]; then
  autoload -Uz compinit bashcompinit
  (($+functions[compdef])) || compinit
  bashcompinit
fi

_kx() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} choices=''
  if [[ $before == = ]]; then # bash splits --name=value into three words
    before=${COMP_WORDS[COMP_CWORD - 2]}
  elif [[ $word == = ]]; then
    before=${COMP_WORDS[COMP_CWORD - 1]} word=''
  fi
  case $COMP_CWORD:${COMP_WORDS[1]}:$before in
    1:* | 2:help:*) choices=$("$kx_script" help | sed -n 's/^  \([^ ][^ ]*\) .*/\1/p' | uniq) ;;
    *:run:--scenario | *:endpoint:--scenario)
      choices=$(find "${kx_script%/*}/simulator/scenarios" -name '*.json' -exec basename -a -s .json {} +) ;;
    *:--layout) choices='1 2 3' ;;
    *:run:*) choices='--scenario --layout --log --sleep-divisor --list-scenarios --help' ;;
    *:endpoint:*) choices='--scenario --layout --log --sleep-divisor --help --' ;;
    2:test:*) choices='documents real-signatures' ;;
    2:completion:*) choices='bash zsh' ;;
  esac
  COMPREPLY=($(compgen -W "$choices" -- "$word"))
}

complete -o default -F _kx kx ./kx
