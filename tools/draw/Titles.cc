#include "tools/draw/Titles.h"

#include "tools/text/Bandwidth.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Draw {

using namespace Lab;

namespace {

std::string
bandwidth( float bytesPerSecond ) {
   const double most = 9e18;
   return Text::bandwidthText( static_cast< std::uint64_t >(
      std::min( std::round( static_cast< double >( bytesPerSecond ) ), most ) ) );
}

template< class List, class ToText >
std::string
joined( const List & list, ToText toText ) {
   std::string text;
   for ( const auto & one : list ) {
      text.append( text.empty() ? "" : ", " ).append( toText( one ) );
   }
   return text;
}

std::string
freeText( const LabLinkAttributes & attributes ) {
   const auto & free = attributes.unreserved;
   const bool same = std::ranges::count( free, free[ 0 ] ) == 8;
   return same ? bandwidth( free[ 0 ] ) + " free"
               : "free by priority: " + joined( free, bandwidth );
}

std::string
attributesText( const LabLinkAttributes & a ) {
   std::string text = "metric " + std::to_string( a.metric );
   if ( a.teMetric ) {
      text += ", TE metric " + std::to_string( *a.teMetric );
   }
   if ( a.bandwidth > 0 ) {
      text += ", bandwidth " + bandwidth( a.bandwidth ) + ", " + freeText( a );
   }
   if ( a.adminGroup ) {
      char mask[ 16 ];
      std::snprintf( mask, sizeof mask, "0x%x", a.adminGroup );
      text += std::string( ", admin group " ) + mask;
   }
   if ( !a.srlg.empty() ) {
      text += ", SRLG " + joined( a.srlg, []( auto id ) { return std::to_string( id ); } );
   }
   return text;
}

std::string
placeText( const Kivnet::IntfId & intf, const Addresses & addresses ) {
   const std::string list =
      joined( addresses, []( const auto & address ) { return address.stringValue(); } );
   return intf.stringValue() + ( list.empty() ? ", unnumbered" : ", " + list );
}

std::string
directionText( const LabLinkEnd & from, const LabLinkEnd & to,
               const LabLinkDirection & direction ) {
   return "\n" + from.router + " to " + to.router + ": "
          + ( direction.advertised ? "" : "not advertised, " )
          + attributesText( direction.attributes ) + "; " + placeText( from.intf, from.addrs );
}

}

std::uint32_t
metricOf( const LabLinkAttributes & attributes ) {
   return attributes.teMetric.value_or( attributes.metric );
}

double
freeOf( const LabLinkAttributes & attributes ) {
   return static_cast< double >( attributes.unreserved.back() );
}

std::string
metricLabel( const LabLink & link ) {
   const std::string there = std::to_string( metricOf( link.ab.attributes ) );
   const std::string back = std::to_string( metricOf( link.ba.attributes ) );
   return there == back ? there : there + "/" + back;
}

std::string
routerTitle( const std::string & topology, const LabRouter & router ) {
   std::string text = topology + ": " + router.id.stringValue();
   text += router.teRouterId ? ", TE router id " + router.teRouterId.stringValue() : "";
   text += router.overload ? ", overloaded" : "";
   const std::string prefixes = joined( router.prefixes, []( const auto & entry ) {
      return entry.first.stringValue() + " metric " + std::to_string( entry.second );
   } );
   return prefixes.empty() ? text : text + "\nprefixes " + prefixes;
}

std::string
linkTitle( const std::string & topology, const std::string & name, const LabLink & link ) {
   return name + " (" + topology + ")" + directionText( link.a, link.b, link.ab )
          + directionText( link.b, link.a, link.ba );
}

std::string
lanTitle( const std::string & topology, const std::string & name, const LabLan & lan ) {
   return "LAN " + name + " (" + topology + ")\ndesignated router " + lan.dr;
}

std::string
memberTitle( const std::string & topology, const std::string & lan, const std::string & router,
             const LabLanMember & member ) {
   return router + " at LAN " + lan + " (" + topology + ")\n"
          + ( member.attached ? "" : "not attached, " ) + attributesText( member.attributes ) + "; "
          + placeText( member.intf, member.addrs );
}

}
