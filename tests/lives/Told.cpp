#include "Told.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Lives {

namespace json = boost::json;

namespace {

std::string str( json::value const & value ) { return std::string( value.as_string() ); }

// A number and its unit.
struct Quantity {
   double number;
   std::string unit;
};

Quantity quantity( json::value const & value ) {
   std::string const text = str( value );
   size_t used = 0;
   double const number = std::stod( text, &used );
   return { number, text.substr( used ) };
}

double scaled( json::value const & value, std::map<std::string, double> const & units ) {
   Quantity const q = quantity( value );
   return q.number * units.at( q.unit );
}

double seconds( json::value const & value ) {
   static std::map<std::string, double> const units{ { "ms", 0.001 }, { "s", 1 }, { "min", 60 }, { "h", 3600 } };
   return scaled( value, units );
}

double bitsPerSecond( json::value const & value ) {
   // By way of kbps, as the product has it: the threshold is to be the same double.
   static std::map<std::string, double> const units{ { "bps", 0.001 }, { "kbps", 1 }, { "Mbps", 1000 } };
   return 1000 * scaled( value, units );
}

Kind kindOf( std::string_view name ) {
   if( name.find( '.' ) != name.npos || name == "Cpu" ) return Kind::other;
   if( name.starts_with( "bond" ) || name.starts_with( "Port-Channel" ) ) return Kind::portChannel;
   if( name.starts_with( "v" ) || name.starts_with( "Vlan" ) ) return Kind::vlan;
   return Kind::ethernet;
}

Profile profileOf( std::string const & name, json::object const & said ) {
   Profile profile{ .name = name };
   profile.thresholdBitsRate = bitsPerSecond( said.at( "threshold" ) );
   if( auto const * v = said.if_contains( "sample-interval" ) ) profile.sampleInterval = seconds( *v );
   if( auto const * v = said.if_contains( "load-interval" ) ) profile.loadInterval = seconds( *v );
   if( auto const * v = said.if_contains( "shutdown" ) ) profile.shutdown = v->as_bool();
   return profile;
}

Stage stageOf( json::object const & said ) {
   Stage stage;
   if( auto const * v = said.if_contains( "timeout" ) ) stage.timeout = seconds( *v );
   auto const * const act = said.if_contains( "on-timeout" );
   if( act && *act == "hold" ) stage.onTimeout = OnTimeout::hold;
   if( act && *act == "continue" ) stage.onTimeout = OnTimeout::proceed;
   return stage;
}

Way wayOf( std::string_view name ) { return name == "in" ? in : out; }

void addOnce( std::vector<size_t> & to, size_t port ) {
   if( std::find( to.begin(), to.end(), port ) == to.end() ) to.push_back( port );
}

}  // namespace

char const * text( Cause cause ) {
   static char const * const texts[] = { "link",     "member's link", "unread",  "restart", "members", "row",
                                         "no value", "profile",       "monitor", "start",   "loud" };
   return texts[static_cast<size_t>( cause )];
}

void Told::line( json::object const & line, double now ) {
   auto const before = allRows();
   carryOut( line, now );
   // Of a batch only what comes of it: a member that goes and comes within a moment is another matter.
   tellMembers( before );
}

void Told::carryOut( json::object const & line, double now ) {
   auto const & [verb, argument] = *line.begin();
   if( verb == "batch" ) {
      for( json::value const & each : argument.as_array() ) carryOut( each.as_object(), now );
   } else if( verb == "link" ) {
      link( argument.as_object(), now );
   } else if( verb == "traffic" ) {
      traffic( argument.as_object(), now );
   } else if( verb == "counters" ) {
      counters( argument.as_object(), now );
   } else if( verb == "unread" ) {
      unread( argument.as_array() );
   } else if( verb == "restartCounters" ) {
      restart( argument.as_array(), now );
   } else if( verb == "config" ) {
      config( argument.as_object() );
   }
}

size_t Told::port( std::string_view name ) {
   auto const found = byName_.find( name );
   if( found != byName_.end() ) return found->second;
   ports_.emplace_back();
   ports_.back().name = name;
   ports_.back().kind = kindOf( name );
   byName_.emplace( name, ports_.size() - 1 );
   return ports_.size() - 1;
}

// What an interface is made of

std::vector<size_t> Told::rows( size_t port ) const {
   std::vector<size_t> found;
   if( ports_[port].kind == Kind::ethernet && !ports_[port].nothing() ) return { port };
   for( size_t const member : ports_[port].members ) {
      for( size_t const row : rows( member ) ) addOnce( found, row );
   }
   std::sort( found.begin(), found.end() );
   return found;
}

bool Told::odd( size_t port ) const {
   Port const & p = ports_[port];
   if( p.kind == Kind::other ) return true;
   return std::any_of( p.members.begin(), p.members.end(), [&]( size_t member ) { return odd( member ); } );
}

Rates Told::combined( size_t port, std::function<Rates( size_t )> const & of ) const {
   Port const & p = ports_[port];
   if( p.kind == Kind::ethernet ) return of( port );
   Rates all;
   for( size_t const member : p.members ) {
      Rates const one = combined( member, of );
      for( Way const way : { in, out } ) {
         all.way[way] = p.kind == Kind::vlan ? std::max( all.way[way], one.way[way] ) : all.way[way] + one.way[way];
      }
   }
   return all;
}

Rates Told::flow( size_t port ) const {
   return combined( port, [this]( size_t ethernet ) {
      Port const & p = ports_[ethernet];
      if( p.nowhere() ) return Rates{};
      return Rates{ { p.bitsPerSecond[in], p.bitsPerSecond[out] } };
   } );
}

bool Told::complete( size_t port ) const {
   Port const & p = ports_[port];
   return p.said != Said::gone &&
          std::all_of( p.members.begin(), p.members.end(), [&]( size_t member ) { return complete( member ); } );
}

Octets Told::octets( size_t ethernet, double now ) const {
   Port const & p = ports_[ethernet];
   Octets sum = p.counted;
   if( p.nowhere() ) return sum;
   for( Way const way : { in, out } ) {
      sum.way[way] += static_cast<uint64_t>( std::floor( p.bitsPerSecond[way] * ( now - p.since[way] ) / 8 ) );
   }
   return sum;
}

Rates Told::octetsAt( size_t ethernet, double time ) const {
   Port const & p = ports_[ethernet];
   Rates sum;
   auto const found = std::find_if( p.past.rbegin(), p.past.rend(), [&]( auto const & s ) { return s.from <= time; } );
   if( found == p.past.rend() ) return sum;
   for( Way const way : { in, out } ) {
      sum.way[way] =
         static_cast<double>( found->counted.way[way] ) + found->bitsPerSecond[way] * ( time - found->from ) / 8;
   }
   return sum;
}

// Links

std::vector<std::vector<size_t>> Told::allRows() const {
   std::vector<std::vector<size_t>> all;
   for( size_t p = 0; p < ports_.size(); ++p ) all.push_back( rows( p ) );
   return all;
}

void Told::tellMembers( std::vector<std::vector<size_t>> const & before ) {
   for( size_t p = 0; p < before.size(); ++p ) {
      if( rows( p ) != before[p] ) heard_( p, Cause::members );
   }
}

void Told::link( json::object const & byName, double now ) {
   for( auto const & [name, said] : byName ) linkIs( port( name ), said, now );
}

void Told::linkIs( size_t port, json::value const & said, double now ) {
   Said state = Said::gone;
   if( auto const * const full = said.if_object() ) {
      state = full->at( "state" ) == "up" ? Said::up : Said::down;
      std::vector<size_t> members;
      if( auto const * const names = full->if_contains( "members" ) ) {
         for( json::value const & name : names->as_array() ) addOnce( members, this->port( str( name ) ) );
      }
      bool const other = std::exchange( ports_[port].members, members ) != members;
      if( other ) tellAllMadeOf( port, Cause::memberLink );
   } else if( !said.is_null() ) {
      state = said == "up" ? Said::up : Said::down;
   }
   if( state == Said::gone ) ports_[port].members.clear();
   if( state == ports_[port].said ) return;
   // One that is down counts on, as the invented counters do.
   if( state == Said::gone || ports_[port].said == Said::gone ) flowsAre( port, now );
   if( ports_[port].said != Said::gone ) ports_[port].presentAt = now;
   ports_[port].left = state == Said::gone;
   ports_[port].said = state;
   keepPast( port, now );
   heard_( port, Cause::link );
   if( ports_[port].kind != Kind::ethernet ) return;
   // Its counters come and go with it.
   if( state == Said::gone ) ports_[port].row = false;
   if( state != Said::gone ) rowIs( port, now );
   tellAllMadeOf( port, state == Said::gone ? Cause::row : Cause::memberLink );
}

// Traffic

void Told::tellAllMadeOf( size_t ethernet, Cause cause ) {
   for( size_t p = 0; p < ports_.size(); ++p ) {
      if( isMadeOf( p, ethernet ) ) heard_( p, cause );
   }
}

// Also of one that is nothing at present: it may just have come to be so.
bool Told::isMadeOf( size_t port, size_t ethernet ) const {
   auto const & members = ports_[port].members;
   return port == ethernet ||
          std::any_of( members.begin(), members.end(), [&]( size_t member ) { return isMadeOf( member, ethernet ); } );
}

// A row that comes into being, or is written by a line, has been read unless it cannot be.
void Told::rowIs( size_t port, double now ) {
   if( ports_[port].nowhere() ) return;
   bool const added = !std::exchange( ports_[port].row, true );
   if( added ) ++ports_[port].restarts;
   read( ports_[port], now );
   if( added ) tellAllMadeOf( port, Cause::row );
}

void Told::read( Port & port, double now ) {
   if( !port.row || port.unread ) return;
   if( port.readAt != now ) port.readBefore = std::exchange( port.readAt, now );
   port.restartsRead = port.restarts;
}

void Told::readAll( double now ) {
   for( Port & port : ports_ ) read( port, now );
}

void Told::keepPast( size_t port, double now ) {
   Port & p = ports_[port];
   bool const there = !p.nowhere();
   p.past.push_back(
      { now, octets( port, now ), { there ? p.bitsPerSecond[in] : 0, there ? p.bitsPerSecond[out] : 0 } } );
}

// From now on it counts on from what it has counted so far.
void Told::flowIs( size_t port, Way way, double now ) {
   ports_[port].counted.way[way] = octets( port, now ).way[way];
   ports_[port].since[way] = now;
}

void Told::flowsAre( size_t port, double now ) {
   for( Way const way : { in, out } ) flowIs( port, way, now );
}

void Told::traffic( json::object const & byName, double now ) {
   for( auto const & [name, said] : byName ) {
      size_t const p = port( name );
      rowIs( p, now );
      for( auto const & [direction, rate] : said.as_object() ) {
         Way const way = wayOf( direction );
         flowIs( p, way, now );
         ports_[p].bitsPerSecond[way] = rate.to_number<double>();
      }
      keepPast( p, now );
   }
}

// Only what makes counters unknown: none at all, or none in one direction.
void Told::counters( json::object const & byName, double now ) {
   for( auto const & [name, said] : byName ) {
      size_t const p = port( name );
      if( said.is_null() ) {
         flowsAre( p, now );
         ports_[p].bitsPerSecond[in] = ports_[p].bitsPerSecond[out] = 0;
         keepPast( p, now );
         if( std::exchange( ports_[p].row, false ) ) tellAllMadeOf( p, Cause::row );
         continue;
      }
      rowIs( p, now );
      for( auto const & [way, octets] : said.as_object() ) {
         ports_[p].valueless[wayOf( way )] = octets.is_null();
         flowIs( p, wayOf( way ), now );
         keepPast( p, now );
         if( !ports_[p].nowhere() ) tellAllMadeOf( p, Cause::valueless );
      }
   }
}

void Told::unread( json::array const & names ) {
   std::set<size_t> now;
   for( json::value const & name : names ) now.insert( port( str( name ) ) );
   for( size_t p = 0; p < ports_.size(); ++p ) {
      if( std::exchange( ports_[p].unread, now.contains( p ) ) != now.contains( p ) ) tellAllMadeOf( p, Cause::unread );
   }
}

void Told::restart( json::array const & names, double now ) {
   for( json::value const & name : names ) {
      size_t const p = port( str( name ) );
      // What flowed has flowed; the rate goes on from this moment.
      flowsAre( p, now );
      ++ports_[p].restarts;
      tellAllMadeOf( p, Cause::restart );
   }
}

// Configuration

void Told::config( json::object const & config ) {
   profiles_.clear();
   for( auto const & [name, said] : config.at( "profiles" ).as_object() ) {
      profiles_.emplace( name, profileOf( name, said.as_object() ) );
   }
   defaultProfile_ = str( config.at( "default-profile" ) );
   groups_.clear();
   std::map<std::string, size_t> groupNumber;
   for( auto const & [name, said] : config.at( "groups" ).as_object() ) {
      Group group{ .name = name, .ports = {}, .profile = {} };
      for( json::value const & intf : said.at( "interfaces" ).as_array() ) addOnce( group.ports, port( str( intf ) ) );
      if( auto const * profile = said.as_object().if_contains( "profile" ) ) group.profile = str( *profile );
      groupNumber.emplace( name, groups_.size() );
      groups_.push_back( group );
   }
   units_.clear();
   for( auto const & [name, said] : config.at( "units" ).as_object() ) {
      Unit unit{ .name = name, .groups = {}, .ports = {} };
      for( json::value const & group : said.at( "groups" ).as_array() ) {
         unit.groups.push_back( groupNumber.at( str( group ) ) );
         for( size_t const p : groups_[unit.groups.back()].ports ) addOnce( unit.ports, p );
      }
      units_.push_back( unit );
   }
   enterStages_.clear();
   auto const * const stages = config.if_contains( "stages" );
   if( !stages ) return;
   for( json::value const & stage : stages->at( "maintEnter" ).as_array() ) {
      enterStages_.emplace( str( stage.at( "name" ) ), stageOf( stage.as_object() ) );
   }
}

}  // namespace Lives
