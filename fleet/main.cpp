// maintfleet: a fleet of boxes taken out of service in waves, within budgets. One program for the owner of the fleet,
// for the agent beside each maintd, and for people.
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>

#include "agent/Agent.h"
#include "cli/Verbs.h"
#include "client/Output.h"
#include "controller/Controller.h"
#include "keys/KeyStore.h"
#include "log/SystemLog.h"
#include "orders/Orders.h"
#include "simulate/Simulate.h"
#include "tables/Table.h"
#include "usage/Usage.h"

namespace {

// Of all verbs together: only one is given.
struct Arguments {
   Fleet::VerbOptions verb;
   Fleet::PlanOptions plan;
   Fleet::HistoryOptions history;
   Fleet::ControllerOptions controller;
   Fleet::AgentOptions agent;
   Fleet::KeysOptions keys;
   Fleet::SimulateOptions simulate;
   std::vector<std::string> names;
   std::vector<std::string> without;
   std::string name;
   std::string unit;
   bool off = false;
};

using Declare = void ( * )( CLI::App &, Arguments & );

struct Verb {
   char const * name;
   char const * what;
   int ( *run )( Arguments & );
   std::vector<Declare> takes;
};

std::string nameFault( std::string const & name ) { return Usage::nameFault( name, 255 ); }
std::string pathFault( std::string const & path ) { return Usage::nameFault( path, 4096 ); }

std::string unitFault( std::string const & text ) {
   return Fleet::unitNamed( text ) ? "" : "is a box and its unit, as spine-3a/fabric, not " + Usage::quoted( text );
}

std::string thisHost() {
   char name[HOST_NAME_MAX + 1] = {};
   std::string const whole = ::gethostname( name, HOST_NAME_MAX ) == 0 ? name : "";
   return whole.substr( 0, whole.find( '.' ) );
}

void span( CLI::App & command, char const * name, std::optional<double> & seconds, char const * what ) {
   command
      .add_option_function<std::string>(
         name, [&seconds, name]( std::string const & text ) { seconds = Usage::seconds( name, text ); }, what )
      ->type_name( "TIME" );
}

void spanOf( CLI::App & command, char const * name, double & seconds, char const * what ) {
   command
      .add_option_function<std::string>(
         name, [&seconds, name]( std::string const & text ) { seconds = Usage::seconds( name, text ); }, what )
      ->type_name( "TIME" );
}

void asking( CLI::App & command, Arguments & a ) {
   command.add_option( "--socket", a.verb.socket, "unix socket of the controller (also MAINTFLEET_SOCKET)" )
      ->check( pathFault )
      ->capture_default_str();
   command.add_flag( "--json", a.verb.json, "print JSON for programs" );
}

void draining( CLI::App & command, Arguments & a ) {
   command.add_option( "--unit", a.plan.unit, "only units of this name (default: all of a box)" )->check( nameFault );
   span( command, "--deadline", a.plan.deadlineSeconds,
         "for each drain, and for each return: 90s, 10min, 1h30m; a bare number is seconds (default: 30min)" );
   command
      .add_option(
         "--at-deadline", a.plan.atDeadline,
         "what a box does then: hold, and go on draining, or give-back, and return to service (default: hold)" )
      ->check( CLI::IsMember( { "hold", "give-back" } ) );
   command.add_flag( "--dry-run", a.plan.dryRun, "only say which waves it would have, and why" );
}

void planning( CLI::App & command, Arguments & a ) {
   command.add_option( "BOX", a.plan.boxes, "these boxes (default: all that have the labels)" )->check( nameFault );
   command
      .add_option( "--label", a.plan.labels, "only boxes with this label, as plane:b; may be given more than once" )
      ->allow_extra_args( false );
   command.add_flag( "--all", a.plan.all, "all boxes of the fleet" );
   command.add_option(
      "--waves", a.plan.waves,
      "sizes of the waves in units or shares, as \"1, 5, 10%\"; the last again until all have had their "
      "turn (default: one by one)" );
   span( command, "--soak", a.plan.soakSeconds, "between waves, with all of the last in service (default: none)" );
   span( command, "--stay", a.plan.staySeconds,
         "in maintenance, from the proof that it is quiet (default: until somebody orders it back)" );
}

void boxes( CLI::App & command, Arguments & a ) {
   command.add_option( "BOX", a.plan.boxes, "the boxes" )->required()->check( nameFault );
}

void boxesOrUnits( CLI::App & command, Arguments & a ) {
   command.add_option( "NAME", a.names, "boxes, or units as BOX/UNIT" )->required()->check( nameFault );
}

void onlyUnit( CLI::App & command, Arguments & a ) {
   command.add_option( "--unit", a.unit, "only units of this name (default: all of a box)" )->check( nameFault );
}

void someName( CLI::App & command, Arguments & a ) {
   command.add_option( "NAME", a.name, "only this plan or box" )->check( nameFault );
}

void remembering( CLI::App & command, Arguments & a ) {
   command.add_option( "--box", a.history.box, "only of this box" )->check( nameFault );
   command.add_option( "--unit", a.history.unit, "only of units of this name, or of one, BOX/UNIT" )
      ->check( nameFault );
   command.add_option( "--plan", a.history.plan, "only of this plan, as plan-7" )->check( nameFault );
   span( command, "--since", a.history.agoSeconds, "only from so long ago on: 12h, 30d (default: the last 1000)" );
}

void naming( CLI::App & command, Arguments & a ) {
   command.add_option( "WHAT", a.name, "boxes, units, plans, labels or sites" )
      ->required()
      ->check( CLI::IsMember( { "boxes", "units", "plans", "labels", "sites" } ) );
}

void plan( CLI::App & command, Arguments & a ) {
   command.add_option( "PLAN", a.name, "the plan, as plan-7" )->required()->check( nameFault );
}

void resuming( CLI::App & command, Arguments & a ) {
   command
      .add_option( "--without", a.without,
                   "go on without this unit, BOX/UNIT, and leave it as it is; may be given more than once" )
      ->check( unitFault )
      ->allow_extra_args( false );
}

void braking( CLI::App & command, Arguments & a ) {
   command.add_option( "SITE", a.name, "the site (default: all of them)" )->check( nameFault );
   command.add_flag( "--off", a.off, "take it off again; plans that it has stopped wait to be resumed" );
}

void broker( CLI::App & command, Fleet::NatsOptions & broker ) {
   command.add_option( "--broker", broker.url, "the broker, nats://HOST:PORT or tls://HOST:PORT" )
      ->capture_default_str();
   command.add_option( "--key", broker.keyFile, "file with its own key for the broker (maintfleet keys)" );
   command.add_option( "--ca", broker.caFile, "certificates that the broker's must descend from" );
   command.add_option( "--broker-name", broker.serverName,
                       "name that the broker's certificate must have (default: its host)" );
   spanOf( command, "--reconnect", broker.reconnectSeconds,
           "a random part of this is waited before each attempt to connect, so that a fleet does not come back in one "
           "moment (default: 30s)" );
}

void controlling( CLI::App & command, Arguments & a ) {
   Fleet::ControllerOptions & options = a.controller;
   command.add_option( "--inventory", options.inventoryFile, "boxes and budgets; read again at SIGHUP" )
      ->required()
      ->check( pathFault );
   command.add_option( "--state", options.stateDirectory, "directory for what must not be forgotten" )
      ->capture_default_str();
   command.add_option( "--socket", options.socket, "unix socket of the API, for its group (mode 0660)" )
      ->check( pathFault )
      ->capture_default_str();
   auto * const listen = command.add_option(
      "--listen", options.listen, "address and port for the page and the API over the network, as 127.0.0.1:8080" );
   command
      .add_option( "--operators", options.keyFile,
                   "file with operators' names and keys, a line each: who shows one may change something over the "
                   "network (default: nobody may)" )
      ->needs( listen );
   broker( command, options.broker );
}

void serving( CLI::App & command, Arguments & a ) {
   Fleet::AgentOptions & options = a.agent;
   options.broker.box = thisHost();
   command.add_option( "--box", options.broker.box, "name of this box in the inventory" )
      ->check( nameFault )
      ->capture_default_str();
   command.add_option( "--state", options.stateDirectory, "directory for what must not be forgotten" )
      ->capture_default_str();
   command.add_option( "--control-socket", options.controlSocket, "maintd's socket that takes changes" )
      ->capture_default_str();
   command.add_option( "--read-socket", options.readSocket, "maintd's socket for everyone" )->capture_default_str();
   spanOf( command, "--heartbeat", options.heartbeatSeconds, "as the inventory has it (default: 15s)" );
   broker( command, options.broker );
}

void keyKeeping( CLI::App & command, Arguments & a ) {
   using Keys = Fleet::KeysOptions::Verb;
   static std::map<std::string, Keys> const keyVerbs{
      { "init", Keys::init }, { "add", Keys::add }, { "revoke", Keys::revoke }, { "list", Keys::list } };
   command.add_option( "VERB", a.name, "init, add, revoke or list" )
      ->required()
      ->check( CLI::IsMember( { "init", "add", "revoke", "list" } ) );
   command.add_option( "BOX", a.keys.boxes, "of add and revoke: the boxes" )->check( nameFault );
   command.add_option( "--dir", a.keys.directory, "the directory of the keys" )->required()->check( pathFault );
   command.parse_complete_callback( [&a] { a.keys.verb = keyVerbs.at( a.name ); } );
}

void simulating( CLI::App & command, Arguments & a ) {
   Fleet::SimulateOptions & options = a.simulate;
   command
      .add_option_function<std::string>(
         "--boxes",
         [&options]( std::string const & text ) { options.boxes = Usage::wholeNumber( "--boxes", text, 1, 100'000 ); },
         "so many, box-1 and so on, each with a unit fabric (default: 10)" )
      ->type_name( "NUMBER" );
   command.add_option( "--inventory", options.inventoryFile, "the boxes of this one, in place of --boxes" )
      ->check( pathFault )
      ->excludes( "--boxes" );
   command.add_option( "--broker", options.url, "the broker, nats://HOST:PORT or tls://HOST:PORT" )
      ->capture_default_str();
   command.add_option( "--ca", options.caFile, "certificates that the broker's must descend from" );
   command.add_option( "--broker-name", options.serverName,
                       "name that the broker's certificate must have (default: its host)" );
   command.add_option( "--dir", options.keysDirectory, "the boxes' keys for the broker (maintfleet keys)" );
   command.add_option( "--script", options.scriptFile, "what goes wrong, and when" );
   spanOf( command, "--heartbeat", options.heartbeatSeconds,
           "of each box; with --inventory as that has it (default: 15s)" );
   spanOf( command, "--reconnect", options.reconnectSeconds,
           "a random part of this is waited before each attempt to connect (default: 30s)" );
   spanOf( command, "--for", options.seconds, "end by itself after this time (default: when interrupted)" );
   spanOf( command, "--report", options.reportSeconds, "from one line to the next (default: 5s)" );
   command
      .add_option_function<std::string>(
         "--seed",
         [&options]( std::string const & text ) {
            options.seed = Usage::wholeNumber( "--seed", text, 0, 4'294'967'295 );
         },
         "of all that is random (default: 1)" )
      ->type_name( "NUMBER" );
}

void inventoryFile( CLI::App & command, Arguments & a ) {
   command.add_option( "FILE", a.controller.inventoryFile, "the inventory" )->required()->check( pathFault );
}

// All of the fleet is meant only where somebody says so.
int makePlan( Arguments & a ) {
   bool const some = !a.plan.boxes.empty() || !a.plan.labels.empty() || !a.plan.unit.empty();
   if( some == a.plan.all ) {
      std::cerr << "maintfleet: plan takes boxes, --label or --unit, or --all\n";
      return 2;
   }
   return Fleet::askPlan( a.verb, a.plan );
}

int drain( Arguments & a ) {
   a.plan.waves = "100%";
   return Fleet::askPlan( a.verb, a.plan );
}

Verb const verbs[] = {
   { "status",
     "what is waited for, plans, groups that are full, silent boxes; or of one plan or box",
     []( auto & a ) { return Fleet::askStatus( a.verb, a.name ); },
     { someName, asking } },
   { "plan", "take units through maintenance in waves", makePlan, { planning, draining, asking } },
   { "drain", "take boxes out of service, until they are ordered back", drain, { boxes, draining, asking } },
   { "undrain",
     "order boxes or units back to service",
     []( auto & a ) { return Fleet::askReturn( a.verb, a.names ); },
     { boxesOrUnits, asking } },
   { "can-stop",
     "whether boxes or units could be out within all budgets: exit status 0, or 1 with the numbers",
     []( auto & a ) { return Fleet::askCanStop( a.verb, a.names, a.unit ); },
     { boxesOrUnits, onlyUnit, asking } },
   { "history",
     "who took what out, when, within which budgets, and when it came back",
     []( auto & a ) { return Fleet::askHistory( a.verb, a.history ); },
     { remembering, asking } },
   { "names",
     "the names of boxes, units, plans, labels or sites, a line each",
     []( auto & a ) { return Fleet::askNames( a.verb, a.name ); },
     { naming, asking } },
   { "pause",
     "have a plan order nothing more, until it is resumed",
     []( auto & a ) { return Fleet::askPlanChange( a.verb, a.name, "pause" ); },
     { plan, asking } },
   { "resume",
     "have a plan go on",
     []( auto & a ) { return Fleet::askPlanChange( a.verb, a.name, "resume", a.without ); },
     { plan, resuming, asking } },
   { "cancel",
     "end a plan; what is out stays out",
     []( auto & a ) { return Fleet::askPlanChange( a.verb, a.name, "cancel" ); },
     { plan, asking } },
   { "brake",
     "stop every plan of a site",
     []( auto & a ) { return Fleet::askBrake( a.verb, a.name, !a.off ); },
     { braking, asking } },
   { "accept",
     "go on with books that are older than the fleet, as a restored backup is",
     []( auto & a ) { return Fleet::askAccept( a.verb ); },
     { asking } },
   { "check-config",
     "whether an inventory holds, and what is odd about it",
     []( auto & a ) { return Fleet::checkInventory( a.controller.inventoryFile ); },
     { inventoryFile } },
   { "keys",
     "make and revoke the keys of owner and boxes for the broker",
     []( auto & a ) { return Fleet::runKeys( a.keys ); },
     { keyKeeping } },
   { "simulate",
     "be a fleet that there is not, before a broker that there is",
     []( auto & a ) { return Fleet::runSimulation( a.simulate ); },
     { simulating } },
   { "controller",
     "serve as the owner of the fleet",
     []( auto & a ) { return Fleet::runController( a.controller ); },
     { controlling } },
   { "agent",
     "serve as the agent of this box, beside its maintd",
     []( auto & a ) { return Fleet::runAgent( a.agent ); },
     { serving } },
};

// 0 where nobody looks at a terminal.
std::size_t terminalColumns() {
   winsize size{};
   return ::isatty( STDOUT_FILENO ) && ::ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

int run( int argc, char ** argv ) {
   CLI::App app( "Takes the boxes of a fleet out of service in waves, within budgets, and back.", "maintfleet" );
   app.footer( "Exit status: 0 done, 1 failed, 2 usage, 4 refused, 5 controller not reached." );
   // Exactly one, which is why they can share their arguments.
   app.require_subcommand( 1 );
   app.set_version_flag( "--version", "maintfleet " RATEMON_VERSION, "print the version and exit" );
   Arguments arguments;
   if( char const * const socket = std::getenv( "MAINTFLEET_SOCKET" ); socket && *socket )
      arguments.verb.socket = socket;
   std::map<CLI::App const *, Verb const *> declared;
   for( Verb const & verb : verbs ) {
      CLI::App * const command = app.add_subcommand( verb.name, verb.what );
      for( Declare const declare : verb.takes ) declare( *command, arguments );
      declared[command] = &verb;
   }
   try {
      app.parse( argc, argv );
   } catch( CLI::ParseError const & error ) {
      return Usage::ended( app, error );
   }
   Cli::tableWidthIs( terminalColumns() );
   return declared.at( app.get_subcommands().front() )->run( arguments );
}

}  // namespace

int main( int argc, char ** argv ) {
   Host::logNameIs( "maintfleet" );
   return Cli::runPrinting( [&] { return run( argc, argv ); },
                            []( std::string const & fault ) {
                               std::cerr << "maintfleet: " << fault << "\n";
                               return Fleet::verbFailed;
                            } );
}
