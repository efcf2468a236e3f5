#pragma once

#include "platform/Kivnet/IpGenAddr.h"
#include "platform/Kivnet/IpGenPrefix.h"
#include "platform/Lum/BytewiseOrder.h"
#include "platform/Lum/Value.h"

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Trace {
class Message;
}

namespace Routing::Isis {

/// The IS-IS system identifier of a router: six bytes, written "0100.0000.0001". The unset one
/// reads "0000.0000.0000".
struct SystemId {
   std::array< std::uint8_t, 6 > bytes{};

   static std::optional< SystemId > parse( std::string_view text );
   std::string stringValue() const;
   std::size_t hash() const noexcept;
   explicit operator bool() const noexcept { return *this != SystemId(); }
   bool operator==( const SystemId & ) const = default;
   auto operator<=>( const SystemId & ) const = default;
};

}

namespace Cspf {

enum class VertexType : std::uint8_t { none, isisRouter, ospfRouter, ipAddress, ipPrefix };

/// A vertex of a topology: a type and an identifier of up to 17 bytes. The identifier is an IS-IS
/// system id (6 bytes; 7 with the pseudonode byte), an OSPF router id (4; 5 with a network
/// number), an address (4 or 16), or a prefix (address bytes and length). The empty vertex
/// (type none, no bytes) tests false and sorts first.
class VertexIdentifierBase {
 public:
   static constexpr std::size_t maxLength = 17;

   constexpr VertexIdentifierBase() noexcept = default;
   /// Takes the text form of that type, as `stringValue` gives it. A text that does not parse
   /// makes the empty vertex.
   VertexIdentifierBase( VertexType type, std::string_view text );
   explicit VertexIdentifierBase( const Kivnet::IpGenAddr & address );
   explicit VertexIdentifierBase( const Kivnet::IpGenPrefix & prefix );
   explicit VertexIdentifierBase( const Routing::Isis::SystemId & id );

   /// The same router's network (LAN) of that number: the identifier with the number appended.
   /// REQUIRES: this is a router.
   VertexIdentifierBase pseudonode( std::uint8_t number ) const;

   VertexType type() const noexcept { return type_; }
   /// The system id of an IS-IS router or LAN; unset for every other vertex.
   Routing::Isis::SystemId isisSystemId() const noexcept;
   /// The address (of an OSPF router: its router id); unset where the vertex has none.
   Kivnet::IpGenAddr ipAddress() const noexcept;
   Kivnet::IpGenPrefix ipPrefix() const noexcept;

   std::string stringValue() const;
   void traceTo( Trace::Message & out ) const;
   std::size_t hash() const noexcept;
   explicit operator bool() const noexcept { return type_ != VertexType::none; }
   bool operator==( const VertexIdentifierBase & ) const = default;
   /// By type, then by length.
   std::strong_ordering operator<=>( const VertexIdentifierBase & other ) const noexcept {
      return Lum::bytewiseOrder( *this, other );
   }

 private:
   VertexType type_ = VertexType::none;
   std::uint8_t length_ = 0;
   std::array< std::uint8_t, maxLength > bytes_{};
};

#define CSPF_VERTEX_ID_( name_ )                                                                   \
   class name_ : public VertexIdentifierBase {                                                     \
    public:                                                                                        \
      using VertexIdentifierBase::VertexIdentifierBase;                                            \
      constexpr name_() noexcept = default;                                                        \
      explicit name_( const VertexIdentifierBase & vertex ) : VertexIdentifierBase( vertex ) {}    \
   }

/// A router or LAN inside of one IGP table.
CSPF_VERTEX_ID_( IgpRouterId );
/// A node of the agent's merged graph: a TE router id, or an IGP vertex.
CSPF_VERTEX_ID_( NodeId );
/// Where a path leads: a router or an address; for repair paths also a prefix.
CSPF_VERTEX_ID_( Destination );

#undef CSPF_VERTEX_ID_

LUM_ENUM( IgpSource, std::uint8_t, isis, ospf );

/// One IGP topology of a VRF and family. For IS-IS `number1` is the level, for OSPF `number2` is
/// the area.
struct TopoId {
   LUM_VALUE( Cspf, TopoId );
   LUM_FIELD( igpSource, IgpSource );
   LUM_FIELD( number1, std::uint32_t );
   LUM_FIELD( number2, std::uint32_t );

   static TopoId isisL1() { return { IgpSource::isis, 1, 0 }; }
   static TopoId isisL2() { return { IgpSource::isis, 2, 0 }; }
   /// "isis/2/0"; "" for the default.
   std::string stringValue() const;
   static std::optional< TopoId > parse( std::string_view text );
   explicit operator bool() const { return *this != TopoId(); }
};

}
