# Completion of maintfleet for bash. Commands and options are those that the program itself has, names those of the
# running controller; where none answers, there are no names.

# The program as it is called on this line, with the socket that was named, and 2 s at most.
_maintfleet_ask() {
   timeout 2 "${maintfleet[@]}" "$@" 2> /dev/null < /dev/null
}

_maintfleet_candidates() {
   case $1 in
   commands) _maintfleet_ask --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p' ;;
   options) _maintfleet_ask ${command:+"$command"} --help | sed -n 's/^  \(-.*\)/\1/p' |
      grep -oE '^(-[A-Za-z],)?--?[A-Za-z][a-z-]*' | tr ',' '\n' ;;
   either) _maintfleet_ask names boxes; _maintfleet_ask names plans ;;
   both) _maintfleet_ask names boxes; _maintfleet_ask names units ;;
   words:*) tr ',' '\n' <<< "${1#words:}" ;;
   *) _maintfleet_ask names "$1" ;;
   esac
}

# What this command takes in a place that is no option, when it has so many already.
_maintfleet_positional() {
   case $command:$1 in
   :*) echo commands ;;
   status:0) echo either ;;
   plan:* | drain:*) echo boxes ;;
   undrain:* | can-stop:*) echo both ;;
   pause:0 | resume:0 | cancel:0) echo plans ;;
   brake:0) echo sites ;;
   names:0) echo words:boxes,units,plans,labels,sites ;;
   keys:0) echo words:init,add,revoke,list ;;
   keys:*) echo boxes ;;
   check-config:0) echo files ;;
   esac
}

# What stands behind an option that has a value; nothing known where it is a number or a time.
_maintfleet_value() {
   case $1 in
   --without) echo units ;;
   --box) echo boxes ;;
   --plan) echo plans ;;
   --label) echo labels ;;
   --at-deadline) echo words:hold,give-back ;;
   --unit) if [[ $command == history ]]; then echo units; else echo none; fi ;;
   --socket | --state | --inventory | --operators | --key | --ca | --dir | --script | --control-socket | --read-socket)
      echo files ;;
   --since | --deadline | --waves | --soak | --stay | --listen | --broker | --broker-name | --reconnect | --heartbeat | \
      --boxes | --for | --report | --seed) echo none ;;
   esac
}

# The words up to the cursor. Readline begins a new one at a colon and at "=", also where no blank stands before it.
_maintfleet_words() {
   local rest=$COMP_LINE word
   words=()
   for word in "${COMP_WORDS[@]:0:COMP_CWORD + 1}"; do
      if [[ -z ${words[*]} || $rest == [[:blank:]]* ]]; then words+=( '' ); fi
      words[-1]+=$word
      rest=${rest#"${rest%%[![:blank:]]*}"}
      rest=${rest#"$word"}
   done
}

_maintfleet() {
   local command='' taken=0 kind i word words current
   local maintfleet=( "$1" )
   _maintfleet_words
   current=${words[-1]}
   for (( i = 1; i < ${#words[@]} - 1; ++i )); do
      word=${words[i]}
      case $word in
      --socket) (( ++i )); maintfleet+=( "$word" "${words[i]}" ) ;;
      --socket=*) maintfleet+=( "$word" ) ;;
      -*) if [[ -n $( _maintfleet_value "$word" ) ]]; then (( ++i )); fi ;;
      *) if [[ -z $command ]]; then command=$word; else (( ++taken )); fi ;;
      esac
   done
   COMPREPLY=()
   kind=$( _maintfleet_value "${words[-2]}" )
   if [[ -z $kind ]]; then
      if [[ $current == -* ]]; then kind=options; else kind=$( _maintfleet_positional "$taken" ); fi
   fi
   # A command takes it behind its name, and so it is told to all of them here.
   if [[ ${#maintfleet[@]} -gt 1 ]]; then
      local -x MAINTFLEET_SOCKET=${maintfleet[2]:-${maintfleet[1]#--socket=}}
      maintfleet=( "$1" )
   fi
   case $kind in
   '' | none) return ;;
   files) compopt -o filenames 2> /dev/null; mapfile -t COMPREPLY < <( compgen -f -- "$current" ) ;;
   *)
      while IFS= read -r word; do
         [[ $word == "$current"* ]] && COMPREPLY+=( "$( printf '%q' "$word" )" )
      done < <( _maintfleet_candidates "$kind" )
      # A colon begins a new word for readline: what is before it stands there already.
      if [[ $current == *:* ]]; then COMPREPLY=( "${COMPREPLY[@]#"${current%"${current##*:}"}"}" ); fi
      ;;
   esac
}
complete -F _maintfleet maintfleet
