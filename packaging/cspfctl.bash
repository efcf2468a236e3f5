# Completion of cspfctl for bash. What there is to choose from, cspfctl says itself.

_cspfctl() {
   local line=${COMP_LINE:0:COMP_POINT} words typed
   read -ra words <<< "$line"
   [[ $line != *[[:space:]] ]] || words+=( "" )
   typed=${words[-1]}
   mapfile -t COMPREPLY < <( "$1" complete "${words[@]:1}" 2> /dev/null )
   [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != */ ]] || compopt -o nospace
   # Bash ends a word at a colon, and replaces what stands behind it alone.
   [[ $typed != *:* ]] || COMPREPLY=( "${COMPREPLY[@]#"${typed%"${typed##*:}"}"}" )
}
complete -o default -F _cspfctl cspfctl
