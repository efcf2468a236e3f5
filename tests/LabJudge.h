#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

struct Judgement {
   std::string complaints;   ///< "" where all is well
   std::size_t paths = 0;    ///< published with hops
   std::size_t missing = 0;  ///< published without, since there is none
};

/// Holds what was published (the lab's output as JSON) against what the document asks for, by the
/// oracle. Ordinary IPv4 paths are judged; those with include hops, bandwidth or another source are
/// passed over. `fresh`: paths in use have just been computed, so that they are the best as well.
Judgement judge( const nlohmann::json & document, const nlohmann::json & outcome, bool fresh );
