#pragma once

#include "platform/Kivnet/IpGenAddr.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Cspf {

/// Addresses by number, each unset at first: four bytes each as long as all are IPv4. The zero
/// address reads as unset.
class AddressColumn {
 public:
   void reserve( std::size_t numbers ) { v4_.reserve( numbers ); }
   void resize( std::size_t numbers ) {
      wide_.empty() ? v4_.resize( numbers ) : wide_.resize( numbers );
   }
   Kivnet::IpGenAddr operator[]( std::size_t number ) const {
      return wide_.empty() ? wide( v4_[ number ] ) : wide_[ number ];
   }
   void set( std::size_t number, const Kivnet::IpGenAddr & address ) {
      if ( wide_.empty() && address && address.af() != Kivnet::AddressFamily::ipv4 ) {
         widen();
      }
      if ( wide_.empty() ) {
         v4_[ number ] = address ? address.v4().value() : 0;
      } else {
         wide_[ number ] = address;
      }
   }

 private:
   static Kivnet::IpGenAddr wide( std::uint32_t v4 ) {
      return v4 ? Kivnet::IpGenAddr( Kivnet::IpAddr( v4 ) ) : Kivnet::IpGenAddr();
   }
   void widen() {
      wide_.reserve( v4_.capacity() );
      for ( const std::uint32_t v4 : std::exchange( v4_, {} ) ) {
         wide_.push_back( wide( v4 ) );
      }
   }

   std::vector< std::uint32_t > v4_;
   std::vector< Kivnet::IpGenAddr > wide_;  // in its place, from the first other address on
};

}
