#pragma once

#include "tools/lab/LabState.h"
#include "tools/state/StateWalk.h"

#include <map>
#include <set>
#include <string>

namespace Lab {

/// Writes documents that patch state. What their other keys say stands in stores of its own first;
/// the patched result is brought to the live ones.
class LabPatchedState {
 public:
   /// `standing`: the state paths in the live stores that are to be emptied when no document has
   /// them.
   LabPatchedState( const Corvdb::TypeRegistry & types, std::set< std::string > standing );

   void write( const LabDocument & document, Corvdb::StateStore & state,
               Zorch::TableStore & tables );

 private:
   struct Wanted {
      const State::PathKind * kind = nullptr;
      State::Json value;
   };
   using AllWanted = std::map< std::string, Wanted >;

   AllWanted wanted( const LabDocument & document ) const;
   static void patch( const LabStateTexts & patches, AllWanted & all );

   Corvdb::StateStore state_;
   Zorch::TableStore tables_;
   LabState words_{ state_, tables_ };
   std::set< std::string > standing_;
};

}
