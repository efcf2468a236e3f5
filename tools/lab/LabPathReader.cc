// Reads what a client asks for. Names of routers, interfaces and topologies are looked up in the
// document's topologies, which are read before.

#include "tools/lab/LabReader.h"

#include <algorithm>

namespace Lab {

namespace {

Cspf::Destination
readDestination( const LabCursor & at, bool tilfa ) {
   const std::string & text =
      readText( at, tilfa ? "an IS-IS system id or a prefix" : "an address of a router" );
   const auto prefix = Kivnet::IpGenPrefix::parse( text );
   if ( tilfa ) {
      if ( const auto id = Routing::Isis::SystemId::parse( text ) ) {
         return Cspf::Destination( *id );
      }
      return Cspf::Destination( orFail( at, prefix, "an IS-IS system id or a prefix" ) );
   }
   if ( prefix && prefix->isHost() ) {
      return Cspf::Destination( prefix->address() );
   }
   return Cspf::Destination(
      orFail( at, Kivnet::IpGenAddr::parse( text ), "an address of a router" ) );
}

class ConstraintReader {
 public:
   ConstraintReader( const LabDocument & document, const LabPath & path,
                     LabInterfaces & interfaces )
      : document_( document ),
        path_( path ),
        interfaces_( interfaces ) {}

   LabConstraint read( const LabCursor & at ) const;

 private:
   Kivnet::IntfId readInterface( const LabCursor & at ) const;
   LabExcludeNode readExcludeNode( const LabCursor & at ) const;
   std::string readTopologyName( const LabCursor & at ) const;
   static std::uint32_t readPriority( const LabCursor & at );
   std::string readNode( const LabCursor & at ) const;
   static void readNeighbor( const LabCursor & at, LabConstraint & c );
   static std::uint32_t readMaxRepairNodes( const LabCursor & at );
   static LabIncludeHop readIncludeHop( const LabCursor & at );

   const LabDocument & document_;
   const LabPath & path_;
   LabInterfaces & interfaces_;
};

auto
flagKey( const char * name, bool & to ) {
   return key( name, [ &to ]( const LabCursor & v ) { to = readBool( v ); } );
}

auto
maskKey( const char * name, std::uint32_t & to ) {
   return key( name, [ &to ]( const LabCursor & v ) { to = readMask( v ); } );
}

auto
addressKey( const char * name, std::optional< Kivnet::IpGenAddr > & to ) {
   return key( name, [ &to ]( const LabCursor & v ) {
      to = v.value().isNull() ? Kivnet::IpGenAddr() : readAddress( v );
   } );
}

template< class Enum >
auto
memberKey( const char * name, std::optional< Enum > & to, const char * expected ) {
   return key( name, [ &to, expected ]( const LabCursor & v ) {
      to = parsed( v, Lum::enumParse< Enum >, expected );
   } );
}

template< class T, class Read >
auto
listKey( const char * name, std::vector< T > & to, Read read ) {
   return key( name, [ &to, read ]( const LabCursor & v ) {
      constexpr std::size_t most = Cspf::ConstraintAttrIndex::max + 1u;
      forEachElement( v, v.list( "a list of at most 100", most ),
                      [ & ]( const LabCursor & one ) { to.push_back( read( one ) ); } );
   } );
}

LabConstraint
ConstraintReader::read( const LabCursor & at ) const {
   LabConstraint c;
   readObject(
      at, key( "excludeIntf", [ & ]( auto & v ) { c.excludeIntf = readInterface( v ); } ),
      key( "excludeNode", [ & ]( auto & v ) { c.excludeNode = readExcludeNode( v ); } ),
      flagKey( "excludeSrlg", c.excludeSrlg ),
      maskKey( "includeAllAdminGroup", c.includeAllAdminGroup ),
      maskKey( "includeAnyAdminGroup", c.includeAnyAdminGroup ),
      maskKey( "excludeAdminGroup", c.excludeAdminGroup ),
      key( "topoId", [ & ]( auto & v ) { c.topoId = readTopologyName( v ); } ),
      flagKey( "srlgStrictMode", c.srlgStrictMode ),
      flagKey( "srlgExcludeOnlyLocalLinks", c.srlgExcludeOnlyLocalLinks ),
      key( "bandwidth", [ & ]( auto & v ) { c.bandwidth = readWholeBandwidth( v ); } ),
      key( "bwSetupPriority", [ & ]( auto & v ) { c.bwSetupPriority = readPriority( v ); } ),
      key( "sharedBwGroupId", [ & ]( auto & v ) { c.sharedBwGroupId = readUint32( v ); } ),
      listKey( "excludeLinkWithIp", c.excludeLinkWithIp,
               []( const LabCursor & v ) { return readAddress( v ); } ),
      listKey( "includeHop", c.includeHop, readIncludeHop ),
      flagKey( "includeHopAllExplicit", c.includeHopAllExplicit ),
      flagKey( "reversePath", c.reversePath ),
      memberKey( "pathComputationType", c.pathComputationType, "\"cspf\" or \"tilfa\"" ),
      memberKey( "sourceType", c.sourceType,
                 "\"plr\", \"neighborOnLink\" or \"pathSegmentSource\"" ),
      addressKey( "neighborLink", c.neighborLink ),
      key( "neighbor", [ & ]( auto & v ) { readNeighbor( v, c ); } ),
      key( "maxRepairNodes", [ & ]( auto & v ) { c.maxRepairNodes = readMaxRepairNodes( v ); } ),
      flagKey( "fallBackToLink", c.fallBackToLink ), flagKey( "noSpf", c.noSpf ) );
   return c;
}

void
ConstraintReader::readNeighbor( const LabCursor & at, LabConstraint & c ) {
   if ( at.value().isNull() ) {
      c.neighbor = Kivnet::IpGenAddr();
      return;
   }
   const std::string & text = readText( at, "an address or an IS-IS system id" );
   if ( const auto id = Routing::Isis::SystemId::parse( text ) ) {
      c.neighborSystemId = *id;
   } else {
      c.neighbor =
         orFail( at, Kivnet::IpGenAddr::parse( text ), "an address or an IS-IS system id" );
   }
}

std::uint32_t
ConstraintReader::readMaxRepairNodes( const LabCursor & at ) {
   return static_cast< std::uint32_t >( readNumber( at, 1, Cspf::RepairNodeIdx::max + 1u ) );
}

std::string
ConstraintReader::readTopologyName( const LabCursor & at ) const {
   const std::string & name = readText( at, "a topology's name" );
   const auto topology = document_.topologies.find( name );
   if ( topology == document_.topologies.end() ) {
      at.fail( "the name of a topology of the lab" );
   }
   if ( topology->second.af != path_.af ) {
      at.fail( "the name of a topology of the path's family" );
   }
   return name;
}

std::uint32_t
ConstraintReader::readPriority( const LabCursor & at ) {
   return static_cast< std::uint32_t >(
      readNumber( at, Cspf::BwPriority::min, Cspf::BwPriority::max ) );
}

Kivnet::IntfId
ConstraintReader::readInterface( const LabCursor & at ) const {
   const Kivnet::IntfId intf = readIntf( at );
   if ( !interfaces_.contains( intf ) ) {
      at.fail( "the name of an interface of the lab" );
   }
   return intf;
}

LabExcludeNode
ConstraintReader::readExcludeNode( const LabCursor & at ) const {
   LabExcludeNode exclude;
   readObject(
      at,
      requiredKey( "node", "a router's name", [ & ]( auto & v ) { exclude.node = readNode( v ); } ),
      key( "nexthopIntf", [ & ]( auto & v ) { exclude.nexthopIntf = readInterface( v ); } ) );
   return exclude;
}

std::string
ConstraintReader::readNode( const LabCursor & at ) const {
   const std::string & node = readText( at, "a router's name" );
   for ( const auto & [ name, topology ] : document_.topologies ) {
      if ( topology.vrf == path_.vrf && topology.af == path_.af
           && topology.routers.contains( node ) ) {
         return node;
      }
   }
   at.fail( "the name of a router of the path's VRF and family" );
}

LabIncludeHop
ConstraintReader::readIncludeHop( const LabCursor & at ) {
   LabIncludeHop hop;
   readObject(
      at, requiredKey( "addr", "an address", [ & ]( auto & v ) { hop.addr = readAddress( v ); } ),
      key( "loose", [ & ]( auto & v ) { hop.loose = readBool( v ); } ) );
   return hop;
}

}

bool
LabInterfaces::contains( const Kivnet::IntfId & intf ) {
   if ( known_.empty() ) {
      find();
   }
   return intf.number() < known_.size() && known_[ intf.number() ];
}

void
LabInterfaces::find() {
   const auto add = [ & ]( const Kivnet::IntfId & intf ) {
      known_.resize( std::max< std::size_t >( known_.size(), intf.number() + 1 ) );
      known_[ intf.number() ] = true;
   };
   for ( const auto & [ name, topology ] : document_.topologies ) {
      for ( const auto & [ linkName, link ] : topology.links ) {
         add( link.a.intf );
         add( link.b.intf );
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         for ( const auto & [ router, member ] : lan.members ) {
            add( member.intf );
         }
      }
   }
}

LabPath
readPath( const LabCursor & at, const std::string & client, const LabDocument & document,
          LabInterfaces & interfaces ) {
   LabPath path;
   const bool tilfa = client == tilfaClient;
   const LabJson * constraint = nullptr;
   readObject( at, key( "vrf", [ & ]( auto & v ) { path.vrf = readVrf( v ); } ),
               key( "af", [ & ]( auto & v ) { path.af = readFamily( v ); } ),
               requiredKey( "dst",
                            tilfa ? "an IS-IS system id or a prefix" : "an address of a router",
                            [ & ]( auto & v ) { path.dst = readDestination( v, tilfa ); } ),
               key( "id", [ & ]( auto & v ) { path.id = readUint32( v ); } ),
               key( "refreshReqSeq", [ & ]( auto & v ) { path.refreshReqSeq = readUint32( v ); } ),
               key( "autoUpdate", [ & ]( auto & v ) { path.autoUpdate = readBool( v ); } ),
               key( "constraint", [ & ]( auto & v ) { constraint = &v.value(); } ) );
   if ( constraint ) {
      // After the VRF and the family, which its names depend on.
      path.constraint = ConstraintReader( document, path, interfaces )
                           .read( LabCursor( at, "constraint", *constraint ) );
   }
   return path;
}

}
