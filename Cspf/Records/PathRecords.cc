// Records that are handed out are only read, so one of each content is enough. The set of them
// holds no references: a record leaves it with its last user.

#include "Cspf/Records/PathRecords.h"

#include <unordered_set>

namespace Cspf {

namespace {

const PathArray::Hops &
content( const PathArray & record ) {
   return record.path();
}

const PathSrlg::Hops &
content( const PathSrlg & record ) {
   return record.pathSrlg();
}

const PathTeRouterId::Hops &
content( const PathTeRouterId & record ) {
   return record.pathTeRouterId();
}

const IncludeIps::Hops &
content( const IncludeIps & record ) {
   return record.includeIp();
}

template< class Record >
class SharedRecord final : public Record {
 public:
   static Lum::Ptr< const Record > of( const typename Record::Hops & hops ) {
      const auto present = all().find( hops );
      return present == all().end() ? Lum::Ptr< const Record >( new SharedRecord( hops ) )
                                    : Lum::Ptr< const Record >( *present );
   }

 private:
   using Hops = typename Record::Hops;
   struct ByContent {
      using is_transparent = void;
      static const Hops & key( const Hops & hops ) { return hops; }
      static const Hops & key( const Record * record ) { return content( *record ); }
      // One that may throw is kept beside each record, not worked out again at each step.
      std::size_t operator()( const auto & record ) const noexcept( false ) {
         return Lum::hashOf( key( record ) );
      }
      bool operator()( const auto & a, const auto & b ) const { return key( a ) == key( b ); }
   };
   using All = std::unordered_set< const Record *, ByContent, ByContent >;

   explicit SharedRecord( const Hops & hops ) : Record( hops ) { all().insert( this ); }
   ~SharedRecord() override { all().erase( this ); }

   /// Never destroyed: the last records may go after it.
   static All & all() {
      static All & records = *new All;
      return records;
   }
};

}

template< class Record >
Lum::Ptr< const Record >
sharedRecord( const typename Record::Hops & hops ) {
   return SharedRecord< Record >::of( hops );
}

template< class Record >
Lum::Ptr< const Record >
sharedRecord( const typename Record::Hops & hops, Lum::Ptr< const Record > & last ) {
   if ( !last || content( *last ) != hops ) {
      last = sharedRecord< Record >( hops );
   }
   return last;
}

template Lum::Ptr< const PathArray > sharedRecord( const PathArray::Hops & );
template Lum::Ptr< const PathSrlg > sharedRecord( const PathSrlg::Hops & );
template Lum::Ptr< const PathTeRouterId > sharedRecord( const PathTeRouterId::Hops & );
template Lum::Ptr< const IncludeIps > sharedRecord( const IncludeIps::Hops & );
template Lum::Ptr< const PathSrlg > sharedRecord( const PathSrlg::Hops &,
                                                  Lum::Ptr< const PathSrlg > & );
template Lum::Ptr< const PathTeRouterId > sharedRecord( const PathTeRouterId::Hops &,
                                                        Lum::Ptr< const PathTeRouterId > & );

/// A record that is empty already is kept, since who compares results compares records first.
void
CspfPathResult::clear() {
   if ( !path || path->hopCount() || path->isPathFromSourceToSource() ) {
      path = sharedRecord< PathArray >( {} );
   }
   if ( !pathSrlg || pathSrlg->hopCount() ) {
      pathSrlg = sharedRecord< PathSrlg >( {} );
   }
   if ( !pathTeRouterId || pathTeRouterId->hopCount() ) {
      pathTeRouterId = sharedRecord< PathTeRouterId >( {} );
   }
   clearIncludeIps();
   pathAsTopoDbLinks = nullptr;
}

void
CspfPathResult::clearIncludeIps() {
   if ( !includeIps || !includeIps->includeIp().empty() ) {
      includeIps = sharedRecord< IncludeIps >( {} );
   }
}

}
