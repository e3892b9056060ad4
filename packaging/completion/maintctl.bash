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

# The words up to the cursor. Readline begins a new one at a colon and at "=", also where no blank stands before it.
_maintctl_words() {
   local rest=$COMP_LINE word
   words=()
   for word in "${COMP_WORDS[@]:0:COMP_CWORD + 1}"; do
      if [[ -z ${words[*]} || $rest == [[:blank:]]* ]]; then words+=( '' ); fi
      words[-1]+=$word
      rest=${rest#"${rest%%[![:blank:]]*}"}
      rest=${rest#"$word"}
   done
}

# A word as it stands on the line, without its quotes.
_maintctl_plain() {
   case $1 in
   [\'\"]*) set -- "${1#?}"; printf '%s' "${1%[\'\"]}" ;;
   *) printf '%s' "${1//\\/}" ;;
   esac
}

_maintctl() {
   local command='' unit='' taken=0 kind i word words current previous
   local maintctl=( "$1" )
   _maintctl_words
   current=${words[-1]} previous=${words[-2]}
   # What stands before the cursor. These options have a value behind them.
   for (( i = 1; i < ${#words[@]} - 1; ++i )); do
      word=$( _maintctl_plain "${words[i]}" )
      case $word in
      --socket) (( ++i )); maintctl+=( "$word" "$( _maintctl_plain "${words[i]}" )" ) ;;
      --socket=*) maintctl+=( "$word" ) ;;
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
      # Within quotes a name stands as it is, and readline ends them.
      while IFS= read -r word; do
         [[ $word == "$( _maintctl_plain "$current" )"* ]] || continue
         [[ $current == [\'\"]* ]] || word=$( printf '%q' "$word" )
         COMPREPLY+=( "$word" )
      done < <( _maintctl_candidates "$kind" "$unit" )
      # A colon begins a new word for readline: what is before it stands there already.
      if [[ $current == *:* ]]; then COMPREPLY=( "${COMPREPLY[@]#"${current%"${current##*:}"}"}" ); fi
      ;;
   esac
}
complete -F _maintctl maintctl
