#include "scenario/Scenario.h"

#include <cmath>
#include <istream>
#include <map>

#include "brisklog/Brisklog.h"
#include "kel/Json.h"
#include "kel/LogHandle.h"
#include "kel/NearMiss.h"
#include "kel/Trace.h"
#include "records/Names.h"
#include "scenario/Arguments.h"

namespace Sim {

namespace {

using Kel::Value;

Kel::TraceHandle & pluginTrace() { return Kel::traceHandle( Maintenance::rateMonTraceHandle ); }

Value list( std::vector<std::string> const & texts ) {
   Value::List values;
   for( std::string const & text : texts ) values.push_back( Kel::value( text ) );
   return Value( Value::Content( std::move( values ) ) );
}

// Beyond these a sample interval would be lost in the rounding of the clock, and a growing counter would pass all
// numbers.
constexpr double clockEnd = 1e12;          // s
constexpr double bitsPerSecondMax = 1e18;  // bit/s

constexpr char const * anIntf = "an interface's name";

Direction direction( std::string const & name, Json const & at ) {
   if( name == "in" ) return Direction::in;
   if( name == "out" ) return Direction::out;
   throw LineError( at.column, "a direction is \"in\" or \"out\", not \"" + name + "\"" );
}

std::set<int> levels( Json const & list, std::set<int> const & known ) {
   std::set<int> found;
   for( Json const & element : list.list( "a list of levels" ) ) {
      // 31 only keeps the number within an int; which levels there are is asked below.
      auto const level = atColumn( element.column, [&] { return Kel::unsignedFromValue( element.value(), 31 ); } );
      if( !known.contains( static_cast<int>( level ) ) ) {
         throw LineError( element.column, "there is no level " + std::to_string( level ) );
      }
      found.insert( static_cast<int>( level ) );
   }
   return found;
}

}  // namespace

struct Scenario::Verb {
   std::string name;
   Json const * argument;
   Json const * second;  // of the verbs that have two, null where it is left out
};

Scenario::Scenario( World & world, std::ostream & out )
   : world_( world ),
     out_( out ),
     watches_( *world.database(),
               [this]( Dovra::StateComponents const & path, Value const & value ) {
                  print( { { "change", list( path ) }, { "value", value } } );
               } ),
     serviceLines_( world, [this]( Value::Object answer ) { print( std::move( answer ) ); } ),
     recording_( world ) {
   // The sinks are the process's and outlast this, so the destructor takes them back.
   Kel::logSinkIs( [this]( Kel::LogRecord const & record ) {
      print( { { "log", Kel::value( record.handle.name() ) },
               { "severity", Kel::value( static_cast<uint32_t>( record.handle.severity() ) ) },
               { "text", Kel::value( std::string( record.text ) ) } } );
   } );
   Kel::traceSinkIs( [this]( Kel::TraceRecord const & record ) {
      print( { { "trace", Kel::value( static_cast<uint32_t>( record.level ) ) },
               { "text", Kel::value( std::string( record.text ) ) } } );
   } );
}

Scenario::~Scenario() {
   Kel::logSinkIs( {} );
   Kel::traceSinkIs( {} );
   pluginTrace().levelsIs( {} );
   Brisklog::tapIs( {} );
}

void Scenario::run( std::istream & lines, std::size_t linesBefore ) {
   std::size_t number = linesBefore;
   for( std::string text; std::getline( lines, text ); ) {
      ++number;
      try {
         line( text );
      } catch( LineError const & error ) {
         throw ScenarioError( "line " + std::to_string( number ) + ", column " + std::to_string( error.column() ) +
                              ": " + error.what() );
      }
   }
}

void Scenario::line( std::string_view text ) {
   std::size_t const first = text.find_first_not_of( " \t\r" );
   // Comments are for people and no part of JSON, so they are gone before the parser sees the line.
   if( first == std::string_view::npos || text[first] == '#' ) return;
   Json const json = parseJson( text );
   text_ = text;
   Verb const v = verb( json );
   if( v.name == "advance" ) {
      // Not in a turn, as it makes turns of its own and these do not nest.
      advance( *v.argument );
   } else if( v.name == "batch" && v.second ) {
      lateBatch( *v.argument, *v.second );
   } else {
      world_.inTurn( [&] { execute( json ); } );
   }
}

Scenario::Verb Scenario::verb( Json const & line ) {
   auto const & members = line.object( "an object" );
   if( members.empty() ) throw LineError( line.column, "this object says nothing to do" );
   // The members of an object have no order, so either of two may stand first.
   std::string name = members.front().name;
   char const * second = nullptr;
   if( name == "set" || name == "to" ) {
      if( !line.member( "to" ) ) throw LineError( line.column, "\"set\" needs a \"to\"" );
      if( !line.member( "set" ) ) throw LineError( line.column, "\"to\" needs a \"set\"" );
      name = "set";
      second = "to";
   } else if( name == "enter" || name == "without" ) {
      if( !line.member( "enter" ) ) throw LineError( line.column, "\"without\" needs an \"enter\"" );
      name = "enter";
      second = "without";
   } else if( name == "batch" || name == "after" ) {
      if( !line.member( "batch" ) ) throw LineError( line.column, "\"after\" needs a \"batch\"" );
      name = "batch";
      second = "after";
   }
   for( auto const & [other, value] : members ) {
      if( other == name || ( second && other == second ) ) continue;
      throw LineError( value.column, "\"" + other + "\" does not belong in a line with \"" + name + "\"" );
   }
   return { name, line.member( name ), second ? line.member( second ) : nullptr };
}

void Scenario::execute( Json const & line ) {
   // Those with two arguments and "advance", which is not for a turn, are missing.
   static std::map<std::string_view, Act> const acts{
      { "delete", &Scenario::del },
      { "get", &Scenario::get },
      { "counters", &Scenario::counters },
      { "traffic", &Scenario::traffic },
      { "unread", &Scenario::unread },
      { "restartCounters", &Scenario::restartCounters },
      { "start", &Scenario::start },
      { "stop", &Scenario::stop },
      { "crash", &Scenario::crash },
      { "batch", &Scenario::batch },
      { "dump", &Scenario::dump },
      { "watch", &Scenario::watch },
      { "trace", &Scenario::trace },
      { "ring", &Scenario::ring },
      { "config", &Scenario::config },
      { "kept", &Scenario::kept },
      { "recorded", []( Scenario & s, Json const & said ) { s.recording_.recorded( said ); } },
      { "link", []( Scenario & s, Json const & byName ) { s.serviceLines_.link( byName ); } },
      { "exit", []( Scenario & s, Json const & unit ) { s.serviceLines_.exit( unit ); } },
      { "status", []( Scenario & s, Json const & unit ) { s.serviceLines_.status( unit ); } },
      { "ready", []( Scenario & s, Json const & unit ) { s.serviceLines_.ready( unit ); } },
   };
   Verb const v = verb( line );
   if( v.name == "set" ) return set( *v.argument, *v.second );
   if( v.name == "enter" ) return serviceLines_.enter( *v.argument, v.second );
   bool const moves = v.name == "advance" || ( v.name == "batch" && v.second );
   if( moves ) throw LineError( line.column, "time does not move within a batch" );
   auto const act = acts.find( v.name );
   if( act == acts.end() ) {
      std::vector<std::string> names{ "set", "enter", "advance" };
      for( auto const & [name, does] : acts ) names.emplace_back( name );
      throw LineError( line.column, "there is no line \"" + v.name + "\"" + Kel::didYouMean( v.name, names ) );
   }
   act->second( *this, *v.argument );
}

void Scenario::set( Json const & path, Json const & to ) {
   auto const place = components( path );
   // The place is looked up first, so that an error in it is shown there and not at the value.
   atColumn( path.column, [&] { return Dovra::statePlace( *world_.database(), place ); } );
   atColumn( to.column, [&] { Dovra::stateValueIs( *world_.database(), place, to.value() ); } );
}

void Scenario::del( Json const & path ) {
   atColumn( path.column, [&] { Dovra::stateValueDel( *world_.database(), components( path ) ); } );
}

void Scenario::get( Json const & path ) {
   auto const place = components( path );
   Value const value = atColumn( path.column, [&] {
      // What is not there yet is null; a path that can lead nowhere is a mistake, and what there is instead helps.
      try {
         return Dovra::stateValue( *world_.database(), place );
      } catch( Kel::AttributeError const & ) {
         throw Kel::AttributeError( Dovra::stateAbsence( *world_.database(), place ) );
      }
   } );
   print( { { "get", path.value() }, { "value", value } } );
}

void Scenario::counters( Json const & byIntf ) {
   for( auto const & [name, directions] : byIntf.object( "an object of interfaces" ) ) {
      if( directions.value().isNull() ) {
         // An invented name that is only to go must not be interned for the life of the process.
         if( auto const known = Lumo::IntfId::known( name ) ) world_.counters().del( *known );
         continue;
      }
      Lumo::IntfId const intf( name );
      // Also for an object that names no direction: it asks for counters that stand at 0.
      atColumn( directions.column, [&] { world_.counters().intfIs( intf ); } );
      for( auto const & [way, octets] : directions.object( "an object of directions" ) ) {
         // The number is captured under a name of its own because clang 14 captures no structured binding.
         auto const number = atColumn(
            octets.column, [&json = octets] { return Kel::ValueTraits<Brim::MaybeU63>::fromValue( json.value() ); } );
         world_.counters().octetsIs( intf, direction( way, octets ), number );
      }
   }
}

void Scenario::traffic( Json const & byIntf ) {
   for( auto const & [name, directions] : byIntf.object( "an object of interfaces" ) ) {
      Lumo::IntfId const intf( name );
      atColumn( directions.column, [&] { world_.counters().intfIs( intf ); } );
      for( auto const & [way, rate] : directions.object( "an object of directions" ) ) {
         world_.counters().bitsPerSecondIs( intf, direction( way, rate ), amount( rate, "a rate", bitsPerSecondMax ) );
      }
   }
}

void Scenario::unread( Json const & intfs ) {
   std::set<Lumo::IntfId> named;
   for( Json const & name : intfs.list( "a list of interfaces" ) ) named.emplace( text( name, anIntf ) );
   world_.counters().unread( std::move( named ) );
}

void Scenario::restartCounters( Json const & intfs ) {
   for( Json const & json : intfs.list( "a list of interfaces" ) ) {
      std::string const name = text( json, anIntf );
      auto const intf = Lumo::IntfId::known( name );
      if( !intf || !world_.counters().has( *intf ) ) throw LineError( json.column, name + " has no counters" );
      world_.counters().restartCounters( *intf );
   }
}

void Scenario::needsRunning( Json const & argument, bool running ) const {
   // What is in the object does not matter; a list or a number in its place is a mistake worth a word.
   static_cast<void>( argument.object( "{}" ) );
   if( world_.running() == running ) return;
   throw LineError( argument.column, running ? "the plug-in is not started" : "the plug-in is started already" );
}

void Scenario::start( Json const & nothing ) {
   needsRunning( nothing, false );
   world_.start();
}

void Scenario::stop( Json const & nothing ) {
   needsRunning( nothing, true );
   // What the teardown of an agent writes nobody sees: the records that are kept are put back.
   watches_.muted( world_.agent().configured() );
   world_.stop();
   watches_.muted( false );
}

void Scenario::crash( Json const & nothing ) {
   needsRunning( nothing, true );
   world_.crash();
}

// Bounded by what is left of the clock, so that many steps come no further than one.
void Scenario::advance( Json const & seconds ) { world_.advance( amount( seconds, "time", clockEnd - world_.now() ) ); }

void Scenario::batch( Json const & lines ) {
   // No turn of its own: the line has one, and deferred work waits for its end.
   for( Json const & line : lines.list( "a list of lines" ) ) execute( line );
}

void Scenario::lateBatch( Json const & lines, Json const & after ) {
   world_.late( amount( after, "time", clockEnd - world_.now() ), [&] { batch( lines ); } );
}

void Scenario::config( Json const & config ) {
   if( !configInstead_ ) return serviceLines_.config( config, text_ );
   static_cast<void>( config.object( "the configuration" ) );
   if( !world_.agent().configured() ) static_cast<void>( world_.agent().configIs( *configInstead_ ) );
}

void Scenario::kept( Json const & byPath ) {
   if( world_.agent().configured() || world_.running() ) {
      throw LineError( byPath.column, "what was kept comes before the first configuration and \"start\"" );
   }
   for( auto const & [path, records] : byPath.object( "an object of paths" ) ) {
      // The path and the records are captured under names of their own because clang 14 captures no structured binding.
      atColumn( records.column, [&, &at = path, &json = records] { world_.agent().keptIs( at, json.value() ); } );
   }
}

void Scenario::dump( Json const & nothing ) {
   // Unlike the others it does not need a plug-in that runs: an empty text says that none does.
   static_cast<void>( nothing.object( "{}" ) );
   print( { { "dump", Kel::value( world_.dump() ) } } );
}

void Scenario::watch( Json const & path ) {
   atColumn( path.column, [&] { watches_.watch( components( path ) ); } );
}

void Scenario::trace( Json const & list ) {
   Kel::TraceHandle::Levels mask = 0;
   for( int const level : levels( list, { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9 } ) ) mask |= 1u << level;
   pluginTrace().levelsIs( mask );
}

void Scenario::ring( Json const & list ) {
   ringLevels_ = levels( list, { 0, 1, 3, 4, 8 } );
   // Without a tap no message is formatted; with one all are, also those that nobody asked for.
   if( ringLevels_.empty() ) return Brisklog::tapIs( {} );
   Brisklog::tapIs( [this]( Brisklog::Message const & message ) {
      if( ringLevels_.contains( message.level ) ) printRing( message.level, message.text );
   } );
}

void Scenario::printRing( int level, std::string const & text ) {
   print( { { "ring", Kel::value( static_cast<uint32_t>( level ) ) }, { "text", Kel::value( text ) } } );
}

void Scenario::print( Value::Object members ) {
   members.insert( members.begin(), { "t", Kel::value( world_.now() ) } );
   // Flushed line by line: a program at the other end of a pipe waits for the answer before it writes the next line.
   out_ << Kel::toJson( Kel::value( std::move( members ) ) ) << std::endl;
}

}  // namespace Sim
