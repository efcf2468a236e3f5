#include "tests/Answering.h"

#include <utility>

Answering::Answering( TestLab & lab, Answer answer )
   : tables_( lab.tables() ),
     answer_( std::move( answer ) ) {
   for ( const char * path : { "routing/export/topodb/client", "routing6/export/topodb/client" } ) {
      needs_.push_back( lab.state().entityIs< Lum::Dir >( path ) );
      LUM_WATCH_KEYS( needs_.back(), entity, handleNeeds );
      hear( needs_.back()->entity( "cspf" ) );
   }
   hear( lab.state().entity( "te/cspf/agentStatus" ) );
   hear( lab.state().entity( "te/bwm/activeStatus" ) );
   for ( const std::string & path : tables_.list( "te" ) ) {
      handleTable( path );
   }
   tables_.listenerIs( this, [ this ]( const std::string & path ) { handleTable( path ); } );
}

/// What clients write, and what tells of runs, is left out.
void
Answering::handleTable( const std::string & path ) {
   for ( const char * other :
         { "te/cspf/config", "te/bwm/client/input", "te/cspf/constraintStatus" } ) {
      if ( path.starts_with( other ) ) {
         return;
      }
   }
   hear( tables_.table( path ) );
}

void
Answering::handleNeeds( const Lum::String & name ) {
   for ( const auto & dir : needs_ ) {
      hear( dir->entity( name ) );
   }
   answer_();
}

void
Answering::hear( const Lum::Ptr< Lum::Entity > & entity ) {
   if ( entity ) {
      unwatch( *entity );
      watchAny< &Answering::handleChange >( *entity, this );
   }
}
