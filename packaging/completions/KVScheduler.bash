# Completion of KVScheduler for bash.

_KVScheduler() {
  # shellcheck disable=SC2034 # _init_completion sets them all
  local cur prev words cword
  _init_completion || return
  if [[ $prev == --bundle ]]; then
    _filedir -d
  else
    mapfile -t COMPREPLY < <(compgen -W '--bundle --help --version' -- "$cur")
  fi
} && complete -F _KVScheduler KVScheduler
