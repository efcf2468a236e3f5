#pragma once

#include "tools/lab/LabReader.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Lab {

struct LabEvent {
   double at = 0;  ///< seconds from the start
   bool restart = false;
   LabJson patch;  ///< an object, empty where the event changes nothing
};

/// What the file of that name says, or for "-" standard input. Throws LabError.
LabJson readLabJson( const std::string & fileName );

/// A whole lab file: the document at the start, and what happens to it.
class LabFile {
 public:
   /// Takes what a lab file says. Every document that an event leaves has been checked as well.
   /// Throws LabError.
   static LabFile of( LabJson json );
   static LabFile parse( std::string_view text ) { return of( LabJson::parse( text ) ); }
   static LabFile load( const std::string & fileName ) { return of( readLabJson( fileName ) ); }

   const LabDocument & document() const noexcept { return start_.document(); }
   const std::vector< LabEvent > & events() const noexcept { return events_; }
   /// The document as it was written, without events, as JSON.
   std::string text() const { return start_.root().text(); }

 private:
   friend class LabPlayback;

   LabReading start_;
   std::vector< LabEvent > events_;
};

/// Steps through the documents that the events of a file leave, one at a time. The file outlives
/// the playback.
class LabPlayback {
 public:
   explicit LabPlayback( const LabFile & file );

   /// The document as it stands.
   const LabDocument & document() const noexcept { return reading_.document(); }
   /// The event that comes next; null after the last.
   const LabEvent * next() const noexcept;
   /// Applies the patch of that event. REQUIRES: there is one.
   LabChange apply();
   /// Applies another patch. Throws LabError, with nothing changed, where that leaves no lab.
   LabChange apply( const LabJson & patch );

 private:
   const LabFile & file_;
   std::size_t applied_ = 0;
   LabReading reading_;
};

}
