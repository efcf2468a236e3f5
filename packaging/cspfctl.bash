# Completion of cspfctl for bash.

_cspfctl() {
   local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} path
   if [[ $COMP_CWORD -eq 1 ]]; then
      mapfile -t COMPREPLY < <( compgen -W "run repairs check prove explain whatif import load get patch watch dump status paths metrics trace trace-level support --help" -- "$word" )
      return
   fi
   case "$command:$word" in
   run:-*) mapfile -t COMPREPLY < <( compgen -W "--json --verbose --seed --realtime --help" -- "$word" ) ;;
   prove:-*) mapfile -t COMPREPLY < <( compgen -W "--at --seed --socket --timeout --json --help" -- "$word" ) ;;
   explain:-*) mapfile -t COMPREPLY < <( compgen -W "--why-not --vrf --at --seed --socket --json --help" -- "$word" ) ;;
   whatif:-*) mapfile -t COMPREPLY < <( compgen -W "--event --each --at --seed --json --help" -- "$word" ) ;;
   import:-*) mapfile -t COMPREPLY < <( compgen -W "--router --bare --help" -- "$word" ) ;;
   repairs:-*) mapfile -t COMPREPLY < <( compgen -W "--node --every-router --socket --json --help" -- "$word" ) ;;
   check:-* | trace:-*) mapfile -t COMPREPLY < <( compgen -W "--help" -- "$word" ) ;;
   patch:-* | load:-* | dump:-* | metrics:-* | support:-*) mapfile -t COMPREPLY < <( compgen -W "--socket --help" -- "$word" ) ;;
   trace-level:-*) mapfile -t COMPREPLY < <( compgen -W "--files --socket --help" -- "$word" ) ;;
   *:-*) mapfile -t COMPREPLY < <( compgen -W "--socket --json --help" -- "$word" ) ;;
   import:*)
      if [[ $COMP_CWORD -eq 2 ]]; then
         mapfile -t COMPREPLY < <( compgen -W "isis ospf" -- "$word" )
      else
         mapfile -t COMPREPLY < <( compgen -f -- "$word" )
      fi
      ;;
   run:* | repairs:* | check:* | prove:* | explain:* | whatif:* | load:* | trace:* | support:*) mapfile -t COMPREPLY < <( compgen -f -- "$word" ) ;;
   trace-level:*) mapfile -t COMPREPLY < <( compgen -W "0 7 8 9" -- "$word" ) ;;
   get:* | patch:* | watch:*)
      path="te/config te/cspf/client te/cspf/cliConfig te/cspf/agentStatus te/cspf/status/vrf
            te/cspf/config/vrf te/cspf/constraintStatus/vrf te/cspf/bwUsage/vrf routing/topoDbExport
            routing/general/config/global segmentrouting/isis routing/isis/topodb
            interface/status/eth/phy/all interface/status/eth/lag"
      mapfile -t COMPREPLY < <( compgen -W "$path" -- "$word" )
      ;;
   esac
}
complete -o default -F _cspfctl cspfctl
