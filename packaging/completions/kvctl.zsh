#compdef kvctl

# The names come out of the JSON list with its two escapes taken back.
_kvctl_sets() {
  local -a names
  names=(${(f)"$(_call_program sets $service list --json 2>/dev/null |
    sed -n 's/^    "set": "\(.*\)",$/\1/; t name; d; :name; s/\\\(["\\]\)/\1/g; p')"})
  _wanted sets expl 'backup set' compadd -a names
}

_kvctl() {
  local curcontext=$curcontext state line
  local -a commands common
  commands=(
    'status:whether the agent runs, and what it is about'
    'list:every set as the scheduler reads it'
    'why:what the next tick does with each set, and why'
    'forecast:what will run when'
    'check:problems that nobody sees'
    'trace:the trace file by ticks and sets'
    'record:a report of one tick for a fault'
    'replay:the decisions of a report, made again'
  )
  common=(
    '(- *)'{-h,--help}'[show the help]'
    '--json[as JSON, for programs]'
    '--home[the home folder to look at]:folder:_files -/'
    '--at[as if it were this time]:time (2026-11-21 09\:30)'
    '--zone[the time zone]:zone:_files -W /usr/share/zoneinfo'
    '--locale[the locale]:locale:_locales'
    "--bundle[the folder with the host's scripts]:folder:_files -/"
    '--color[colours]:when:(auto always never)'
  )
  _arguments -C $common \
    '(- *)--version[show the version]' \
    '1:command:->command' '*::argument:->argument' && return
  case $state in
    command) _describe -t commands command commands ;;
    argument)
      case $words[1] in
        why) _arguments $common '1:backup set:_kvctl_sets' ;;
        forecast)
          _arguments $common '--days[how far to look]:days' \
            '--duration[how long a backup takes]:time (20m)' \
            '*--absent[when a destination is not there]:destination and times (/media/disk\:22\:00-07\:00)' \
            '--asleep[when the computer sleeps]:times (23\:00-07\:00)' \
            '(--ical)--chart[as charts of a week each]' '(--chart)--ical[as a calendar]' \
            '1:backup set:_kvctl_sets' ;;
        trace)
          _arguments $common '(-f --follow)'{-f,--follow}'[go on with what is written]' \
            '--last[only the last ticks]:number' "--file[another file than the agent's]:file:_files" \
            '1:backup set:_kvctl_sets' ;;
        record)
          _arguments $common '--redact[numbered words in the place of names and paths]' \
            '(-o --output)'{-o,--output}'[a new file]:file:_files' ;;
        replay) _arguments $common '1:report:_files' ;;
        *) _arguments $common ;;
      esac ;;
  esac
}

_kvctl "$@"
