# Completion of kvctl for bash: commands, options, files, and the names of the backup sets.

# The names come from the list, which both programs print alike.
declare -F _kvbackup_sets >/dev/null || source "${BASH_SOURCE[0]%/*}/kvbackup"

_kvctl_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

_kvctl_options() {
  local own=''
  case $1 in
    forecast) own='--days --duration --absent --asleep --chart --ical' ;;
    trace) own='--follow --last --file' ;;
    record) own='--redact --output' ;;
  esac
  echo "$own --json --home --at --zone --locale --bundle --color --help"
}

_kvctl() {
  local cur prev words cword command='' commands='status list why forecast check trace record replay'
  _init_completion -n : || return
  case $prev in
    --home | --bundle) _filedir -d; return ;;
    --file | --output | -o) _filedir; return ;;
    --color) _kvctl_words 'auto always never'; return ;;
    --zone)
      _kvctl_words "$(cd /usr/share/zoneinfo 2>/dev/null && printf '%s\n' UTC [A-Z]*/[A-Z]*)"
      return ;;
    --at | --locale | --days | --duration | --absent | --asleep | --last) return ;;
  esac
  local word
  for word in "${words[@]:1:cword-1}"; do
    [[ " $commands " != *" $word "* ]] || { command=$word; break; }
  done
  if [[ $cur == -* && " ${words[*]:1:cword-1} " != *' -- '* ]]; then
    local program=''
    [[ -n $command ]] || program=--version
    _kvctl_words "$(_kvctl_options "$command") $program"
  elif [[ -z $command ]]; then
    _kvctl_words "$commands"
  elif [[ $command == @(why|forecast|trace) ]]; then
    _kvbackup_sets
  elif [[ $command == replay ]]; then
    _filedir
  fi
} && complete -F _kvctl kvctl
