#pragma once

#include "tools/prove/Answers.h"
#include "tools/prove/TeNetwork.h"

#include <map>
#include <optional>

namespace Prove {

/// Judges ordinary paths, one by one.
class PathProof {
 public:
   /// All outlive it.
   PathProof( const Snapshot & state, const Service & service, const TeNetwork & network );

   /// What is wrong with the answer; "" where it holds. Counts what it judged.
   std::string fault( const Answer & answer, Verdict & verdict );

   /// The router that paths start at; nothing while TE is off or no topology has it.
   const std::optional< std::uint32_t > & source() const { return source_; }
   /// The least cost from one router to the nearest one that has the address; nothing where the
   /// constraint lets none be reached. `own`: what the request holds already.
   std::optional< Cost > least( std::uint32_t from, const Kivnet::IpGenAddr & to,
                                const Cspf::PathConstraint & constraint, const Holdings & own );
   /// The published hops as ways under the constraint, the cheapest where several are meant: their
   /// cost, or nothing and the fault. Starts at `from`.
   std::optional< Cost > walk( std::uint32_t from, const Cspf::PathStatus & status,
                               const Admission & admission, std::string & fault ) const;

 private:
   std::string faultOfHops( const Answer & answer, Verdict & verdict );
   std::string faultOfNone( const Answer & answer, Verdict & verdict );
   std::string faultOfOrder( const Answer & answer ) const;
   std::string faultOfRisks( const Cspf::PathStatus & status ) const;
   Holdings holdings( const Answer & answer ) const;

   const Snapshot & state_;
   const Service & service_;
   const TeNetwork & network_;
   const Kivnet::IpGenAddr sourceId_;
   const std::optional< std::uint32_t > source_;
   std::map< std::pair< std::uint32_t, Cspf::PathConstraint >, Potentials > known_;
   /// What groups hold, by client and group.
   std::map< std::pair< std::string, std::uint32_t >,
             std::vector< std::pair< LinkId, Lum::Ptr< Cspf::BwUsage > > > >
      groups_;
};

/// The ways that a published path takes, hop by hop, each with all that its address may mean; ends
/// where a hop does not exist.
std::vector< std::vector< const Way * > > hopsOf( const TeNetwork & network, std::uint32_t from,
                                                  const Cspf::PathStatus & status );

/// Holds the reservations of a service against what its published paths imply.
void proveReservations( const Snapshot & state, const Service & service, const TeNetwork & network,
                        std::optional< std::uint32_t > source, Verdict & verdict );

}
