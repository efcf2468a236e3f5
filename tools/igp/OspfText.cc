// LSAs are read one by one, whichever command printed them. An LSA counts what it holds: a text
// that was cut, or to which something was added, shows there.

#include "tools/igp/OspfText.h"

#include "tools/igp/TeText.h"

#include <algorithm>

namespace Igp {

namespace {

using Kivnet::IpAddr;

constexpr std::uint32_t teOpaque = 1;  ///< opaque type of traffic engineering

class OspfReader {
 public:
   OspfReader( std::string_view text, const std::string & name, OspfCapture & capture )
      : lines_( text, name ),
        capture_( capture ) {}

   void readAll();

 private:
   void readLine();
   bool readProcess();
   bool readSection();
   void readInterface();
   bool readHeader();
   void readRouter();
   void readNetwork();
   void readOpaque();
   void readTeLink();
   bool readTeAddress( OspfTeLink & link );
   bool readUnknown();
   void endLsa();
   bool isWhole() const;
   void checkWhole();
   std::string ownerText() const {
      return "opaque LSA " + lsa_->id.stringValue() + " of " + lsa_->advertiser.stringValue();
   }
   OspfProcess & process() { return capture_.processes[ vrf_ ]; }

   CaptureLines lines_;
   OspfCapture & capture_;
   L3::VrfName vrf_ = L3::VrfName::defaultVrf();
   IpAddr area_;
   Lsa::Kind kind_ = Lsa::Kind::other;
   bool inSection_ = false;
   std::optional< Lsa > lsa_;
   std::uint32_t length_ = 0;         ///< bytes of the LSA
   std::uint32_t linkCount_ = 0;      ///< of a router LSA, as it says
   std::uint32_t metricCount_ = 0;    ///< and as they follow
   std::uint32_t opaqueLength_ = 0;   ///< bytes of the TLVs of an opaque LSA
   std::uint32_t teLength_ = 0;       ///< bytes of the TLVs of a link, as it says
   std::uint32_t teFound_ = 0;        ///< and as they follow
   bool teSure_ = true;               ///< all of them are known
   Addresses * addresses_ = nullptr;  ///< what the next "#0:" lines are
   std::string intf_;
   std::uint32_t intfIndex_ = 0;
   bool intfUnnumbered_ = false;
};

void
OspfReader::readAll() {
   while ( lines_.next() ) {
      if ( !lines_.text().empty() ) {
         readLine();
      }
   }
   endLsa();
}

void
OspfReader::readLine() {
   if ( readProcess() || readSection() || readHeader() ) {
      return;
   }
   if ( !lsa_ ) {
      readInterface();
   } else if ( lsa_->kind == Lsa::Kind::router ) {
      readRouter();
   } else if ( lsa_->kind == Lsa::Kind::network ) {
      readNetwork();
   } else if ( lsa_->kind == Lsa::Kind::opaqueArea ) {
      readOpaque();
   }
}

bool
OspfReader::readProcess() {
   if ( auto vrf = lines_.after( "VRF Name: " ) ) {
      endLsa();
      inSection_ = false;
      const std::string_view name = takeWord( *vrf );
      if ( name.empty() || name.size() > L3::VrfName::maxLength ) {
         lines_.fail( "the name of a VRF", name );
      }
      vrf_ = L3::VrfName( std::string( name ) );
   } else if ( lines_.startsWith( "OSPF Router with ID (" ) ) {
      endLsa();
      inSection_ = false;
      process().self = lines_.ipv4( between( lines_.text(), "(", ")" ) );
   } else {
      return false;
   }
   return true;
}

/// "Router Link States (Area 0.0.0.1 [NSSA])"
bool
OspfReader::readSection() {
   const std::string_view text = lines_.text();
   const bool ofArea = text.find( " (Area " ) != text.npos && text.ends_with( ')' );
   if ( !ofArea && !text.ends_with( " Link States" ) && text.find( "Opaque-LSA" ) != 0 ) {
      return false;
   }
   endLsa();
   inSection_ = true;
   kind_ = !ofArea                                       ? Lsa::Kind::other
           : text.starts_with( "Router Link States" )    ? Lsa::Kind::router
           : text.starts_with( "Net Link States" )       ? Lsa::Kind::network
           : text.starts_with( "Area-Local Opaque-LSA" ) ? Lsa::Kind::opaqueArea
                                                         : Lsa::Kind::other;
   if ( kind_ != Lsa::Kind::other ) {
      std::string_view area = between( text, "(Area ", ")" );
      area_ = lines_.ipv4( takeWord( area ) );
      process().areas[ area_ ];
   }
   return true;
}

/// Of the router's own interfaces: "l12a is up", then what stands behind it.
void
OspfReader::readInterface() {
   std::string_view text = lines_.text();
   if ( lines_.indent() == 0 ) {
      const std::string_view name = takeWord( text );
      intf_ = takeWord( text ) == "is" ? std::string( name ) : std::string();
      intfUnnumbered_ = false;
      inSection_ = inSection_ && intf_.empty();
   } else if ( intf_.empty() || inSection_ ) {
      return;
   } else if ( auto index = lines_.after( "ifindex " ) ) {
      intfIndex_ = lines_.number( takeWord( *index ) );
   } else if ( lines_.startsWith( "This interface is UNNUMBERED" ) ) {
      process().unnumbered[ intfIndex_ ] = intf_;
      intfUnnumbered_ = true;
   } else if ( auto address = lines_.after( "Internet Address " ); address && !intfUnnumbered_ ) {
      const std::string_view word = takeWord( *address );
      process().interfaces[ lines_.address( word.substr( 0, word.find( '/' ) ) ) ] = intf_;
   }
}

bool
OspfReader::readHeader() {
   if ( auto age = lines_.after( "LS age: " ) ) {
      endLsa();
      if ( age->starts_with( "DNA" ) ) {  // it does not age (RFC 1793)
         age->remove_prefix( std::min( age->find_first_of( "0123456789" ), age->size() ) );
      }
      if ( inSection_ ) {
         lsa_.emplace();
         lsa_->kind = kind_;
         lsa_->age = lines_.number( *age );
         length_ = linkCount_ = metricCount_ = opaqueLength_ = teLength_ = teFound_ = 0;
         teSure_ = true;
      }
   } else if ( !lsa_ || lsa_->kind == Lsa::Kind::other ) {
      return false;
   } else if ( auto id = lines_.after( "Link State ID: " ) ) {
      lsa_->id = lines_.ipv4( takeWord( *id ) );
   } else if ( auto advertiser = lines_.after( "Advertising Router: " ) ) {
      lsa_->advertiser = lines_.ipv4( takeWord( *advertiser ) );
   } else if ( auto sequence = lines_.after( "LS Seq Number: " ) ) {
      lsa_->sequence = lines_.number( takeWord( *sequence ), 16 );
   } else if ( auto length = lines_.after( "Length: " ) ) {
      length_ = lines_.number( takeWord( *length ) );
   } else {
      return false;
   }
   return true;
}

void
OspfReader::readRouter() {
   if ( const auto count = lines_.after( "Number of Links: " ) ) {
      linkCount_ = lines_.number( *count );
      return;
   }
   if ( const auto kind = lines_.after( "Link connected to: " ) ) {
      using Kind = OspfLink::Kind;
      lsa_->links.emplace_back().kind = kind->starts_with( "another Router" )   ? Kind::pointToPoint
                                        : kind->starts_with( "a Transit" )      ? Kind::transit
                                        : kind->starts_with( "Stub" )           ? Kind::stub
                                        : kind->starts_with( "a Virtual Link" ) ? Kind::virtualLink
                                                                                : Kind::none;
      return;
   }
   if ( lsa_->links.empty() ) {
      return;
   }
   const std::string_view text = lines_.text();
   OspfLink & link = lsa_->links.back();
   if ( text.starts_with( "(Link ID) " ) ) {
      link.id = lines_.ipv4( text.substr( text.rfind( ' ' ) + 1 ) );
   } else if ( text.starts_with( "(Link Data) " ) ) {
      link.data = lines_.ipv4( text.substr( text.rfind( ' ' ) + 1 ) );
   } else if ( auto metric = lines_.after( "TOS 0 Metric: " ) ) {
      link.metric = lines_.number( takeWord( *metric ) );
      ++metricCount_;
   }
}

void
OspfReader::readNetwork() {
   if ( const auto mask = lines_.after( "Network Mask: /" ) ) {
      lsa_->mask = lines_.number( *mask );
      if ( lsa_->mask > 32 ) {
         lines_.fail( "a length of at most 32", *mask );
      }
   } else if ( const auto router = lines_.after( "Attached Router: " ) ) {
      lsa_->attached.insert( lines_.ipv4( *router ) );
   }
}

void
OspfReader::readOpaque() {
   if ( lsa_->id.value() >> 24 != teOpaque ) {
      return;  // no traffic engineering
   }
   if ( auto info = lines_.after( "Opaque-Info: " ) ) {
      opaqueLength_ = lines_.number( takeWord( *info ) );
   } else if ( const auto id = lines_.after( "Router-Address: " ) ) {
      lsa_->teRouterId = lines_.ipv4( *id );
   } else if ( auto length = lines_.after( "Link: " ) ) {
      lsa_->teLink.emplace();
      teLength_ = lines_.number( takeWord( *length ) );
   } else if ( lsa_->teLink ) {
      readTeLink();
   }
}

/// A sub-TLV has four bytes of its own before its value, which is padded to four.
void
OspfReader::readTeLink() {
   constexpr std::uint32_t plain = 8;  // with a value of four bytes or less
   OspfTeLink & link = *lsa_->teLink;
   if ( const auto id = lines_.after( "Link-ID: " ) ) {
      link.id = lines_.ipv4( *id );
      teFound_ += plain;
   } else if ( lines_.startsWith( "Link-Type: " )
               || lines_.startsWith( "Maximum Reservable Bandwidth: " ) ) {
      teFound_ += plain;
   } else if ( const auto metric = lines_.after( "Traffic Engineering Metric: " ) ) {
      link.attributes.teMetric = lines_.number( *metric );
      teFound_ += plain;
   } else if ( const auto color = lines_.after( "Resource class/color: " ) ) {
      link.attributes.adminGroup = lines_.mask( *color );
      teFound_ += plain;
   } else if ( auto most = lines_.after( "Maximum Bandwidth: " ) ) {
      link.attributes.bandwidth =
         readBandwidth( lines_, takeWord( *most ), ownerText(), capture_.findings );
      teFound_ += plain;
   } else if ( lines_.startsWith( "[" ) ) {
      readUnreserved( lines_, link.attributes, ownerText(), capture_.findings );
      teFound_ += lines_.startsWith( "[0]" ) ? 12 : 8;  // two priorities a line
   } else if ( !lines_.startsWith( "Unreserved Bandwidth" ) && !readTeAddress( link )
               && !readUnknown() ) {
      teSure_ = false;
   }
}

bool
OspfReader::readTeAddress( OspfTeLink & link ) {
   if ( lines_.startsWith( "Local Interface IP Address(es): " ) ) {
      addresses_ = &link.local;
   } else if ( lines_.startsWith( "Remote Interface IP Address(es): " ) ) {
      addresses_ = &link.remote;
   } else if ( lines_.startsWith( "#" ) && addresses_ ) {
      std::string_view rest = lines_.text();
      teFound_ += takeWord( rest ) == "#0:" ? 8 : 4;
      if ( const auto address = lines_.ipv4( takeWord( rest ) ) ) {
         addresses_->push_back( address );
      }
   } else {
      return false;
   }
   return true;
}

/// "Unknown TLV: [type(0x10), length(0x8)]"
bool
OspfReader::readUnknown() {
   const auto unknown = lines_.after( "Unknown TLV: [type(" );
   if ( !unknown ) {
      return false;
   }
   const std::uint32_t type = lines_.mask( unknown->substr( 0, unknown->find( ')' ) ) );
   const std::uint32_t length = lines_.mask( between( *unknown, "length(", ")" ) );
   teFound_ += 4 + ( ( length + 3 ) & ~3U );
   capture_.findings.push_back( ownerText() + ": sub-TLV " + std::to_string( type )
                                + " is not used" );
   return true;
}

/// One at its greatest age is on its way out.
void
OspfReader::endLsa() {
   constexpr std::uint32_t maxAge = 3600;
   addresses_ = nullptr;
   if ( lsa_ && lsa_->kind != Lsa::Kind::other ) {
      checkWhole();
      if ( lsa_->age < maxAge ) {
         process().areas[ area_ ].push_back( std::move( *lsa_ ) );
      }
   }
   lsa_.reset();
}

/// Each kind counts in its own way.
bool
OspfReader::isWhole() const {
   constexpr std::uint32_t networkHeader = 24, routerAddress = 8;
   if ( !lsa_->advertiser || !lsa_->id || !length_ ) {
      return false;
   }
   switch ( lsa_->kind ) {
   case Lsa::Kind::router: return lsa_->links.size() == linkCount_ && metricCount_ == linkCount_;
   case Lsa::Kind::network: return networkHeader + 4 * lsa_->attached.size() == length_;
   case Lsa::Kind::opaqueArea:
      return lsa_->id.value() >> 24 != teOpaque
             || ( lsa_->teLink ? !teSure_ || teFound_ == teLength_
                               : lsa_->teRouterId && opaqueLength_ <= routerAddress );
   case Lsa::Kind::other: break;
   }
   return true;
}

void
OspfReader::checkWhole() {
   if ( !isWhole() ) {
      lines_.fail( "the rest of the LSA " + lsa_->id.stringValue() + " of "
                      + lsa_->advertiser.stringValue(),
                   lines_.text() );
   }
}

}

void
readOspf( std::string_view text, const std::string & name, OspfCapture & capture ) {
   OspfReader( text, name, capture ).readAll();
}

}
