// The border between what anybody may have written and what the agent takes for granted.

#include "tools/redis/Border.h"

#include "tools/redis/Change.h"
#include "tools/state/Announcement.h"
#include "tools/state/StateFields.h"
#include "tools/state/StatePaths.h"

namespace Redis {

std::string
refusalOf( const std::string & key, const std::string & type ) {
   if ( !State::isUtf8( key ) ) {
      return "expected a path in UTF-8";
   }
   const auto kinds = isTable( key ) ? State::tablePaths() : State::entityPaths();
   const State::PathKind * kind =
      isTable( key ) || key.starts_with( "e:" ) ? State::pathKind( kinds, pathOf( key ) ) : nullptr;
   if ( !kind ) {
      return std::string( "no " ) + ( isTable( key ) ? "table" : "entity" )
             + " stands at such a path";
   }
   return type == kind->typeName
             ? std::string()
             : std::string( "expected \"" ) + kind->typeName + "\", found \"" + type + "\"";
}

Judge
judgeOf( const std::string & type ) {
   if ( type != Routing::Topology::ExportPath::lumTypeName ) {
      return nullptr;
   }
   return []( const Lum::Entity & entity ) -> std::string {
      const auto fault =
         State::faultOf( static_cast< const Routing::Topology::ExportPath & >( entity ) );
      return fault ? fault->what() : "";
   };
}

}
