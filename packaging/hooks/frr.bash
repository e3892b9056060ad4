# What the hooks for FRR have in common; each says what is its own and then calls `hook "$@"`:
#
#    daemon    the daemon that is asked, and no other
#    router    how its instances begin in its configuration
#    setting   what is set in each instance
#
#    HOOK enter|exit [INSTANCE...]
#
# Without instances every one that the daemon has is meant. INSTANCE is a word that stands behind the router in the
# configuration (an AS, a VRF, an area tag, a number); "default" means those in no VRF.
#
# Beside what it sets a hook leaves a mark, an empty route-map that nothing refers to, named after the unit and the
# instance. The mark lives and dies with the setting: a daemon that was restarted has neither, so nothing is undone then
# that somebody else has set since. What is set without a mark is the operator's, and stays. What several units have set
# goes with the last of their marks. The startup configuration is never written.
set -uo pipefail

say() { printf '%s\n' "$*"; }
# On one line, which is what maintd tells of a hook that fails.
fail() {
   printf '%s\n' "${*//$'\n'/; }" >&2
   exit 1
}

# Text as one word of letters, digits, "_", "." and "-", and back.
encoded() {
   local LC_ALL=C text=$1 word='' char i
   for (( i = 0; i < ${#text}; ++i )); do
      char=${text:i:1}
      if [[ $char != [A-Za-z0-9_.-] ]]; then
         printf -v char '%02x' "'$char"
         char=%${char: -2}
      fi
      word+=$char
   done
   printf '%s' "$word"
}
decoded() { printf '%b' "${1//%/\\x}"; }

# One command after the other in one session. vtysh repeats each before its answer, and fails at the first that fails.
ask() {
   local commands=() command
   for command in "$@"; do commands+=( -c "$command" ); done
   answer=$( vtysh -d "$daemon" -E "${commands[@]}" 2>&1 ) ||
      fail "asked for \"$*\", vtysh -d $daemon answers: ${answer:-nothing}"
}

# The running configuration: which instances there are, which have the setting, and whose marks there are.
read_running() {
   local line instance='' everywhere=''
   instances=()
   marks=()
   declare -gA is_set=()
   ask 'show running-config'
   while IFS= read -r line; do
      case $line in
      "$router" | "$router "*)
         instance=$line
         instances+=( "$line" )
         ;;
      exit | '!') instance='' ;;
      " $setting") is_set[$instance]=yes ;;
      "$setting") everywhere=yes ;;  # in BGP: for all instances at once
      "route-map ratemon:$daemon:"*) marks+=( "$( cut -d ' ' -f 2 <<< "$line" )" ) ;;
      esac
   done <<< "$answer"
   [[ $answer == *$'\n'end ]] || fail "the running configuration that vtysh -d $daemon answers breaks off: ${answer: -200}"
   [[ -n $everywhere ]] || return 0
   for instance in "${instances[@]}"; do is_set[$instance]=everywhere; done
}

# Whether the instance is meant by the words that follow it.
meant() {
   local words=" ${1#"$router"} " word
   shift
   (( $# > 0 )) || return 0
   for word in "$@"; do
      [[ $words == *" $word "* ]] && return 0
      [[ $word == default && $words != *' vrf '* && $words != *' view '* ]] && return 0
   done
   return 1
}

mark_of() { printf 'ratemon:%s:%s:%s' "$daemon" "$( encoded "$MAINT_UNIT" )" "$( encoded "$1" )"; }

# The marks of an instance, less the one that is named.
marks_of() {
   local mark
   for mark in "${marks[@]}"; do
      [[ ${mark##*:} == "$( encoded "$1" )" && $mark != "${2:-}" ]] && say "$mark"
   done
}

enter() {
   local instance found=''
   read_running
   for instance in "${instances[@]}"; do
      meant "$instance" "$@" || continue
      found=yes
      set_in "$instance"
   done
   [[ -n $found ]] || fail "$daemon has no instance${*:+ }${*:-}: there is nothing to take out of the way"
}

set_in() {
   local instance=$1 mark said
   mark=$( mark_of "$instance" )
   if [[ ${is_set[$instance]:-} == everywhere || -n ${is_set[$instance]:-} && -z $( marks_of "$instance" ) ]]; then
      say "$instance: $setting: set already, by somebody else, and left to them"
      return
   fi
   ask 'configure terminal' "route-map $mark permit 65535" "description a hook of ratemon has set $setting" exit \
      "$instance" "$setting"
   said=$answer
   read_running
   [[ -n ${is_set[$instance]:-} ]] || fail "$instance: $setting is not there after vtysh -d $daemon has done this: $said"
   say "$instance: $setting: set"
}

leave() {
   local mark instance found='' before
   read_running
   before=( "${marks[@]}" )
   for mark in "${before[@]}"; do
      instance=$( decoded "${mark##*:}" )
      [[ $mark == "$( mark_of "$instance" )" ]] && meant "$instance" "$@" || continue
      found=yes
      undo "$instance" "$mark"
   done
   [[ -n $found ]] || say "$daemon has nothing that was set here for unit $MAINT_UNIT"
}

undo() {
   local instance=$1 mark=$2 said='' commands=( "no route-map $mark permit 65535" )
   if [[ " ${instances[*]/%/;} " != *" $instance; "* ]]; then
      say "$instance: it is gone, and so is what was set"  # and would be made again if it were named
   elif [[ -n $( marks_of "$instance" "$mark" ) ]]; then
      say "$instance: $setting: stays for another unit"
   elif [[ ${is_set[$instance]:-} == everywhere ]]; then
      say "$instance: $setting: somebody else has set it everywhere meanwhile, and it is left to them"
   else
      # Also where it does not show: it may be set without effect.
      commands=( "$instance" "no $setting" exit "${commands[@]}" )
      said="$instance: $setting: taken back"
   fi
   ask 'configure terminal' "${commands[@]}"
   local did=$answer
   read_running
   [[ " ${marks[*]} " != *" $mark "* ]] || fail "the route-map $mark is still there after vtysh -d $daemon has done this: $did"
   [[ -n $said ]] || return 0
   [[ -z ${is_set[$instance]:-} ]] || fail "$instance: $setting is still there after vtysh -d $daemon has done this: $did"
   say "$said"
}

hook() {
   local operation=${1:-}
   [[ $operation == enter || $operation == exit ]] || fail "usage: $0 enter|exit [INSTANCE...]"
   [[ -n ${MAINT_UNIT:-} ]] || fail "MAINT_UNIT does not say for which unit this is"
   shift
   # One at a time: what is read must still hold when it is written.
   local lock
   exec {lock}< "$0"
   flock -w 25 "$lock" || fail "another process has had the lock of $0 for 25 s"
   if [[ $operation == enter ]]; then enter "$@"; else leave "$@"; fi
}
