#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabDocument.h"

#include <nlohmann/json.hpp>

namespace Lab {

/// How things that stand in state are called: by what they are ("router", "link", ...), the table
/// that they stand in, and their ids.
using LabNames = std::map< std::string, std::string >;

/// How the document calls them.
LabNames namesOf( const LabDocument & document );

/// Which links and LANs belong into a document: what its reader takes, or all that there are to
/// see.
enum class Shown { readable, all };

/// The state as far as the words of a lab say it: networks, configuration, clients and what they
/// ask for. It need not be all that there is, nor a document that its reader takes. What `names`
/// does not call is called as the IGP does, else by addresses and ids. O(state log state).
LabDocument documentOf( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
                        const LabNames & names, Shown shown = Shown::readable );

/// All of the state as a lab: its words, patches of state for what they do not say, and what the
/// agent has published. An agent that starts on it finds the same state. O(state log state).
nlohmann::ordered_json labOf( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
                              const LabNames & names = {} );

}
