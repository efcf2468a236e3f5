// The command line as a whole: what it offers, and what is wrong with it. CLI11 lists unexpected
// words backwards, and names the two of a forbidden pair in the order in which they were declared;
// here both stand as typed.

#include "tools/cspfctl/CommandLine.h"

#include "tools/text/Nearest.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

namespace {

struct Entry {
   const char * group;
   const char * command;
   const char * example;
};

constexpr const char * labs = "Try a network";
constexpr const char * questions = "Ask about paths, in a lab or live";
constexpr const char * live = "Operate a live agent";
constexpr const char * faults = "Look for faults";

/// In the order in which they are shown.
constexpr std::array commands = {
   Entry{ labs, "run", "cspfctl run examples/abilene.json" },
   Entry{ labs, "check", "cspfctl check examples/*.json" },
   Entry{ labs, "import", "cspfctl import isis capture.txt > own.json" },
   Entry{ labs, "whatif", "cspfctl whatif examples/abilene.json --each link" },
   Entry{ questions, "explain", "cspfctl explain examples/bandwidth.json rsvp/too-much" },
   Entry{ questions, "repairs", "cspfctl repairs --node examples/germany50-tilfa.json" },
   Entry{ questions, "prove", "cspfctl prove examples/bandwidth.json" },
   Entry{ questions, "draw", "cspfctl draw examples/abilene.json -o abilene.html" },
   Entry{ live, "status", "cspfctl status" },
   Entry{ live, "paths", "cspfctl paths" },
   Entry{ live, "load", "cspfctl load examples/abilene.json" },
   Entry{ live, "save", "cspfctl save > now.json" },
   Entry{ live, "wait", "cspfctl wait --for rsvp/10.0.0.3#1 --timeout 10" },
   Entry{ live, "get", "cspfctl get te/config" },
   Entry{ live, "patch", R"(cspfctl patch te/config '{"enabled": true}')" },
   Entry{ live, "watch", "cspfctl watch te/cspf/status/vrf" },
   Entry{ faults, "dump", "cspfctl dump | less" },
   Entry{ faults, "metrics", "cspfctl metrics" },
   Entry{ faults, "trace", "cspfctl trace CspfAgent.qt | tail" },
   Entry{ faults, "trace-level", "cspfctl trace-level 9 --files Runs/Run.cc" },
   Entry{ faults, "support", "cspfctl support" },
   Entry{ faults, "replay", "cspfctl replay cspf.record" },
};

std::string
exampleOf( const CLI::App & command ) {
   const auto entry = std::ranges::find( commands, command.get_name(), &Entry::command );
   return entry == commands.end() ? "" : entry->example;
}

/// All commands, those of one group together.
std::vector< const CLI::App * >
inGroups( const CLI::App & app ) {
   auto all = app.get_subcommands( nullptr );
   std::ranges::stable_sort( all, {}, []( const CLI::App * command ) {
      return std::ranges::find( commands, command->get_name(), &Entry::command );
   } );
   return all;
}

/// The program's own help; that of a command is as usual.
class Overview : public CLI::Formatter {
 public:
   std::string make_help( const CLI::App * app, std::string name,
                          CLI::AppFormatMode mode ) const override {
      if ( app->get_parent() ) {
         return Formatter::make_help( app, name, mode );
      }
      std::ostringstream text;
      text << app->get_description() << "\n\ncspfctl COMMAND ...\n";
      std::string group;
      for ( const CLI::App * command : inGroups( *app ) ) {
         if ( std::string last = std::exchange( group, command->get_group() ); last != group ) {
            text << "\n" << group << "\n";
         }
         column( text, "  " + command->get_name(), command->get_description() );
         column( text, "", "  " + exampleOf( *command ) );
      }
      text << "\nOptions\n";
      for ( const CLI::Option * option : app->get_options() ) {
         const std::string type = option->get_type_size() ? " " + option->get_type_name() : "";
         column( text, "  " + option->get_name( false, true ) + type, option->get_description() );
      }
      text
         << "\ncspfctl COMMAND --help has a command's options. Where a file is read, - is standard "
            "input.\n";
      return text.str();
   }

 private:
   static void column( std::ostream & out, const std::string & left, const std::string & right ) {
      constexpr std::size_t width = 16;
      out << left << std::string( left.size() < width ? width - left.size() : 1, ' ' ) << right
          << "\n";
   }
};

std::string
joined( const std::vector< std::string > & words ) {
   std::string text;
   for ( const std::string & word : words ) {
      text += ( text.empty() ? "" : " " ) + word;
   }
   return text;
}

/// The command that was typed, down to its last word; the program itself where there is none.
const CLI::App *
commandOf( const CLI::App & app ) {
   const CLI::App * command = &app;
   while ( !command->get_subcommands().empty() ) {
      command = command->get_subcommands().front();
   }
   return command;
}

/// Where in the command line the option stands, by name or by what it was given.
std::size_t
placeOf( const CLI::Option & option, const std::vector< std::string > & words ) {
   const auto isIts = [ & ]( const std::string & word ) {
      const auto & given = option.results();
      return option.check_name( word.substr( 0, word.find( '=' ) ) )
             || ( option.get_positional() && std::ranges::count( given, word ) > 0 );
   };
   return static_cast< std::size_t >( std::ranges::find_if( words, isIts ) - words.begin() );
}

/// Two options that exclude each other; "" where the command line has none.
std::string
forbiddenPair( const CLI::App & command, const std::vector< std::string > & words ) {
   for ( const CLI::Option * one : command.get_options() ) {
      for ( const CLI::Option * other : one->get_excludes() ) {
         if ( one->count() > 0 && other->count() > 0 ) {
            const bool inOrder = placeOf( *one, words ) < placeOf( *other, words );
            return ( inOrder ? one : other )->get_name() + " does not go with "
                   + ( inOrder ? other : one )->get_name();
         }
      }
   }
   return "";
}

/// What could stand where that word does.
std::vector< std::string >
knownInstead( const CLI::App & command, const std::string & word ) {
   std::vector< std::string > known;
   if ( !word.starts_with( '-' ) ) {
      for ( const CLI::App * one : command.get_subcommands( nullptr ) ) {
         known.push_back( one->get_name() );
      }
      return known;
   }
   for ( const CLI::App * app = &command; app; app = app->get_parent() ) {
      for ( const CLI::Option * option : app->get_options() ) {
         for ( const std::string & name : option->get_lnames() ) {
            known.push_back( "--" + name );
         }
      }
   }
   return known;
}

/// Of words that mean nothing.
std::string
unexpected( const CLI::App & command, std::vector< std::string > extras,
            const std::vector< std::string > & words ) {
   std::ranges::stable_sort( extras, {}, [ & ]( const std::string & extra ) {
      return std::ranges::find( words, extra ) - words.begin();
   } );
   const std::string & first = extras.front();
   const auto known = knownInstead( command, first );
   const bool isElsewhere = std::ranges::find( known, first ) != known.end();
   const std::string meant = isElsewhere ? "" : Text::didYouMean( first, known );
   const bool isCommand = !first.starts_with( '-' ) && !command.get_subcommands( nullptr ).empty();
   return ( isCommand ? "there is no command \"" + first + "\""
                      : "not expected: " + joined( extras ) )
          + meant;
}

}

std::vector< std::string >
wordsOf( int argc, char ** argv ) {
   std::vector< std::string > words( argv + 1, argv + argc ), sockets;
   auto at = words.begin();
   while ( at != words.end() && at->starts_with( '-' ) ) {
      const bool isSocket = *at == "--socket" || at->starts_with( "--socket=" );
      const bool takesNext = *at == "--socket" || *at == "--state" || *at == "--state-password";
      const auto end = at + std::min< std::ptrdiff_t >( takesNext ? 2 : 1, words.end() - at );
      if ( isSocket ) {
         sockets.insert( sockets.end(), at, end );
         at = words.erase( at, end );
      } else {
         at = end;
      }
   }
   words.insert( at == words.end() ? at : at + 1, sockets.begin(), sockets.end() );
   return words;
}

void
describeCommands( CLI::App & app ) {
   app.add_option( "--socket", "control socket of the agentrunner, before or after the command" )
      ->type_name( "PATH" );
   app.set_version_flag( "--version", "cspfctl " CSPF_VERSION, "show the version" );
   app.formatter( std::make_shared< Overview >() );
   for ( CLI::App * command : app.get_subcommands( nullptr ) ) {
      const auto entry = std::ranges::find( commands, command->get_name(), &Entry::command );
      if ( entry != commands.end() ) {
         command->group( entry->group );
         command->footer( std::string( "\nExample: " ) + entry->example );
      }
   }
}

void
checkOptions( bool hasLab, const std::vector< const CLI::Option * > & ofLabs,
              const std::vector< const CLI::Option * > & ofLiveState ) {
   for ( const CLI::Option * option : hasLab ? ofLiveState : ofLabs ) {
      if ( option->count() > 0 ) {
         throw CLI::ValidationError( option->get_name()
                                     + ( hasLab ? " does not go with a lab" : " requires a lab" ) );
      }
   }
}

std::string
complaint( const CLI::App & app, const std::vector< std::string > & words,
           const CLI::ParseError & error ) {
   const CLI::App * const command = commandOf( app );
   const auto extras = app.remaining( true );
   const std::string pair = forbiddenPair( *command, words );
   const std::string what = !extras.empty() ? unexpected( *command, extras, words )
                            : !pair.empty() ? pair
                                            : error.what();
   std::string name = "cspfctl";
   std::string path = name;
   for ( const CLI::App * at = command; at->get_parent(); at = at->get_parent() ) {
      name.insert( 7, ": " + at->get_name() );
      path.insert( 7, " " + at->get_name() );
   }
   return name + ": " + what + ( what.ends_with( '?' ) ? " See " : "; see " ) + path + " --help";
}
