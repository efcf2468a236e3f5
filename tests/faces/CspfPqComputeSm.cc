#include "Cspf/CspfPqComputeSm.h"

#include <gtest/gtest.h>

using namespace Cspf;

TEST( Faces, CspfPqComputeSm ) {
   const TilfaPathInfoKeyColl keys{ true, {}, "tilfa", {}, {} };
   EXPECT_EQ( Lum::valueString( keys ).find( "Value('Cspf::TilfaPathInfoKeyColl', ** "
                                             "{'isLinkProtection': True, 'pathKey': Value(" ),
              0u );
   EXPECT_NE( Lum::valueString( keys ).find( "'stalePathInfoKey': " ), std::string::npos );
   EXPECT_THROW( TilfaPathInfoKeyIndex( 8 ), std::range_error );
   EXPECT_GT( sizeof( Lfa::PqComputeSm ) + sizeof( Lfa::PqComputePfxSm ) + sizeof( TilfaPathSm )
                 + sizeof( TilfaConstraintInfoSm ),
              0u );
}
