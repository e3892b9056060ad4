# Completion of maintctl for bash. Commands and options are those that the program itself has, names of units and
# interfaces those of the running maintd; where none answers, there are no names.

# The program as it is called on this line, with the socket that was named, and 2 s at most.
_maintctl_ask() {
   timeout 2 "${maintctl[@]}" "$@" 2> /dev/null < /dev/null
}

# Of names in JSON those that need no escape there.
_maintctl_names() {
   grep -o "\"$1\": *\"[^\"\\\\]*\"" | sed 's/^[^:]*: *"//; s/"$//' | sort -u
}

_maintctl_candidates() {
   local kind=$1 unit=$2
   case $kind in
   commands) _maintctl_ask --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p' ;;
   options) _maintctl_ask ${command:+"$command"} --help | sed -n 's/^  \(-.*\)/\1/p' |
      grep -oE '^(-[A-Za-z],)?--?[A-Za-z][a-z-]*' | tr ',' '\n' ;;
   units) _maintctl_ask units --json | _maintctl_names unit ;;
   interfaces)
      if [[ -n $unit ]]; then
         _maintctl_ask status "$unit" --json | _maintctl_names interface
      else
         _maintctl_ask interfaces --json | _maintctl_names interface
      fi
      ;;
   links) ls /sys/class/net 2> /dev/null ;;
   esac
}

# What this command takes in its first place that is no option.
_maintctl_positional() {
   case $command in
   release) echo links ;;
   '') echo commands ;;
   *) _maintctl_ask "$command" --help | sed -n 's/^  \(UNIT\|INTERFACE\|FILE\) .*/\1/p' | head -n 1 |
      sed 's/UNIT/units/; s/INTERFACE/interfaces/; s/FILE/files/' ;;
   esac
}

_maintctl() {
   local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command='' unit='' taken=0 kind i word
   local maintctl=( "$1" )
   # What stands before the cursor. These options have a value behind them.
   for (( i = 1; i < COMP_CWORD; ++i )); do
      word=${COMP_WORDS[i]}
      case $word in
      --socket) maintctl+=( "$word" "${COMP_WORDS[++i]}" ) ;;
      --without | --unit | --timeout | --html | --generation | --state | --file | --levels | --since | --for | --after | \
         --interval | -n) (( ++i )) ;;
      -*) ;;
      *)
         if [[ -z $command ]]; then
            command=$word
         else
            (( ++taken ))
            unit=${unit:-$word}
         fi
         ;;
      esac
   done
   COMPREPLY=()
   case $previous in
   --without) kind=interfaces ;;
   --unit) kind=units ;;
   --socket | --html | --state | --file) kind=files ;;
   --timeout | --generation | --levels | --since | --for | --after | --interval | -n) return ;;
   *)
      if [[ $current == -* ]]; then
         kind=options
      elif (( taken == 0 )) || [[ $command == release ]]; then
         kind=$( _maintctl_positional )
      fi
      ;;
   esac
   case $kind in
   '') return ;;
   files) compopt -o filenames 2> /dev/null; mapfile -t COMPREPLY < <( compgen -f -- "$current" ) ;;
   *)
      while IFS= read -r word; do
         [[ $word == "$current"* ]] && COMPREPLY+=( "$( printf '%q' "$word" )" )
      done < <( _maintctl_candidates "$kind" "$unit" )
      # A colon begins a new word for readline: what is before it stands there already.
      if [[ $current == *:* ]]; then COMPREPLY=( "${COMPREPLY[@]#"${current%"${current##*:}"}"}" ); fi
      ;;
   esac
}
complete -F _maintctl maintctl
