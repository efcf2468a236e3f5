#include "tests/CapturePrinter.h"

#include "tools/igp/Topology.h"

#include <sstream>

using Cspf::IgpRouterId;

namespace {

/// The last lines of what both daemons print of a link.
void
printBandwidth( std::ostream & out, const Routing::Topology::Neighbor & link ) {
   out << "    Maximum Bandwidth: " << link.maxLinkBandwidth() << " (Bytes/sec)\n"
       << "    Maximum Reservable Bandwidth: " << link.maxLinkBandwidth() << " (Bytes/sec)\n"
       << "    Unreserved Bandwidth per Class Type in Byte/s:\n";
   for ( std::size_t i = 0; i < 8; i += 2 ) {
      out << "      [" << i << "]: " << link.unreservedBandwidth()[ i ] << " (Bytes/sec),\t["
          << i + 1 << "]: " << link.unreservedBandwidth()[ i + 1 ] << " (Bytes/sec)\n";
   }
}

template< class Print >
void
forEachLink( const Lab::LabTable & table, const IgpRouterId & router, Print print ) {
   for ( const auto & [ key, link ] : table.neighbor ) {
      if ( key.routerId() == router ) {
         print( link, key.neighborType() == Routing::Topology::lan(), key.neighborId() );
      }
   }
}

}

std::string
isisPrinted( const Lab::LabTable & table ) {
   std::ostringstream out;
   const auto head = [ & ]( const std::string & lsp, bool overload ) {
      out << lsp << "-00  100  0x00000003  0x6362  1164  0/0/" << overload << "\n";
   };
   const auto addresses = [ & ]( const char * what, const auto & list ) {
      for ( const auto & address : list ) {
         out << "    " << what << " Interface IP Address(es): " << address.stringValue() << "\n";
      }
   };
   out << "Area core:\nIS-IS Level-2 link-state database:\n"
       << "LSP ID  PduLen  SeqNumber  Chksum  Holdtime  ATT/P/OL\n";
   for ( const auto & [ id, router ] : table.router ) {
      head( id.stringValue() + ".00", router.overload() );
      out << "  Protocols Supported: IPv4\n";
      if ( router.teRouterId() ) {
         out << "  TE Router ID: " << router.teRouterId().stringValue() << "\n";
      }
      forEachLink( table, id, [ & ]( const auto & link, bool lan, const IgpRouterId & to ) {
         out << "  Extended Reachability: " << to.stringValue() << ( lan ? "" : ".00" )
             << " (Metric: " << link.metric() << ")\n"
             << "    Administrative Group: 0x" << std::hex << link.adminGroup() << std::dec << "\n";
         addresses( "Local", link.interfaceAddr_ );
         addresses( "Remote", link.neighborAddr_ );
         printBandwidth( out, link );
         if ( link.teMetric() ) {
            out << "    Traffic Engineering Metric: " << *link.teMetric() << "\n";
         }
      } );
      if ( const auto at = table.reachability.find( id ); at != table.reachability.end() ) {
         for ( const auto & one : at->second.prefix_ ) {
            out << "  Extended IP Reachability: " << one.prefix().stringValue()
                << " (Metric: " << one.metric() << ")\n";
         }
      }
   }
   for ( const auto & [ id, network ] : table.network ) {
      head( id.stringValue(), false );
      for ( const auto & member : network.router_ ) {
         out << "  Extended Reachability: " << member.stringValue() << ".00 (Metric: 0)\n";
      }
   }
   out << "    " << table.router.size() + table.network.size() << " LSPs\n";
   return out.str();
}

std::map< IgpRouterId, Kivnet::IpGenAddr >
lanAddresses( const Lab::LabTable & table ) {
   std::map< IgpRouterId, Kivnet::IpGenAddr > addresses;
   for ( const auto & [ key, link ] : table.neighbor ) {
      if ( key.neighborType() == Routing::Topology::lan()
           && key.neighborId().stringValue().starts_with( key.routerId().stringValue() + "." ) ) {
         addresses[ key.neighborId() ] = link.interfaceAddr( 0 );
      }
   }
   return addresses;
}

namespace {

class OspfPrinter {
 public:
   OspfPrinter( const Lab::LabTable & table, const std::string & vrf, std::uint32_t area );
   std::string text() const { return out_.str(); }

 private:
   void head( const std::string & id, const IgpRouterId & advertiser, std::size_t length ) {
      out_ << "\n  LS age: 774\n  Link State ID: " << id
           << " (what it is)\n  Advertising Router: " << advertiser.stringValue()
           << "\n  LS Seq Number: 80000006\n  Length: " << length << "\n\n";
   }
   void linkIs( const std::string & kind, const std::string & id, const std::string & data,
                std::uint32_t metric ) {
      out_ << "    Link connected to: " << kind << "\n     (Link ID) of that kind: " << id
           << "\n     (Link Data) likewise: " << data
           << "\n      Number of TOS metrics: 0\n       TOS 0 Metric: " << metric << "\n\n";
   }
   /// What interfaces without an address borrow: that of a LAN, or of the loopback.
   Kivnet::IpGenAddr lent( const IgpRouterId & router ) const {
      Kivnet::IpGenAddr address = router.ipAddress();
      forEachLink( table_, router, [ & ]( const auto & link, bool lan, const IgpRouterId & ) {
         address = lan ? link.interfaceAddr( 0 ) : address;
      } );
      return address;
   }
   void printRouter( const Routing::Topology::Router & router );
   void printTe( const Routing::Topology::Router & router );
   void printTeLink( const Routing::Topology::Neighbor & link, bool lan );

   const Lab::LabTable & table_;
   const std::map< IgpRouterId, Kivnet::IpGenAddr > lans_;
   std::ostringstream out_;
};

OspfPrinter::OspfPrinter( const Lab::LabTable & table, const std::string & vrf, std::uint32_t area )
   : table_( table ),
     lans_( lanAddresses( table ) ) {
   const std::string end = " (Area " + Kivnet::IpAddr( area ).stringValue() + ")\n\n";
   out_ << "VRF Name: " << vrf << "\n\n       OSPF Router with ID (1.1.1.0)\n\n"
        << "                Router Link States" << end;
   for ( const auto & [ id, router ] : table.router ) {
      printRouter( router );
   }
   out_ << "                Net Link States" << end;
   for ( const auto & [ id, network ] : table.network ) {
      const auto owner = id.id().ipAddress();
      head( lans_.at( id.id() ).stringValue(),
            { Cspf::VertexType::ospfRouter, owner.stringValue() },
            24 + 4 * network.router_.size() );
      out_ << "  Network Mask: /24\n";
      for ( const auto & member : network.router_ ) {
         out_ << "        Attached Router: " << member.stringValue() << "\n\n";
      }
   }
   out_ << "                Area-Local Opaque-LSA" << end;
   for ( const auto & [ id, router ] : table.router ) {
      if ( router.teRouterId() ) {
         printTe( router );
      }
   }
}

void
OspfPrinter::printRouter( const Routing::Topology::Router & router ) {
   const auto prefixes = table_.reachability.find( router.id() );
   const bool none = prefixes == table_.reachability.end();
   const std::size_t count =
      router.neighbor_.size() + ( none ? 0 : prefixes->second.prefix_.size() );
   head( router.id().stringValue(), router.id(), 24 + 12 * count );
   out_ << "   Number of Links: " << count << "\n\n";
   std::uint32_t index = 1;
   forEachLink( table_, router.id(), [ & ]( const auto & link, bool lan, const IgpRouterId & to ) {
      ++index;
      linkIs( lan ? "a Transit Network" : "another Router (point-to-point)",
              lan ? lans_.at( to ).stringValue() : to.stringValue(),
              link.interfaceAddr_.size() > 0 ? link.interfaceAddr( 0 ).stringValue()
                                             : Kivnet::IpAddr( index ).stringValue(),
              link.metric() );
   } );
   for ( const auto & one :
         none ? Routing::Topology::Reachability().prefix_ : prefixes->second.prefix_ ) {
      linkIs( "Stub Network", one.prefix().address().stringValue(),
              Kivnet::IpAddr( ~std::uint32_t( ( 1ULL << ( 32 - one.prefix().length() ) ) - 1 ) )
                 .stringValue(),
              one.metric() );
   }
}

void
OspfPrinter::printTe( const Routing::Topology::Router & router ) {
   std::uint32_t number = 1U << 24;
   const std::string address = "  Router-Address: " + router.teRouterId().stringValue() + "\n";
   head( Kivnet::IpAddr( number ).stringValue(), router.id(), 28 );
   out_ << "  Opaque-Info: 8 octets of data\n" << address;
   forEachLink( table_, router.id(), [ & ]( const auto & link, bool lan, const IgpRouterId & ) {
      head( Kivnet::IpAddr( ++number ).stringValue(), router.id(), 132 );
      out_ << "  Opaque-Info: 112 octets of data\n" << address;
      printTeLink( link, lan );
   } );
}

void
OspfPrinter::printTeLink( const Routing::Topology::Neighbor & link, bool lan ) {
   const bool numbered = link.interfaceAddr_.size() > 0;
   std::size_t length = 76;
   std::ostringstream out;
   const auto addresses = [ & ]( const char * what, const auto & list ) {
      length += 4 + 4 * list.size();
      out << what << list.size() << "\n";
      for ( std::size_t i = 0; i < list.size(); ++i ) {
         out << "    #" << i << ": " << list[ i ].stringValue() << "\n";
      }
   };
   const auto listOf = [ & ]( const auto & own, const Kivnet::IpGenAddr & borrowed ) {
      return numbered ? Igp::Addresses( own.begin(), own.end() ) : Igp::Addresses{ borrowed };
   };
   const auto & to = link.key().neighborId();
   addresses( "  Local Interface IP Address(es): ",
              listOf( link.interfaceAddr_, lent( link.key().routerId() ) ) );
   if ( !lan ) {
      addresses( "  Remote Interface IP Address(es): ", listOf( link.neighborAddr_, lent( to ) ) );
   }
   if ( link.teMetric() ) {
      length += 8;
      out << "  Traffic Engineering Metric: " << *link.teMetric() << "\n";
   }
   printBandwidth( out, link );
   out_ << "  Link: " << length << " octets of data\n  Link-Type: of that kind\n  Link-ID: "
        << ( lan ? lans_.at( to ).stringValue() : to.stringValue() ) << "\n"
        << out.str() << "  Resource class/color: 0x" << std::hex << link.adminGroup() << std::dec
        << "\n";
}

}

std::string
ospfPrinted( const Lab::LabTable & table, const std::string & vrf, std::uint32_t area ) {
   return OspfPrinter( table, vrf, area ).text();
}
