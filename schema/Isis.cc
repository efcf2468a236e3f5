// The identity of an IS-IS router as segment routing publishes it.

#include "schema/Isis.h"

namespace Mpls {

RouterId
RouterId::fromSystemId( const Routing::Isis::SystemId & id ) {
   const auto & b = id.bytes;
   return { std::uint32_t( b[ 0 ] ) << 24 | std::uint32_t( b[ 1 ] ) << 16
               | std::uint32_t( b[ 2 ] ) << 8 | b[ 3 ],
            static_cast< std::uint16_t >( b[ 4 ] << 8 | b[ 5 ] ) };
}

std::string
RouterId::stringValue() const {
   Routing::Isis::SystemId id;
   for ( int i = 0; i < 4; ++i ) {
      id.bytes[ i ] = static_cast< std::uint8_t >( routerId_ >> ( 24 - 8 * i ) );
   }
   id.bytes[ 4 ] = static_cast< std::uint8_t >( labelSpace_ >> 8 );
   id.bytes[ 5 ] = static_cast< std::uint8_t >( labelSpace_ );
   return id.stringValue();
}

}
