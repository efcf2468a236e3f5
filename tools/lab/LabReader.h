#pragma once

#include "tools/lab/LabChange.h"
#include "tools/lab/LabCursor.h"

#include <set>
#include <tuple>
#include <vector>

/// From the JSON of a lab to its plain data. Each reader throws LabError at the first thing wrong.
namespace Lab {

/// What no two elements of a topology have in common.
struct LabTopologyNames {
   std::set< Cspf::IgpRouterId > routerIds;
   std::set< Kivnet::IpGenAddr > addresses;
   std::set< std::pair< std::string, std::uint8_t > > pseudonodes;  ///< by owner
};

/// What no two paths of a client have in common, to the name of the one that has it.
using LabPathNames =
   std::map< std::tuple< Vrf, Af, Cspf::Destination, std::uint32_t >, std::string >;

/// A document, and what is needed to read parts of it anew.
class LabReading {
 public:
   LabReading() = default;
   /// Reads everything; events are not part of it. O(document).
   explicit LabReading( LabJson root );
   LabReading( const LabReading & ) = default;
   LabReading( LabReading && ) = default;
   LabReading & operator=( const LabReading & ) = default;
   LabReading & operator=( LabReading && ) = default;
   /// What is large is taken apart in slices where a job does it.
   ~LabReading();

   const LabDocument & document() const noexcept { return document_; }
   /// As it was written.
   const LabJson & root() const noexcept { return root_; }

   /// Applies a merge patch, and reads what it names and what that bears on; where it reaches
   /// beyond elements of topologies, paths and settings, everything. Throws LabError where it
   /// leaves no lab; the reading is then of no more use.
   LabChange apply( const LabJson & patch );

 private:
   friend class DocumentReader;
   void readAll();

   LabJson root_;
   LabDocument document_;
   std::map< std::string, LabTopologyNames > topologyNames_;
   std::map< std::string, LabPathNames > pathNames_;  ///< by client
};

LabTopology readTopology( const LabCursor & at, LabTopologyNames & names );

/// Whether the patch of a topology is one of routers, links and LANs alone.
bool isOfElements( const LabJson & patch );
/// Reads the elements that the patch names anew; `at` is the topology with the patch applied.
/// Nothing where others change with them. Where it gives nothing or throws, `topology` and `names`
/// are of no more use. O(routers + links) at most, to find them.
std::optional< LabTopologyChange > rereadTopology( const LabCursor & at, const LabJson & patch,
                                                   LabTopology & topology,
                                                   LabTopologyNames & names );

/// The names of the interfaces of all routers, in whichever topology. REQUIRES: from the first
/// question on the document has its topologies, and they stay.
class LabInterfaces {
 public:
   explicit LabInterfaces( const LabDocument & document ) : document_( document ) {}

   /// O(1); O(links) once.
   bool contains( const Kivnet::IntfId & intf );

 private:
   void find();

   const LabDocument & document_;
   std::vector< bool > known_;  ///< by number; empty: not looked for yet
};

/// A path of that client. REQUIRES: the document has its topologies, the interfaces are its.
LabPath readPath( const LabCursor & at, const std::string & client, const LabDocument & document,
                  LabInterfaces & interfaces );

}
