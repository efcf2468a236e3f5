#include "Cspf/CspfDedupConstraint.h"

#include <gtest/gtest.h>

using namespace Cspf;

TEST( Faces, CspfDedupConstraint ) {
   const auto infos = Lum::make< ConstraintInfoTable >();
   const auto table = Lum::make< DedupConstraintTable >( infos );
   InternalPathConstraint asked;
   const auto first = table->dedup( asked );
   asked.bandwidthIs( 1 );
   const auto second = table->dedup( asked );
   const Lum::Ptr< DedupConstraintLifeTimeNotifier > notifier = second;
   EXPECT_TRUE( notifier->content() );
   EXPECT_EQ( notifier->pathConstraint(), notifier->dedupContent().pathConstraint() );
   EXPECT_EQ( first->compare( *second ), std::strong_ordering::less );
   EXPECT_EQ( second->compareByContent( *allocDedupConstraint( asked ) ),
              std::strong_ordering::equal );
   EXPECT_NE( second->compare( *allocDedupConstraint( asked ) ), std::strong_ordering::equal );
   EXPECT_EQ( table->dedup( asked ), second );
   EXPECT_TRUE( infos->constraintInfoIs( second ) );
   ConstraintStatsTable stats;
   stats.constraintStatsIs( second )->cspfCountInc();
   EXPECT_EQ( stats.constraintStats( second )->cspfCount(), 1u );
   EXPECT_THROW( InternalPathConstraint( "text" ), std::invalid_argument );
}
