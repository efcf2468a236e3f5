// Names of interfaces, kept for the life of the process: there are as many as interfaces in the
// networks that it sees, and ids of them are everywhere.

#include "platform/Kivnet/IntfId.h"

#include <unordered_map>
#include <vector>

namespace Kivnet {

namespace {

using Numbers = std::unordered_map< std::string, std::uint32_t >;

/// The names by number, from 1.
std::vector< const Numbers::value_type * > &
namesInOrder() {
   static std::vector< const Numbers::value_type * > names;
   return names;
}

}

const IntfId::Name IntfId::noName;

IntfId::IntfId( std::string_view name ) {
   static Numbers numbers;
   if ( name.empty() ) {
      return;
   }
   const auto [ at, fresh ] = numbers.try_emplace( std::string( name ) );
   if ( fresh ) {
      namesInOrder().push_back( &*at );
      at->second = static_cast< std::uint32_t >( namesInOrder().size() );
   }
   name_ = &*at;
}

IntfId
IntfId::fromNumber( std::uint32_t number ) {
   IntfId id;
   if ( number != 0 ) {
      id.name_ = namesInOrder()[ number - 1 ];
   }
   return id;
}

}
