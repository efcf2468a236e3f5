// Which links of a table exist: those of which both ends say the same.

#include "tools/prove/Steps.h"

#include <algorithm>
#include <map>

namespace Prove {

using namespace Routing::Topology;
using Cspf::IgpRouterId;

bool
hasAddress( const Neighbor & link, const Kivnet::IpGenAddr & address ) {
   return std::ranges::count( link.interfaceAddrList(), address ) > 0;
}

namespace {

bool
knows( const Neighbor & link, const Neighbor & other ) {
   return std::ranges::any_of( link.neighborAddrList(), [ & ]( const auto & address ) {
      return hasAddress( other, address );
   } );
}

bool
mirror( const Neighbor & link, const Neighbor & other ) {
   return knows( link, other ) && knows( other, link );
}

bool
contradict( const Neighbor & link, const Neighbor & other ) {
   const auto denies = []( const Neighbor & one, const Neighbor & two ) {
      return !one.neighborAddrList().empty() && !two.interfaceAddrList().empty()
             && !knows( one, two );
   };
   return denies( link, other ) || denies( other, link );
}

class StepMaker {
 public:
   explicit StepMaker( const TopoDb & table ) {
      for ( const auto & [ key, link ] : table.neighborColl() ) {
         if ( !table.routerHas( key.routerId() ) ) {
            continue;
         }
         if ( key.neighborType() == p2p() ) {
            parallel_[ { key.routerId(), key.neighborId() } ][ key ] = &link;
         } else if ( const Network * lan = table.networkFind( { key.neighborId() } );
                     lan && lan->routerHas( key.routerId() ) ) {
            members_[ key.neighborId() ][ key ] = &link;
         }
      }
   }

   std::vector< Step > steps( TwoWay check ) {
      for ( auto & [ ends, forward ] : parallel_ ) {
         const auto backward = parallel_.find( { ends.second, ends.first } );
         if ( ends.first < ends.second && backward != parallel_.end() ) {
            pair( forward, backward->second, mirror );
            if ( check == TwoWay::unlessDenied ) {
               pair( forward, backward->second, []( const Neighbor & one, const Neighbor & two ) {
                  return !contradict( one, two );
               } );
            }
         }
      }
      for ( const auto & [ lan, links ] : members_ ) {
         cross( links );
      }
      std::ranges::stable_sort( steps_, {}, []( const Step & step ) { return step.link->key(); } );
      return std::move( steps_ );
   }

 private:
   using Links = std::map< NeighborKey, const Neighbor * >;

   /// Takes out of both what belongs together.
   template< class Match >
   void pair( Links & forward, Links & backward, Match match ) {
      for ( auto one = forward.begin(); one != forward.end(); ) {
         const auto other = std::ranges::find_if( backward, [ & ]( const auto & candidate ) {
            return match( *one->second, *candidate.second );
         } );
         if ( other == backward.end() ) {
            ++one;
            continue;
         }
         steps_.push_back( { one->second, other->second } );
         steps_.push_back( { other->second, one->second } );
         backward.erase( other );
         one = forward.erase( one );
      }
   }

   void cross( const Links & links ) {
      for ( const auto & [ nearKey, near ] : links ) {
         for ( const auto & [ farKey, far ] : links ) {
            if ( nearKey.routerId() != farKey.routerId() ) {
               steps_.push_back( { near, far, true } );
            }
         }
      }
   }

   std::map< std::pair< IgpRouterId, IgpRouterId >, Links > parallel_;
   std::map< IgpRouterId, Links > members_;
   std::vector< Step > steps_;
};

}

std::vector< Step >
stepsOf( const TopoDb & table, TwoWay check ) {
   return StepMaker( table ).steps( check );
}

}
