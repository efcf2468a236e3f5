#pragma once

#include "schema/EntityTypes.h"

#include <cmath>
#include <random>
#include <string>

/// Random values of every described type, made from the description alone. Small ranges, so that
/// keys of two values of one type often meet.
class RandomValue {
 public:
   explicit RandomValue( unsigned seed ) : engine_( seed ) {}

   unsigned below( unsigned n ) { return static_cast< unsigned >( engine_() % n ); }

   template< class T >
   T make() {
      T value{};
      fill( value );
      return value;
   }
   template< class E >
   void fillEntity( E & entity ) {
      Lum::forEachField( entity, [ & ]( const auto & field, auto & member ) {
         using Field = std::remove_cvref_t< decltype( field ) >;
         using Member = std::remove_cvref_t< decltype( member ) >;
         if constexpr ( Field::kind == Lum::FieldKind::collection ) {
            for ( unsigned n = below( 5 ); n > 0; --n ) {
               using Key = typename Member::key_type;
               const Key key = make< Key >();
               auto row = make< typename Member::mapped_type >();
               if constexpr ( Lum::HasOwnKey< decltype( row ), Key > ) {
                  Lum::firstField( row ) = key;
               }
               field.is( entity, key, std::move( row ) );
            }
         } else {
            field.is( entity, make< Member >() );
         }
      } );
   }

 private:
   template< class E >
   void fill( Lum::Ptr< E > & child ) {
      if constexpr ( std::is_same_v< E, Lum::Entity > ) {
         Lum::Ptr< Cspf::Client > client( new Cspf::Client );
         fillEntity( *client );
         child = client;
      } else {
         child = new E;
         fillEntity( *child );
      }
   }
   template< class T >
   void fill( std::optional< T > & value ) {
      if ( below( 2 ) ) {
         value = make< T >();
      }
   }
   template< class T, std::size_t n >
   void fill( std::array< T, n > & value ) {
      for ( T & element : value ) {
         fill( element );
      }
   }
   template< class Index, class T >
   void fill( Lum::List< Index, T > & list ) {
      for ( unsigned n = below( 4 ); n > 0; --n ) {
         list.push( make< T >() );
      }
   }
   template< class T >
   void fill( Lum::Set< T > & set ) {
      for ( unsigned n = below( 4 ); n > 0; --n ) {
         set.insert( make< T >() );
      }
   }
   void fill( Kivnet::IpAddr & a ) { a = Kivnet::IpAddr( below( 4 ) << 24 | below( 3 ) ); }
   void fill( Kivnet::IpGenAddr & a ) {
      const std::uint8_t byte = static_cast< std::uint8_t >( below( 3 ) );
      switch ( below( 3 ) ) {
      case 0: a = {}; break;
      case 1: a = make< Kivnet::IpAddr >(); break;
      default: a = Kivnet::Ip6Addr( { 0x20, 1, 0xd, 0xb8, 0, 0, byte, 0, 0, 0, 0, 0, 0, 0, 0, 1 } );
      }
   }
   void fill( Kivnet::IpGenPrefix & p ) {
      const auto address = make< Kivnet::IpGenAddr >();
      if ( address.af() != Kivnet::AddressFamily::unspecified ) {
         p = Kivnet::IpGenPrefix( address, static_cast< std::uint8_t >( below( 33 ) ) );
      }
   }
   void fill( Kivnet::IntfId & intf ) { intf = Kivnet::IntfId( make< std::string >() ); }
   void fill( L3::VrfName & vrf ) {
      const auto name = make< std::string >();
      vrf = L3::VrfName::isName( name ) ? L3::VrfName( name ) : L3::VrfName::defaultVrf();
   }
   void fill( Lum::SharedString & text ) { text = make< std::string >(); }
   void fill( std::string & text ) {
      static const char * const names[] = { "", "a", "Ethernet1/1", "\"~quoted\\", "z\xc3\xa9" };
      text = names[ below( 5 ) ];
   }
   void fill( Routing::Isis::SystemId & id ) {
      id.bytes[ 0 ] = static_cast< std::uint8_t >( below( 2 ) * 0xab );
      id.bytes[ 5 ] = static_cast< std::uint8_t >( below( 3 ) );
   }
   template< class T >
      requires std::derived_from< T, Cspf::VertexIdentifierBase >
   void fill( T & vertex ) {
      using namespace Cspf;
      static const VertexIdentifierBase kinds[] = {
         VertexIdentifierBase(),
         VertexIdentifierBase( VertexType::isisRouter, "0000.0000.00a1" ),
         VertexIdentifierBase( VertexType::isisRouter, "0000.0000.00a1" ).pseudonode( 0xff ),
         VertexIdentifierBase( VertexType::ospfRouter, "10.0.0.1" ),
         VertexIdentifierBase( VertexType::ospfRouter, "10.0.0.1" ).pseudonode( 1 ),
         VertexIdentifierBase( VertexType::ipAddress, "10.0.0.1" ),
         VertexIdentifierBase( VertexType::ipAddress, "2001:db8::1" ),
         VertexIdentifierBase( VertexType::ipPrefix, "10.0.0.0/24" ),
         VertexIdentifierBase( VertexType::ipPrefix, "2001:db8::/32" ) };
      vertex = T( kinds[ below( std::size( kinds ) ) ] );
   }
   template< class T >
   void fill( T & value ) {
      if constexpr ( Lum::Described< T > ) {
         Lum::forEachField( value, [ & ]( auto &, auto & member ) { fill( member ); } );
      } else if constexpr ( Lum::NamedEnum< T > ) {
         value = static_cast< T >( below( lumEnumTexts( T() ).size() ) );
      } else if constexpr ( requires { typename T::lumBounded; } ) {
         value = T( T::min + below( T::max - T::min + 1 ) );
      } else if constexpr ( std::is_floating_point_v< T > ) {
         value = static_cast< T >( std::ldexp( below( 1u << 24 ), -10 ) );
      } else {
         static const std::uint64_t limits[] = { 0, 1, 7, std::uint64_t( T( -1 ) ) };
         value = static_cast< T >( limits[ below( 4 ) ] );
      }
   }

   std::mt19937 engine_;
};
