// `cspfctl explain [LAB] CLIENT/PATH`: the agent is asked why a path is what it is. What stands in
// the agent's way before it looks at the network (nobody is served, traffic engineering is off) is
// read from state.

#include "tools/cspfctl/CommandLine.h"
#include "tools/cspfctl/Explained.h"
#include "tools/cspfctl/ExplainedRepair.h"
#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LivePaths.h"
#include "tools/cspfctl/LiveSnapshot.h"
#include "tools/lab/LabRunner.h"
#include "tools/prove/Answers.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <memory>
#include <sstream>

namespace {

struct ExplainOptions {
   std::vector< std::string > words;  ///< [LAB] CLIENT/PATH
   std::string vrf;
   std::string whyNot;
   double at = Lab::atTheEnd;
   std::uint32_t seed = 1;
   std::string socket = Service::defaultSocketPath();
   bool json = false;
};

/// What is asked about: state, the agent, and the names that people use.
struct Moment {
   Prove::Snapshot state;
   std::function< std::string( const std::string & text ) > ask;
   const Lab::LabDocument * lab = nullptr;
};

struct Asked {
   Prove::Service service;
   Prove::Answer answer;
};

/// The name of a path in the lab as the key that stands in state.
std::string
keyOf( const Moment & moment, const std::string & client, const std::string & path ) {
   if ( moment.lab && moment.lab->paths.contains( client )
        && moment.lab->paths.at( client ).contains( path ) ) {
      const Lab::LabPath & named = moment.lab->paths.at( client ).at( path );
      return named.dst.stringValue() + "#" + std::to_string( named.id );
   }
   return path;
}

/// The one path that is meant. Throws std::runtime_error where there is none, or several are.
Asked
find( const Moment & moment, const std::string & name, const std::string & vrf ) {
   const auto slash = name.find( '/' );
   if ( slash == name.npos ) {
      throw std::runtime_error( name + ": expected CLIENT/PATH" );
   }
   const std::string client = name.substr( 0, slash );
   const std::string key = keyOf( moment, client, name.substr( slash + 1 ) );
   std::vector< Asked > found;
   for ( const Prove::Service & service : Prove::servicesOf( moment.state ) ) {
      for ( const Prove::Answer & answer : service.answers ) {
         const bool named = answer.name() == key || answer.key.dst().stringValue() == key;
         if ( answer.client == client && named
              && ( vrf.empty() || service.vrf == Prove::Vrf( vrf ) ) ) {
            found.push_back( { { service.vrf, service.af, {} }, answer } );
         }
      }
   }
   if ( found.empty() ) {
      throw std::runtime_error( name + ": there is no such path" );
   }
   if ( found.size() > 1 ) {
      throw std::runtime_error( name + ": several paths are meant, such as "
                                + found[ 0 ].service.text() + " " + found[ 0 ].answer.name()
                                + " and " + found[ 1 ].service.text() + " "
                                + found[ 1 ].answer.name() );
   }
   return found.front();
}

/// Why the agent does not get to look at the network; "" where it does.
std::string
reasonBefore( const Moment & moment, const Asked & asked ) {
   if ( !asked.answer.config ) {
      return "nobody asks for this path any more";
   }
   const auto te = moment.state.get< TrafficEngineering::Config >( "te/config" );
   if ( !te || !te->enabled() ) {
      return "traffic engineering is off";
   }
   if ( !Prove::teRouterIdOf( moment.state ) ) {
      return "this router has no TE router id";
   }
   if ( !asked.answer.served ) {
      return "client \"" + asked.answer.client + "\" does not ask for service in "
             + asked.service.text();
   }
   return "";
}

/// Of routers, by TE router id: the lab's, or those that the IGP gave.
std::map< std::string, std::string >
namesOf( const Moment & moment, const Prove::Service & service ) {
   std::map< std::string, std::string > names;
   if ( moment.lab ) {
      for ( const auto & [ topologyName, topology ] : moment.lab->topologies ) {
         for ( const auto & [ name, router ] : topology.routers ) {
            names.emplace( router.teRouterId.stringValue(), name );
         }
      }
      return names;
   }
   const Lab::RouterNames igp = liveNames( moment.state, { service.vrf, service.af } );
   for ( const auto & topology : Prove::topologiesOf( moment.state, service.vrf, service.af ) ) {
      for ( const auto & [ id, router ] : topology.table->routerColl() ) {
         names.emplace( router.teRouterId().stringValue(), igp.of( router.teRouterId() ) );
      }
   }
   return names;
}

/// A router or link by its name in the lab, or a router by what the IGP calls it, as an address;
/// addresses stand for themselves. Throws std::runtime_error.
std::string
addressOf( const Moment & moment, const Prove::Service & service, const std::string & name ) {
   if ( Kivnet::IpGenAddr::parse( name ) ) {
      return name;
   }
   for ( const auto & [ address, router ] : namesOf( moment, service ) ) {
      if ( router == name && Kivnet::IpGenAddr::parse( address ) ) {
         return address;
      }
   }
   for ( const auto & [ topologyName, topology ] :
         moment.lab ? moment.lab->topologies : std::map< std::string, Lab::LabTopology >() ) {
      if ( const auto link = topology.links.find( name );
           link != topology.links.end() && !link->second.b.addrs.empty() ) {
         return link->second.b.addrs.front().stringValue();
      }
   }
   throw std::runtime_error( "--why-not " + name + ": no router or link has that name" );
}

std::vector< std::string >
listed( const std::string & text ) {
   std::vector< std::string > list;
   std::istringstream in( text );
   for ( std::string part; std::getline( in, part, ',' ); ) {
      const auto begin = part.find_first_not_of( ' ' );
      if ( begin != part.npos ) {
         list.push_back( part.substr( begin, part.find_last_not_of( ' ' ) + 1 - begin ) );
      }
   }
   return list;
}

/// The hops to ask about: those that somebody names, else those that the request gives, of which
/// one stands in the way where there is no path.
std::vector< std::string >
hopsToAskAbout( const Moment & moment, const Asked & asked, const std::string & whyNot ) {
   std::vector< std::string > addresses;
   for ( const std::string & name : listed( whyNot ) ) {
      addresses.push_back( addressOf( moment, asked.service, name ) );
   }
   if ( addresses.empty() && !asked.answer.hasHops() ) {
      for ( const auto & hop : asked.answer.config->constraint().includeHopList() ) {
         addresses.push_back( hop.addr().stringValue() );
      }
   }
   return addresses;
}

/// A link of the lab, which the judge of repairs does not know by name, as its address.
std::vector< std::string >
linksByAddress( const Moment & moment, const Prove::Service & service,
                std::vector< std::string > names ) {
   for ( std::string & name : names ) {
      for ( const auto & [ topologyName, topology ] :
            moment.lab ? moment.lab->topologies : std::map< std::string, Lab::LabTopology >() ) {
         if ( topology.links.contains( name ) ) {
            name = addressOf( moment, service, name );
            break;
         }
      }
   }
   return names;
}

void
explain( const Moment & moment, const ExplainOptions & options ) {
   const Asked asked = find( moment, options.words.back(), options.vrf );
   Explained explained( options.words.back(), asked.service, asked.answer,
                        namesOf( moment, asked.service ) );
   if ( std::string reason = reasonBefore( moment, asked ); !reason.empty() ) {
      explained.reasonIs( reason );
   } else if ( asked.answer.client == Prove::tilfaClient ) {
      const Lab::VrfAf where{ asked.service.vrf, asked.service.af };
      const auto names =
         moment.lab ? Lab::RouterNames( *moment.lab, where ) : liveNames( moment.state, where );
      for ( const std::string & line :
            repairLines( moment.state, asked.service, asked.answer, names,
                         linksByAddress( moment, asked.service, listed( options.whyNot ) ) ) ) {
         explained.reasonIs( line );
      }
   } else {
      std::string command = asked.service.vrf.stringValue() + "\t"
                            + Kivnet::text( asked.service.af ) + "\t" + asked.answer.client + "\t"
                            + asked.answer.name();
      for ( const std::string & address : hopsToAskAbout( moment, asked, options.whyNot ) ) {
         command += "\t" + address;
      }
      explained.factsAre( moment.ask( command ) );
   }
   const Text::PlainOutput plain( std::cout );
   options.json ? explained.printJson( std::cout ) : explained.printText( std::cout );
}

constexpr const char * commandName = "CspfExplain";

int
explainLab( const ExplainOptions & options ) {
   const std::string & file = options.words.front();
   Lab::RunOptions run;
   run.seed = options.seed;
   try {
      Lab::visitLab(
         Lab::LabFile::load( file ), run, options.at,
         [ & ]( const Lab::LabMoment & moment ) {
            explain(
               { Prove::Snapshot::of( moment.state, moment.tables ),
                 [ & ]( const std::string & text ) { return moment.command( commandName, text ); },
                 &moment.document },
               options );
         },
         std::cerr );
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( file + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
   return Lab::exitOk;
}

int
explainLive( const ExplainOptions & options ) {
   const auto ask = [ & ]( const std::string & text ) {
      std::string answer;
      Service::Client( options.socket )
         .call( "command", { { "name", commandName }, { "text", text } },
                [ & ]( const std::string & method, const Service::Json & params ) {
                   answer += method == "output" ? params.value( "text", "" ) : "";
                } );
      return answer;
   };
   explain( { liveSnapshot( options.socket ), ask }, options );
   return Lab::exitOk;
}

}

void
addExplainCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< ExplainOptions >();
   CLI::App * command = app.add_subcommand(
      "explain", "Say why a path is what it is, why it is not another one, or why there is none" );
   command
      ->add_option( "path", options->words,
                    "[LAB] CLIENT/PATH: a path of a lab by its name, or, as of a running agent, by "
                    "DESTINATION#ID" )
      ->required()
      ->expected( 1, 2 );
   command->add_option(
      "--why-not", options->whyNot,
      "why not by this link or router, or these hops, with commas between them; of "
      "a repair the next hop first, then the repair nodes" );
   command->add_option( "--vrf", options->vrf, "VRF of the path, where several have such a one" );
   CLI::Option * at = command
                         ->add_option( "--at", options->at,
                                       "seconds of the lab, before what happens then, not its end" )
                         ->check( Text::numberFrom( 0, Text::longestTime ) );
   CLI::Option * seed =
      command
         ->add_option( "--seed", options->seed, "of the choice among equal-cost links of a lab" )
         ->capture_default_str();
   CLI::Option * socket =
      command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
         ->capture_default_str();
   command->add_flag( "--json", options->json, "print one JSON document" );
   command->callback( [ at, seed, socket, options, &status ] {
      const bool hasLab = options->words.size() > 1;
      checkOptions( hasLab, { at, seed }, { socket } );
      status = hasLab ? explainLab( *options ) : explainLive( *options );
   } );
}
