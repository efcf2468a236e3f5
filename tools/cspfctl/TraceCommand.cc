// `cspfctl trace FILE`: what the ring of a running or dead agent holds, oldest first.

#include "platform/Trace/Velotrace.h"
#include "tools/cspfctl/LiveCommands.h"
#include "tools/text/Input.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <memory>

namespace {

void
printTrace( const std::string & file ) {
   const Text::PlainOutput plain( std::cout );
   std::size_t damaged = 0;
   std::string error;
   const auto visit = []( const Velotrace::Record & record ) {
      std::cout << Text::utcText( record.utc ) << " " << record.level << " " << record.text << "\n";
   };
   try {
      if ( !Velotrace::decodeBytes( Text::contentOf( file ), visit, damaged, error ) ) {
         throw std::runtime_error( error );
      }
   } catch ( const std::runtime_error & why ) {
      throw std::runtime_error( file + ": " + why.what() );
   }
   if ( damaged ) {
      std::cerr << "cspfctl: " << Text::plain( file ) << ": " << damaged
                << " damaged places passed over\n";
   }
}

}

void
addTraceCommand( CLI::App & app ) {
   CLI::App * command = app.add_subcommand( "trace", "Print the records of a trace ring" );
   const auto file = std::make_shared< std::string >();
   command->add_option( "file", *file, "the ring's file, such as CspfAgent-1234.qt" )->required();
   command->callback( [ file ] { printTrace( *file ); } );
}
