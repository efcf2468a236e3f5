// The reasons of a repair. Nothing here follows the repair computation: what it says is read off
// from packets that are sent, and from lists of repair nodes that are tried.

#include "tools/prove/RepairReason.h"

#include "tools/prove/TeNetwork.h"
#include "tools/state/JsonText.h"

#include <algorithm>
#include <stdexcept>

namespace Prove {

namespace {

std::string
nodesText( std::uint32_t nodes ) {
   return nodes == 0 ? "no repair node"
                     : std::to_string( nodes ) + " repair node" + ( nodes == 1 ? "" : "s" );
}

}

RepairReason::RepairReason( const Snapshot & state, const Service & service, const Answer & answer,
                            NameOf nameOf )
   : state_( state ),
     topologies_( state, service ),
     nameOf_( std::move( nameOf ) ),
     answer_( answer ),
     asked_( RepairTopologies::protectionOf( answer ) ) {
   if ( !topologies_.self() || answer.uncertain() ) {
      return;
   }
   const Step * link = nullptr;
   topology_ = topologies_.topologyOf( answer, link );
   if ( !topology_ || !RepairTopologies::isJudged( asked_, *link )
        || topologies_.prefersRisks( asked_ ) ) {
      return;
   }
   protected_ = link;
   failure_ = topologies_.failureOf( *topology_, *link, asked_ );
   topology_->walker->failureIs( failure_ );
   originators_ = topology_->originators( answer.key.dst() );
   const auto * info = topologies_.published( answer.status->repairPathIdx() );
   if ( info && !topologies_.repairOf( *topology_, *info, repair_ ).empty() ) {
      protected_ = nullptr;
   }
   if ( isKnown() && walker().costAfter( originators_ ) < RepairWalker::far ) {
      shortest_ = walker().shortest( originators_ );
   }
}

std::string
RepairReason::destination() const {
   const auto & dst = answer_.key.dst();
   return dst.isisSystemId() ? nameOf_( Cspf::IgpRouterId( dst ) ) : State::toText( dst );
}

/// "R1 - R2 (10.1.0.1)"
std::string
RepairReason::linkText( std::uint32_t from, const RepairNetwork::Step & step ) const {
   const Step * link = topology_->step( from, step );
   const std::string ends = name( from ) + " - " + name( step.to );
   return link && !link->link->interfaceAddrList().empty()
             ? ends + " (" + link->link->interfaceAddrList()[ 0 ].stringValue() + ")"
             : ends;
}

/// Why that link fails, or is not to be used.
std::string
RepairReason::failureText( std::uint32_t from, const RepairNetwork::Step & step ) const {
   const Step * link = topology_->step( from, step );
   if ( step.to == failure_.node || from == failure_.node ) {
      return "is one of " + name( failure_.node ) + ", which is protected against";
   }
   if ( link && ( link->link == protected_->link || link->link == protected_->back ) ) {
      return "is protected against";
   }
   const std::string text =
      link ? topologies_.refusal( asked_, risksOf( state_, asked_ ), *link ) : "";
   return text.empty() ? "fails with it" : text;
}

std::string
RepairReason::meets( const RepairWalker::Meeting & meeting ) const {
   return meeting.from == none ? "do not get there"
                               : "cross the link " + linkText( meeting.from, meeting.step )
                                    + ", which " + failureText( meeting.from, meeting.step );
}

/// "in P of R2" or "not in P of R2: plain routes from there cross .."
std::string
RepairReason::pText( std::uint32_t from, std::uint32_t to ) const {
   RepairWalker::Meeting meeting;
   return walker().forward( from, { { to, 0 } }, &meeting )
             ? "in P of " + name( from )
             : "not in P of " + name( from ) + ": plain routes from there " + meets( meeting );
}

std::string
RepairReason::qText( std::uint32_t router ) const {
   RepairWalker::Meeting meeting;
   return walker().forward( router, originators_, &meeting )
             ? "in Q"
             : "not in Q: plain routes from there to " + destination() + " " + meets( meeting );
}

std::string
RepairReason::equalText( std::uint64_t count ) const {
   return count == 1 ? "it is the only one with so few"
                     : "it is one of " + std::to_string( count )
                          + " equal ones, told apart by next hop and repair nodes; a hash of the "
                            "destination chooses, so that destinations spread";
}

std::string
RepairReason::absence() const {
   const std::uint32_t allowed = repairNodesAllowed( asked_ );
   if ( walker().costAfter( originators_ ) >= RepairWalker::far ) {
      return "after the failure no way leads to " + destination();
   }
   if ( shortest_.count > 0 && shortest_.nodes > allowed ) {
      return "the paths after the failure need " + nodesText( shortest_.nodes ) + ", and "
             + std::to_string( allowed ) + " may be used";
   }
   return "";
}

std::vector< std::string >
RepairReason::why() const {
   if ( !isKnown() || repair_.firstHop == none ) {
      const std::string text = isKnown() ? absence() : "";
      return text.empty() ? std::vector< std::string >() : std::vector{ text };
   }
   std::vector< std::string > lines{ "after the failure the way to " + destination() + " costs "
                                     + std::to_string( walker().costAfter( originators_ ) ) };
   std::uint32_t at = repair_.firstHop;
   lines.push_back( "next hop " + name( at ) + ": " + qText( at ) );
   for ( const Repair::Segment & segment : repair_.segments ) {
      const std::string link = segment.link == none ? "" : ", so the link from there is taken";
      const std::string p = pText( at, segment.node );
      lines.push_back( "repair node " + name( segment.node ) + ": " + p
                       + ( p.starts_with( "not" ) ? link : "" ) + "; " + qText( segment.node ) );
      at = segment.node;
   }
   const bool leaves = !walker().walk( repair_, originators_, false );
   lines.push_back(
      leaves ? "the paths after the failure need more repair nodes than there may be: it leaves "
               "them, by the fewest nodes, and of these by the cheapest way"
             : "with fewer than " + nodesText( shortest_.nodes ) + " packets do not arrive; "
                  + equalText( shortest_.count ) );
   if ( !leaves && shortest_.nodes == 0 ) {
      lines.back() = "no repair node is needed; " + equalText( shortest_.count );
   }
   return lines;
}

std::string
RepairReason::dearer( std::uint32_t cost ) const {
   const std::string best = std::to_string( walker().costAfter( originators_ ) );
   return cost >= RepairWalker::far ? "leads nowhere after the failure"
                                    : "is dearer: after the failure it costs "
                                         + std::to_string( cost ) + " against " + best;
}

/// What becomes of the repairs by something that stands all the tests.
std::string
RepairReason::standing( const std::string & what, const RepairWalker::Shortest & by ) const {
   return by.count == 0                ? what + ": no repair on the paths after the failure has it"
          : by.nodes > shortest_.nodes ? what + ": takes " + nodesText( by.nodes ) + ", and "
                                            + nodesText( shortest_.nodes ) + " will do"
                                       : what + ": as good, " + std::to_string( by.count ) + " of "
                                            + std::to_string( shortest_.count )
                                            + " equal ones; a hash of the destination chooses";
}

/// By which the PLR reaches a neighbour at the least cost; null where it does not.
const RepairNetwork::Step *
RepairReason::firstLink( std::uint32_t router, bool mayFail ) const {
   const RepairNetwork::Step * least = nullptr;
   for ( const auto & step : walker().network().steps[ failure_.plr ] ) {
      if ( step.to == router && ( mayFail || !walker().fails( failure_.plr, step ) )
           && ( !least || step.metric < least->metric ) ) {
         least = &step;
      }
   }
   return least;
}

std::vector< std::string >
RepairReason::whyNotNextHop( std::uint32_t router ) const {
   const std::string what = name( router ) + " as next hop";
   const auto * link = firstLink( router, false );
   if ( !link ) {
      link = firstLink( router, true );
      return { what + ": the link " + linkText( failure_.plr, *link ) + " "
               + failureText( failure_.plr, *link ) };
   }
   if ( !walker().isFirst( *link, originators_ ) ) {
      return { what + ": "
               + dearer( walker().costAfterOver( failure_.plr, *link, originators_ ) ) };
   }
   if ( router == repair_.firstHop ) {
      return { what + ": it is the one in use" };
   }
   return { what + ": " + qText( router ),
            standing( what, walker().shortest( originators_, router ) ) };
}

std::vector< std::string >
RepairReason::whyNotNode( std::uint32_t router ) const {
   const std::string what = name( router ) + " as repair node";
   if ( std::ranges::any_of( repair_.segments,
                             [ & ]( const auto & s ) { return s.node == router; } ) ) {
      return { what + ": it is one in use" };
   }
   if ( walker().costAfterBy( router, originators_ ) > walker().costAfter( originators_ ) ) {
      return { what + ": " + dearer( walker().costAfterBy( router, originators_ ) ) };
   }
   std::string p;
   for ( const auto & step : walker().network().steps[ failure_.plr ] ) {
      if ( walker().isFirst( step, originators_ ) && step.to != router
           && walker().onPath( step.to, router, originators_ ) && !p.starts_with( "in" ) ) {
         p = pText( step.to, router );
      }
   }
   std::vector< std::string > lines;
   if ( !p.empty() ) {
      lines.push_back( what + ": " + p );
   }
   lines.push_back( what + ": " + qText( router ) );
   lines.push_back( standing( what, walker().shortest( originators_, none, router ) ) );
   return lines;
}

std::vector< std::string >
RepairReason::whyNotRouter( std::uint32_t router ) const {
   if ( router == failure_.plr ) {
      return { name( router ) + " is the router that repairs" };
   }
   if ( router == failure_.node ) {
      return { name( router ) + " is the router against whose loss it protects" };
   }
   std::vector< std::string > lines;
   if ( firstLink( router, true ) ) {
      lines = whyNotNextHop( router );
   }
   if ( router == repair_.firstHop ) {
      return lines;
   }
   const auto asNode = whyNotNode( router );
   lines.insert( lines.end(), asNode.begin(), asNode.end() );
   return lines;
}

std::vector< std::string >
RepairReason::whyNotLink( const Link & link ) const {
   const std::string what = "the link " + linkText( link.from, link.step ) + " ";
   if ( walker().fails( link.from, link.step ) ) {
      return { what + failureText( link.from, link.step ) };
   }
   const std::uint32_t cost = walker().costAfterOver( link.from, link.step, originators_ );
   if ( cost > walker().costAfter( originators_ ) ) {
      return { what + dearer( cost ) };
   }
   if ( link.from == failure_.plr ) {
      return whyNotNextHop( link.step.to );
   }
   return { what
            + "is on a shortest path after the failure; whether packets pass it follows from the "
              "next hop and the repair nodes" };
}

/// Why packets do not arrive by it, or "" and what they cost.
std::string
RepairReason::faultOfList( const std::vector< std::uint32_t > & list, std::uint32_t & cost ) const {
   std::uint32_t at = list.front();
   const auto * first = firstLink( at, false );
   if ( !first ) {
      const auto * link = firstLink( at, true );
      return link ? "the link " + linkText( failure_.plr, *link ) + " "
                       + failureText( failure_.plr, *link )
                  : name( at ) + " is no neighbour: the next hop comes first";
   }
   cost = first->metric;
   for ( std::size_t i = 1; i < list.size(); ++i ) {
      const std::string p = pText( at, list[ i ] );
      const auto * link = i > 1 ? walker().link( at, list[ i ], false ) : nullptr;
      if ( p.starts_with( "not" ) && !link ) {
         return name( list[ i ] ) + " is " + p;
      }
      cost +=
         p.starts_with( "not" ) ? link->metric : walker().costBefore( at, { { list[ i ], 0 } } );
      at = list[ i ];
   }
   const std::string q = qText( at );
   cost += q.starts_with( "not" ) ? 0 : walker().costBefore( at, originators_ );
   return q.starts_with( "not" ) ? name( at ) + " is " + q : "";
}

std::vector< std::string >
RepairReason::whyNotList( const std::vector< std::uint32_t > & list ) const {
   std::uint32_t cost = 0;
   if ( std::string fault = faultOfList( list, cost ); !fault.empty() ) {
      return { fault };
   }
   const auto nodes = static_cast< std::uint32_t >( list.size() - 1 );
   const std::uint32_t best = walker().costAfter( originators_ );
   const bool isSame = list.front() == repair_.firstHop
                       && std::ranges::equal( std::span( list ).subspan( 1 ), repair_.segments, {},
                                              {}, &Repair::Segment::node );
   return { "packets arrive by it, at cost " + std::to_string( cost ) + " against "
            + std::to_string( best ) + " of the shortest path after the failure, with "
            + nodesText( nodes )
            + ( isSame        ? "; it is the repair in use"
                : cost > best ? "; it is dearer"
                : nodes > shortest_.nodes
                   ? "; " + nodesText( shortest_.nodes ) + " will do"
                   : "; it is as good, a hash of the destination chooses" ) };
}

std::optional< std::uint32_t >
RepairReason::routerOf( const std::string & name ) const {
   for ( const auto & [ id, router ] : topology_->table().routerColl() ) {
      if ( name == nameOf_( id ) || name == id.isisSystemId().stringValue()
           || ( router.teRouterId() && name == router.teRouterId().stringValue() ) ) {
         return topology_->router( id );
      }
   }
   return std::nullopt;
}

std::optional< RepairReason::Link >
RepairReason::linkOf( const std::string & name ) const {
   const auto address = Kivnet::IpGenAddr::parse( name );
   for ( std::uint32_t from = 0; address && from < walker().network().steps.size(); ++from ) {
      for ( const auto & step : walker().network().steps[ from ] ) {
         const Step * link = topology_->step( from, step );
         if ( link && hasAddress( *link->back, *address ) ) {
            return Link{ from, step };
         }
      }
   }
   return std::nullopt;
}

std::vector< std::string >
RepairReason::whyNot( const std::vector< std::string > & names ) const {
   if ( !isKnown() ) {
      return { "whether another one would do does not follow from state alone" };
   }
   if ( walker().costAfter( originators_ ) >= RepairWalker::far ) {
      return { absence() };
   }
   std::vector< std::uint32_t > list;
   for ( const std::string & name : names ) {
      const auto router = routerOf( name );
      const auto link = router ? std::nullopt : linkOf( name );
      if ( !router && !link ) {
         throw std::runtime_error( "--why-not " + name
                                   + ": no router or link has that name or "
                                     "address" );
      }
      if ( link && names.size() == 1 ) {
         return whyNotLink( *link );
      }
      list.push_back( router ? *router : link->step.to );
   }
   return list.size() == 1 ? whyNotRouter( list.front() ) : whyNotList( list );
}

}
