#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Text {

/// The candidate that a person may have meant by a word that is none: begins with it, or differs
/// by few letters left out, added, wrong or swapped; "" where none does, or several do equally
/// well. O(size of the word times that of all candidates).
std::string nearest( std::string_view word, const std::vector< std::string > & candidates );

/// `; did you mean "paths"?`, or "" where nothing is near.
std::string didYouMean( std::string_view word, const std::vector< std::string > & candidates );

}
