#compdef kvbackup

# The names come out of the JSON list with its two escapes taken back.
_kvbackup_sets() {
  local -a names
  names=(${(f)"$(_call_program sets $service list --json 2>/dev/null |
    sed -n 's/^    "set": "\(.*\)",$/\1/; t name; d; :name; s/\\\(["\\]\)/\1/g; p')"})
  _wanted sets expl 'backup set' compadd -a names
}

_kvbackup() {
  local curcontext=$curcontext state line
  local -a commands set_options help=('(- *)'{-h,--help}'[show the help]')
  local weekdays='weekdays:_sequence compadd - mon tue wed thu fri sat sun'
  commands=(
    'add:add a backup set'
    'edit:change a backup set'
    'remove:forget a backup set; its copies stay'
    'hold:keep a backup set from being started'
    'release:let a held backup set be started again'
    'run:run a backup set now'
    'list:show all backup sets'
  )
  set_options=(
    '*--source[folder to back up]:folder:_files -/'
    '--dest[folder that receives the copies]:folder:_files -/'
    '--daily[every day at this time]:time (HH\:MM)'
    '--weekly[on these weekdays at this time]:'$weekdays':time (HH\:MM)'
    '--every[at this interval]:interval (15m, 2h)'
    '--once-a-day[as soon as a day begins, whatever the time]'
  )
  _arguments -C $help \
    '(- *)--version[show the version]' \
    '1:command:->command' '*::argument:->argument' && return
  case $state in
    command) _describe -t commands command commands ;;
    argument)
      case $words[1] in
        add) _arguments $help $set_options '1:name of the new set' ;;
        edit) _arguments $help $set_options '1:backup set:_kvbackup_sets' ;;
        list) _arguments $help '--json[as JSON, for programs]' ;;
        remove|hold|release|run) _arguments $help '1:backup set:_kvbackup_sets' ;;
      esac ;;
  esac
}

_kvbackup "$@"
