#compdef cspfctl
# Completion of cspfctl for zsh. What there is to choose from, cspfctl says itself.

local -a found
found=( ${(f)"$( $words[1] complete "${(@)words[2,CURRENT]}" 2> /dev/null )"} )
if (( $#found )); then
   compadd -S '' -- ${(M)found:#*/}
   compadd -- ${found:#*/}
else
   _files
fi
