# Completion of kvbackup for bash: commands, options, folders, and the names of the backup sets.

# The name as it has to be typed after the opening quote, which is empty where there is none.
_kvbackup_typed() {
  local quote=$1 name=$2 apostrophe="'\\''"
  case $quote in
    \') printf '%s\n' "${name//\'/$apostrophe}" ;;
    \") printf '%s\n' "$name" | sed 's/["\\$`]/\\&/g' ;;
    *) printf '%q\n' "$name" ;;
  esac
}

_kvbackup_sets() {
  local quote='' typed=$cur name
  if [[ $cur == [\'\"]* ]]; then
    quote=${cur:0:1}
    typed=${cur:1}
  fi
  [[ $quote == \' ]] || typed=$(printf '%s\n' "$typed" | sed 's/\\\(.\)/\1/g')
  while IFS= read -r name; do
    [[ $name != "$typed"* ]] || COMPREPLY+=("$(_kvbackup_typed "$quote" "$name")")
  done < <("${words[0]/#\~\//$HOME/}" list --json 2>/dev/null |
    sed -n 's/^    "set": "\(.*\)",$/\1/; t name; d; :name; s/\\\(["\\]\)/\1/g; p')
  __ltrim_colon_completions "$cur"
}

_kvbackup_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

_kvbackup_options() {
  case $1 in
    add | edit) echo '--source --dest --daily --weekly --every --once-a-day --help' ;;
    list) echo '--json --help' ;;
    *) echo '--help' ;;
  esac
}

_kvbackup() {
  local cur prev words cword
  _init_completion -n : || return
  if ((cword == 1)); then
    _kvbackup_words 'add edit remove hold release run list --help --version'
    return
  fi
  case $prev in
    --source | --dest) _filedir -d; return ;;
    --weekly) _kvbackup_words 'mon tue wed thu fri sat sun'; return ;;
    --daily | --every) return ;; # a time, an interval
  esac
  local command=${words[1]}
  if [[ $cur == -* && " ${words[*]:2:cword-2} " != *' -- '* ]]; then
    _kvbackup_words "$(_kvbackup_options "$command")"
  elif [[ $command == @(edit|remove|hold|release|run) ]]; then
    _kvbackup_sets
  fi
} && complete -F _kvbackup kvbackup
