#pragma once

namespace Corvdb {
class TypeRegistry;
}

namespace Schema {

/// Makes every entity type that lives at a state path or in a table known by its name.
void registerTypes( Corvdb::TypeRegistry & registry );

}
