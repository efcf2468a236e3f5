# Completion of cspfctl for fish. What there is to choose from, cspfctl says itself.

function __cspfctl_complete
   set -l words (commandline --cut-at-cursor --tokenize --current-process)
   set -l typed (commandline --current-token --cut-at-cursor)
   set -l found ($words[1] complete $words[2..-1] "$typed" 2> /dev/null)
   if test (count $found) -gt 0
      printf '%s\n' $found
   else
      __fish_complete_path "$typed"
   end
end
complete --command cspfctl --no-files --arguments '(__cspfctl_complete)'
