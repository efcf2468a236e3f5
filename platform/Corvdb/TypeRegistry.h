#pragma once

#include "platform/Lum/Dir.h"

#include <functional>
#include <map>
#include <string>

namespace Corvdb {

/// The entity types that state may consist of, by name.
class TypeRegistry {
 public:
   /// Knows `Lum::Dir` from the start.
   TypeRegistry() { typeIs< Lum::Dir >(); }

   template< class T >
   void typeIs() {
      makers_[ T::lumTypeName ] = [] { return Lum::Ptr< Lum::Entity >( new T ); };
   }
   bool has( const std::string & typeName ) const { return makers_.contains( typeName ); }
   /// A new entity of the type; null where there is no such type.
   Lum::Ptr< Lum::Entity > make( const std::string & typeName ) const {
      const auto at = makers_.find( typeName );
      return at == makers_.end() ? nullptr : at->second();
   }

 private:
   std::map< std::string, std::function< Lum::Ptr< Lum::Entity >() > > makers_;
};

}
