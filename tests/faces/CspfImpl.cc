#include "Cspf/CspfImpl.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &CspfData::source, &CspfData::useTeMetric, &CspfData::useLinksWithMaxMetric,
          &CspfData::buildReverseSpt, &CspfData::singleHopCountLimit, &CspfData::tepHas,
          &CspfData::routerWithTep, &CspfData::shortestPath, &CspfData::shortestPathForNetwork,
          &CspfData::getLinkMetric, &CspfData::getReverseLinkMetric,
          &CspfData::getReverseMetricNetwork, &LfaCspfData::sourceOverloaded > );

static_assert( requires( Lum::Ptr< CspfData > data, Lum::Ptr< AllTopoTeDbView > view,
                         CspfLinkInfoKey link, Kivnet::IpGenAddr address ) {
   CspfRunIs( data, view );
   address = data->nexthopOnLink( link );
   address = data->teRouterIdOfNexthopOnLink( link );
} );

TEST( Faces, CspfImpl ) {
   const CspfPathCost cost{ 30, 1, 2 };
   EXPECT_LT( ( CspfPathCost{ 40, 1, 1 } ), cost );
   EXPECT_EQ( cost.stringValue(), "30|SE-1|SI-2" );
   const std::string text = "Value('Cspf::CspfPathCost', ** {'metricCost': 30, "
                            "'srlgExcludeInfo': 1, 'srlgIncludeInfo': 2})";
   EXPECT_EQ( Lum::valueString( cost ), text );
   const CspfLinkInfoKey key( {}, {}, cost );
   EXPECT_NE( Lum::valueString( key ).find( "'cost': " + text + "})" ), std::string::npos );
   EXPECT_TRUE( key.routerLink() && key.equalCost( key ) );
   const CspfLinkInfo link{ key, {} };
   EXPECT_EQ( link.cost(), cost );
   EXPECT_EQ( link.allTopoNeighborKey(), key.allTopoNeighborKey() );
   EXPECT_EQ( link.routerInNetwork(), NodeId() );
   CspfPath path;
   path.lastLinkIs( link );
   EXPECT_EQ( path.metricCost(), 30u );
   EXPECT_EQ( path.pathCost(), cost );
   EXPECT_NE( Lum::hashOf( path ), Lum::hashOf( CspfPath() ) );
   EXPECT_NE( Lum::hashOf( link ), Lum::hashOf( CspfLinkInfo() ) );
   try {
      CspfPath( "text" );
      FAIL();
   } catch ( const std::invalid_argument & error ) {
      EXPECT_STREQ( error.what(), "No String constructor for CspfPath - has collection" );
   }
}
