// Carries out the lines of a scenario, one JSON object each, on a world, and prints what they ask for.
//
//    config, link, enter, exit, status, ready
//                             the service: scenario/ServiceLines.h
//    set .. to, delete, get   records, by path
//    counters, traffic        octet counters of invented interfaces
//    unread, restartCounters  what can go wrong with reading them
//    start, stop, crash       the plug-in, or the whole agent once it is configured
//    advance, batch           time; several lines in one turn of the loop, which may come late
//    recorded, kept           what a recording says of the box that it was made on: scenario/Recording.h
//    dump, watch, trace, ring what to print
//
// docs/maintsim.md describes them all. Each line is one turn of the loop, which then runs until nothing is due at the
// present time. Every answer is one JSON object with "t", the virtual time, written and flushed at once; messages for
// the system log are always printed.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "dovra/Watches.h"
#include "scenario/Json.h"
#include "scenario/Recording.h"
#include "scenario/ServiceLines.h"
#include "world/World.h"

namespace Sim {

// A line that cannot be carried out: "line 3, column 9: ...". Lines before it were.
class ScenarioError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

class Scenario {
 public:
   // Both outlive this. One scenario at a time: trace, ring trace and system log are the process's.
   Scenario( World & world, std::ostream & out );
   Scenario( Scenario const & ) = delete;
   Scenario & operator=( Scenario const & ) = delete;
   ~Scenario();

   // All lines to the end, counted on from `linesBefore`; blank ones and those that begin with # are skipped. Throws
   // ScenarioError.
   void run( std::istream & lines, std::size_t linesBefore = 0 );
   // One line. Throws LineError.
   void line( std::string_view text );

   // In place of the configurations that the lines have: taken over where the first of them stands, the others are
   // passed over.
   void configInsteadIs( Service::Config::Config config ) { configInstead_ = std::move( config ); }
   [[nodiscard]] Recording const & recording() const { return recording_; }

 private:
   struct Verb;
   using Act = std::function<void( Scenario &, Json const & argument )>;

   [[nodiscard]] static Verb verb( Json const & line );
   void execute( Json const & line );

   void set( Json const & path, Json const & to );
   void del( Json const & path );
   void get( Json const & path );
   void counters( Json const & byIntf );
   void traffic( Json const & byIntf );
   void unread( Json const & intfs );
   void restartCounters( Json const & intfs );
   void start( Json const & nothing );
   void stop( Json const & nothing );
   void crash( Json const & nothing );
   void advance( Json const & seconds );
   void batch( Json const & lines );
   void lateBatch( Json const & lines, Json const & after );
   void config( Json const & config );
   void kept( Json const & byPath );
   void dump( Json const & nothing );
   void watch( Json const & path );
   void trace( Json const & levels );
   void ring( Json const & levels );

   void needsRunning( Json const & argument, bool running ) const;
   void print( Kel::Value::Object members );
   void printRing( int level, std::string const & text );

   World & world_;
   std::ostream & out_;
   Dovra::Watches watches_;
   ServiceLines serviceLines_;
   std::set<int> ringLevels_;
   Recording recording_;
   std::optional<Service::Config::Config> configInstead_;
   std::string_view text_;  // of the present line
};

}  // namespace Sim
