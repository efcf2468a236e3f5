#pragma once

#include "tools/prove/Answers.h"

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <map>
#include <string>

/// What is known of why a path is what it is, for people and for programs.
class Explained {
 public:
   /// `names`: of routers, by TE router id. The answer points into its snapshot, which outlives
   /// this object.
   Explained( std::string title, const Prove::Service & service, const Prove::Answer & answer,
              std::map< std::string, std::string > names );

   void reasonIs( const std::string & text ) { facts_[ "reasons" ].push_back( text ); }
   /// Takes what the agent writes: a line a fact, of words apart by tabs.
   void factsAre( const std::string & lines );

   void printText( std::ostream & out ) const;
   /// One document on one line.
   void printJson( std::ostream & out ) const;

 private:
   using Json = nlohmann::json;

   std::string router( const std::string & teRouterId ) const;
   std::string partText( const std::string & name ) const;
   std::string refusalText( const Json & link ) const;
   std::string asked() const;
   void printHops( std::ostream & out ) const;
   void printCost( std::ostream & out ) const;
   void printAbsence( std::ostream & out ) const;
   void printWhyNot( std::ostream & out ) const;

   const std::string title_;
   const std::string where_;
   const Prove::Answer & answer_;
   const Cspf::PathConstraint constraint_;
   const std::map< std::string, std::string > names_;
   Json facts_ = Json::object();
};
