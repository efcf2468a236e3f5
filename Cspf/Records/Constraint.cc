// Constraints as shared values. Many paths ask for the same computation, so a constraint is kept
// once and counted; the hash of its content is worked out once, when it is made. A constraint that
// comes into use gets its row in the table of constraint information, and the row goes with its
// last user. Both are told while the handle lives, so that watchers of the row may read it.

#include "Cspf/Records/Constraint.h"

#include "Cspf/Records/PathRows.h"
#include "platform/Kiv/DumpContext.h"

namespace Cspf {

std::strong_ordering
DedupConstraint::compareByContent( const Kiv::DedupHandle & other ) const {
   return content_ <=> static_cast< const DedupConstraint & >( other ).content_;
}

Lum::Ptr< DedupConstraint >
allocDedupConstraint( const InternalPathConstraint & constraint ) {
   return Lum::make< DedupConstraint >( constraint );
}

DedupConstraintTableNotifiee::DedupConstraintTableNotifiee(
   const Lum::Ptr< ConstraintInfoTable > & table )
   : table_( table ) {}

DedupConstraintTableNotifiee::~DedupConstraintTableNotifiee() = default;

void
DedupConstraintTableNotifiee::handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   constraintInfoTable()->constraintInfoIs( handle );
   LUM_ASSERT( constraintInfoTable()->constraintInfo( handle ) );
}

void
DedupConstraintTableNotifiee::handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   constraintInfoTable()->constraintInfoDel( handle );
   LUM_ASSERT( !constraintInfoTable()->constraintInfo( handle.ptr() ) );
}

DedupConstraintTable::DedupConstraintTable( const Lum::Ptr< ConstraintInfoTable > & table ) {
   DedupHashTableUnorderedSetIs( true );
   lifeTimeNotifieeIs( Lum::make< DedupConstraintTableNotifiee >( table ) );
}

Lum::Ptr< DedupConstraint >
DedupConstraintTable::dedup( const InternalPathConstraint & constraint ) {
   return DedupTable::dedup( allocDedupConstraint( constraint ) );
}

namespace {

void
dumpSrlgs( const char * heading, const Lum::Set< TrafficEngineering::SrlgId > & srlgs,
           Kiv::DumpContext & context, int indent ) {
   context.printf( indent, heading );
   for ( const auto srlg : srlgs ) {
      context.printf( 1, "%*c%u", srlg );
   }
   context.printf( 0, "\n" );
}

void
dumpHops( const InternalPathConstraint & c, Kiv::DumpContext & context, int indent ) {
   context.printf( indent, "%*cexcludeLinkWithIp #%u\n", unsigned( c.excludeLinkWithIps() ) );
   for ( unsigned i = 0; i < c.excludeLinkWithIps(); ++i ) {
      context.printf( indent + 1, "%*c%u : %s\n", i,
                      c.excludeLinkWithIpList()[ i ].stringValue().c_str() );
   }
   context.printf( indent, "%*cincludeHop #%u\n", unsigned( c.includeHops() ) );
   for ( unsigned i = 0; i < c.includeHops(); ++i ) {
      const IncludeHop & hop = c.includeHopList()[ i ];
      context.printf( indent + 1, "%*c%u : %s (%s)\n", i, hop.addr().stringValue().c_str(),
                      hop.loose() ? "loose" : "strict" );
   }
   context.printf( indent, "%*cincludeHopAllExplicit : %s\n",
                   c.includeHopAllExplicit() ? "true" : "false" );
}

}

void
dumpConstraint( const InternalPathConstraint & c, Kiv::DumpContext & context, int indent ) {
   context.printf( indent, "%*cConstraint needs SPF: %d\n", !c.noSpf() );
   context.printf( indent, "%*c Constraint exclude interface: %s\n",
                   c.excludeIntf().stringValue().c_str() );
   context.printf( indent, "%*c Constraint exclude node: %s, nexthopIntf: %s\n",
                   c.excludeNode().nodeId().stringValue().c_str(),
                   c.excludeNode().nexthopIntf().stringValue().c_str() );
   context.printf( indent, "%*c Constraint exclude Admin Group: 0x%x\n", c.excludeAdminGroup() );
   context.printf( indent, "%*c Constraint include All Admin Group: 0x%x\n",
                   c.includeAllAdminGroup() );
   context.printf( indent, "%*c Constraint include Any Admin Group: 0x%x\n",
                   c.includeAnyAdminGroup() );
   context.printf( indent,
                   "%*cbandwidth : %llusharedBwGroupId : %u, bwSetupPriority : %u, localId: %u\n",
                   static_cast< unsigned long long >( c.bandwidth() ), c.sharedBwGroupId(),
                   c.bwSetupPriority(), c.bwUsageId().localId() );
   context.printf( indent, "%*cexcludeSrlg: %d\n", c.excludeSrlg() );
   context.printf( indent, "%*csrlgStrictMode: %d\n", c.srlgStrictMode() );
   dumpSrlgs( "%*cexcludeSrlgDerived:", c.excludeSrlgDerivedSet(), context, indent );
   dumpSrlgs( "%*cincludeSrlgDerived:", c.includeSrlgDerivedSet(), context, indent );
   dumpHops( c, context, indent );
   context.printf( indent, "%*c neighborLink: %s\n", c.neighborLink().stringValue().c_str() );
   context.printf( indent, "%*c neighbor: %s\n", c.neighbor().stringValue().c_str() );
   context.printf( indent, "%*c reversePath: %d, pathComputationType: %d, sourceType: %d\n",
                   c.reversePath(), static_cast< int >( c.pathComputationType() ),
                   static_cast< int >( c.sourceType() ) );
}

}
