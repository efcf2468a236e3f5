// Lab files, and the documents that their events leave one after the other. A patch is applied to
// the text as it was written, and what it names is read anew, so that what an event leaves is held
// to the same rules as what stands at the start.

#include "tools/lab/LabFile.h"

#include "tools/text/Input.h"

#include <utility>

namespace Lab {

namespace {

LabEvent
readEvent( const LabCursor & at, double earliest ) {
   LabEvent event{ 0, false, LabJson( LabJsonObject() ) };
   readObject(
      at,
      requiredKey( "at", "the event's time in seconds",
                   [ & ]( auto & v ) {
                      event.at = readSeconds( v );
                      if ( event.at < earliest ) {
                         v.fail( "a time not before that of the event before" );
                      }
                   } ),
      key( "restart", [ & ]( auto & v ) { event.restart = readBool( v ); } ),
      key( "patch", [ & ]( auto & v ) {
         v.object();
         if ( const LabJson * events = v.value().find( "events" ) ) {
            LabCursor( v, "events", *events ).fail( "a patch that leaves the events alone" );
         }
         event.patch = v.value();
      } ) );
   return event;
}

std::vector< LabEvent >
readEvents( const LabCursor & at ) {
   std::vector< LabEvent > events;
   double earliest = 0;
   forEachElement( at, at.list( "a list of events" ), [ & ]( const LabCursor & v ) {
      events.push_back( readEvent( v, earliest ) );
      earliest = events.back().at;
   } );
   return events;
}

/// The error of a document as one of the event that leaves it: at the place in the patch that
/// brought it about where there is one, else at the event.
LabError
blamed( const LabError & error, const LabEvent & event, std::size_t number ) {
   const std::string place = "/events/" + std::to_string( number );
   const std::string & pointer = error.pointer();
   const std::string_view above( pointer.data(), error.missing() ? pointer.rfind( '/' ) : 0 );
   if ( event.patch.resolve( pointer ) || ( error.missing() && event.patch.resolve( above ) ) ) {
      return LabError( place + "/patch" + pointer, error.text(), error.missing() );
   }
   return LabError( place, "leaves an error at " + pointer + ": " + error.text() );
}

}

LabFile
LabFile::of( LabJson json ) {
   LabFile file;
   LabJson * const found = json.find( "events" );
   const LabJson events = found ? std::move( *found ) : LabJson( LabJsonArray() );
   json.erase( "events" );
   file.start_ = LabReading( std::move( json ) );
   const LabCursor root( file.start_.root() );
   file.events_ = readEvents( LabCursor( root, "events", events ) );
   LabReading reading = file.events_.empty() ? LabReading() : file.start_;
   for ( std::size_t i = 0; i < file.events_.size(); ++i ) {
      try {
         reading.apply( file.events_[ i ].patch );
      } catch ( const LabError & error ) {
         throw blamed( error, file.events_[ i ], i );
      }
   }
   return file;
}

LabJson
readLabJson( const std::string & fileName ) {
   std::string text;
   try {
      text = Text::contentOf( fileName );
   } catch ( const std::runtime_error & error ) {
      throw LabError( "",
                      std::string( "expected a file that can be read, found: " ) + error.what() );
   }
   return LabJson::parse( text );
}

LabPlayback::LabPlayback( const LabFile & file ) : file_( file ), reading_( file.start_ ) {}

const LabEvent *
LabPlayback::next() const noexcept {
   return applied_ < file_.events_.size() ? &file_.events_[ applied_ ] : nullptr;
}

LabChange
LabPlayback::apply() {
   return reading_.apply( file_.events_[ applied_++ ].patch );
}

LabChange
LabPlayback::apply( const LabJson & patch ) {
   LabReading reading = reading_;
   LabChange change = reading.apply( patch );
   reading_ = std::move( reading );
   return change;
}

}
