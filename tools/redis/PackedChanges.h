#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Redis {

/// Changes of one key as one text, as they go to the server and stand in its log: in MessagePack
/// an array of fields and texts in turn, then one of the fields that are gone. The server copies
/// it as it is.
class PackedChanges {
 public:
   /// What one entry of the log holds.
   static constexpr std::uint16_t most = 300;

   void fieldIs( std::string_view field, std::string_view text );
   void fieldDel( std::string_view field );
   std::uint16_t size() const { return set_ + ended_; }
   /// Leaves it empty. REQUIRES: no more than `most`.
   std::string take();

 private:
   std::string setTexts_, endedTexts_;
   std::uint16_t set_ = 0, ended_ = 0;
};

using VisitChange =
   std::function< void( std::string_view field, std::optional< std::string_view > text ) >;
/// Calls `visit` for each change, in order; without a text the field is gone. False where the rest
/// is none of packed changes.
bool forEachPacked( std::string_view packed, const VisitChange & visit );

}
