#pragma once

#include "platform/Lum/Attribute.h"

namespace Lum {

/// A directory: entities by name, in name order. Watch `entity` for names that come and go.
class Dir : public Entity {
   LUM_ENTITY( Lum, Dir );
   LUM_COLLECTION_ORDERED( entity, String, Ptr< Entity > );
};

}
