// What a word on the command line may become. Commands and options are asked for at the parser;
// paths and names at the lab that the command line names, or at the running agent.

#include "tools/cspfctl/CompleteCommand.h"

#include "tools/lab/LabFile.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/state/StatePaths.h"

#include <csignal>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <unistd.h>

namespace {

using Candidates = std::set< std::string >;
using Lab::LabJson;
using Lab::LabJsonObject;

/// Seconds that a person waits for a completion.
constexpr unsigned patience = 2;

class Completion {
 public:
   Completion( const CLI::App & app, const std::vector< std::string > & words );
   Candidates candidates() const;
   const std::string & typed() const { return typed_; }

 private:
   const CLI::Option * optionNamed( const std::string & word ) const;
   Candidates commands() const;
   Candidates options() const;
   Candidates valuesOf( const CLI::Option & option ) const;
   Candidates arguments() const;
   Candidates statePaths() const;
   Candidates paths() const;
   Candidates livePaths() const;
   Candidates namesInLab() const;
   Service::Json ask( const char * method, const char * path ) const;

   const CLI::App * command_;
   std::vector< std::string > arguments_;  ///< of the command, without options
   std::string typed_;
   const CLI::Option * option_ = nullptr;  ///< whose value is being typed
   std::string socket_ = Service::defaultSocketPath();
   std::optional< LabJson > lab_;
};

const CLI::App *
subcommand( const CLI::App & app, const std::string & name ) {
   const auto all =
      app.get_subcommands( [ & ]( const CLI::App * one ) { return one->get_name() == name; } );
   return all.empty() ? nullptr : all.front();
}

Completion::Completion( const CLI::App & app, const std::vector< std::string > & words )
   : command_( &app ),
     typed_( words.empty() ? "" : words.back() ) {
   for ( std::size_t i = 0; i + 1 < words.size(); ++i ) {
      const CLI::App * const inner = subcommand( *command_, words[ i ] );
      const CLI::Option * const option = optionNamed( words[ i ] );
      if ( option && option->get_type_size() > 0 ) {
         ++i;
         if ( i + 1 == words.size() ) {
            option_ = option;
         } else if ( option->check_name( "--socket" ) ) {
            socket_ = words[ i ];
         }
      } else if ( inner && arguments_.empty() ) {
         command_ = inner;
      } else if ( !words[ i ].starts_with( '-' ) ) {
         arguments_.push_back( words[ i ] );
      }
   }
   std::error_code unknown;
   if ( !arguments_.empty() && std::filesystem::is_regular_file( arguments_[ 0 ], unknown ) ) {
      try {
         lab_ = Lab::readLabJson( arguments_[ 0 ] );
      } catch ( const Lab::LabError & ) {
         // It may be something else, or half written.
      }
   }
}

/// Of the command, or of those that it stands in.
const CLI::Option *
Completion::optionNamed( const std::string & word ) const {
   for ( const CLI::App * app = command_; app; app = app->get_parent() ) {
      for ( const CLI::Option * option : app->get_options() ) {
         if ( word.starts_with( '-' ) && option->check_name( word ) ) {
            return option;
         }
      }
   }
   return nullptr;
}

Candidates
Completion::candidates() const {
   if ( option_ ) {
      return valuesOf( *option_ );
   }
   if ( typed_.starts_with( '-' ) ) {
      return options();
   }
   const Candidates names = commands();
   return names.empty() ? arguments() : names;
}

Candidates
Completion::commands() const {
   Candidates names;
   for ( const CLI::App * one : command_->get_subcommands( nullptr ) ) {
      names.insert( one->get_name() );
   }
   return names;
}

Candidates
Completion::options() const {
   Candidates names;
   for ( const CLI::Option * option : command_->get_options() ) {
      for ( const std::string & name : option->get_lnames() ) {
         names.insert( "--" + name );
      }
   }
   return names;
}

Candidates
Completion::valuesOf( const CLI::Option & option ) const {
   if ( option.check_name( "--path" ) || option.check_name( "--for" ) ) {
      return paths();
   }
   if ( option.check_name( "--why-not" ) ) {
      return namesInLab();
   }
   // "TEXT:{link,router,srlg}" is the type of an option with a choice.
   Candidates choice;
   const std::string type = option.get_type_name();
   const auto begin = type.find( '{' ), end = type.find( '}' );
   if ( begin != type.npos && end != type.npos ) {
      for ( const std::string & one :
            CLI::detail::split( type.substr( begin + 1, end - begin - 1 ), ',' ) ) {
         choice.insert( one );
      }
   }
   return choice;
}

Candidates
Completion::arguments() const {
   const std::string name = command_->get_name();
   const bool first = arguments_.empty();
   if ( name == "get" || name == "watch" || ( name == "patch" && first ) ) {
      return statePaths();
   }
   return name == "explain" && ( first || lab_ ) ? paths() : Candidates();
}

/// What the agent says; null where it does not.
Service::Json
Completion::ask( const char * method, const char * path ) const {
   try {
      return Service::Client( socket_ ).call( method, { { "path", path } } );
   } catch ( const std::runtime_error & ) {
      return nullptr;
   }
}

/// The next component alone: there are many paths.
Candidates
Completion::statePaths() const {
   std::vector< std::string > all;
   for ( const auto & kinds : { State::entityPaths(), State::tablePaths() } ) {
      for ( const State::PathKind & kind : kinds ) {
         const std::string_view known =
            kind.pattern.substr( 0, kind.pattern.find_first_of( "ABCDEFGHIJKLMNOPQRSTUVWXYZ" ) );
         all.emplace_back( known.substr( 0, known.size() - known.ends_with( '/' ) ) );
      }
   }
   const Service::Json present = ask( "list", "" );
   all.insert( all.end(), present.begin(), present.end() );
   Candidates next;
   for ( const std::string & path : all ) {
      if ( path.starts_with( typed_ ) ) {
         const auto slash = path.find( '/', typed_.size() );
         next.insert( path.substr( 0, slash == path.npos ? slash : slash + 1 ) );
      }
   }
   return next;
}

/// Calls `visit( member )` for each member of what stands there in the lab.
template< class Visit >
void
eachMember( const LabJson * json, const Visit & visit ) {
   if ( const auto * members = json ? json->as< LabJsonObject >() : nullptr ) {
      for ( const Lab::LabJsonMember & member : *members ) {
         visit( member );
      }
   }
}

/// Calls `visit( part )` for each part of that name, of the lab at its start and of what events
/// add.
template< class Visit >
void
eachPart( const LabJson & lab, const char * name, const Visit & visit ) {
   visit( lab.find( name ) );
   const LabJson * const events = lab.find( "events" );
   if ( const auto * list = events ? events->as< Lab::LabJsonArray >() : nullptr ) {
      for ( const LabJson & event : *list ) {
         const LabJson * const patch = event.find( "patch" );
         visit( patch ? patch->find( name ) : nullptr );
      }
   }
}

Candidates
Completion::paths() const {
   if ( !lab_ ) {
      return livePaths();
   }
   Candidates names;
   eachPart( *lab_, "paths", [ & ]( const LabJson * clients ) {
      eachMember( clients, [ & ]( const auto & client ) {
         eachMember( &client.value, [ & ]( const auto & path ) {
            names.insert( std::string( client.key ).append( "/" ).append( path.key ) );
         } );
      } );
   } );
   return names;
}

Candidates
Completion::livePaths() const {
   Candidates names;
   const Service::Json tables = ask( "get", "te/cspf/config/vrf" );
   for ( const auto & [ where, table ] : tables.items() ) {
      const std::string client = where.substr( where.rfind( '/' ) );
      for ( const auto & [ key, path ] : table[ "value" ][ "pathConfig" ].items() ) {
         names.insert( client.substr( 1 ) + "/" + key );
      }
   }
   return names;
}

/// Routers and links, behind what stands before the last comma.
Candidates
Completion::namesInLab() const {
   Candidates names;
   const std::string before = typed_.substr( 0, typed_.rfind( ',' ) + 1 );
   const auto add = [ & ]( const auto & one ) {
      names.insert( std::string( before ).append( one.key ) );
   };
   if ( lab_ ) {
      eachPart( *lab_, "topologies", [ & ]( const LabJson * topologies ) {
         eachMember( topologies, [ & ]( const auto & topology ) {
            eachMember( topology.value.find( "routers" ), add );
            eachMember( topology.value.find( "links" ), add );
         } );
      } );
   }
   return names;
}

}

void
complete( const CLI::App & app, const std::vector< std::string > & words, std::ostream & out ) {
   std::signal( SIGALRM, []( int ) { _exit( 0 ); } );
   alarm( patience );
   const Completion completion( app, words );
   for ( const std::string & candidate : completion.candidates() ) {
      if ( candidate.starts_with( completion.typed() ) ) {
         out << candidate << "\n";
      }
   }
}
