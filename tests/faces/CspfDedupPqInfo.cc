#include "Cspf/CspfDedupPqInfo.h"

#include <gtest/gtest.h>

using namespace Cspf::Lfa;

TEST( Faces, CspfDedupPqInfo ) {
   const auto table = Lum::make< DedupPqInfoTable >( Lum::make< Cspf::Status >() );
   PqPath path;
   path.pathIs( 0, {} );
   EXPECT_EQ( path.path( 0 ).stringValue(), "0000.0000.0000" );
   const auto info = table->dedup( path );
   EXPECT_EQ( table->dedup( path ), info );
   EXPECT_EQ( info->hash(), DedupPqInfo( path ).hash() );
   EXPECT_EQ( info->pqIdx(), table->idConfig().first() );
   EXPECT_EQ( table->idStatus()->inUse(), 1u );
   EXPECT_TRUE( table->idAllocator() && table->dedupTable() );
   path.pathDelAll();
   EXPECT_THROW( path.pathIs( 8, {} ), std::range_error );
}
