// The one place that turns the list of state types into the registry that back ends make new
// entities from.

#include "schema/Types.h"

#include "platform/Corvdb/TypeRegistry.h"
#include "schema/EntityTypes.h"

namespace Schema {

void
registerTypes( Corvdb::TypeRegistry & registry ) {
   forEachEntityType( [ & ]< class E >( Is< E > ) { registry.typeIs< E >(); } );
}

}
