// The fixture in which tests of the plug-in tell what an operator would narrate.
//
// On a world in memory (world/World.h), as maintsim has it, the fixture plays what a host does there: configuration,
// links and the stage manager's records. Time moves only with advance(), which returns when everything due has run.
// What a test expects, it reads from the records that a user can see.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "records/Errdisable.h"
#include "world/World.h"

namespace Test {

constexpr unsigned long long operator""_bps( unsigned long long n ) { return n; }
constexpr unsigned long long operator""_kbps( unsigned long long n ) { return n * 1000; }
constexpr unsigned long long operator""_Mbps( unsigned long long n ) { return n * 1'000'000; }
constexpr double operator""_s( unsigned long long n ) { return static_cast<double>( n ); }
constexpr double operator""_s( long double n ) { return static_cast<double>( n ); }

struct ProfileSpec {
   double thresholdKbps = 100;
   double sampleInterval = 10;  // s
   uint32_t loadInterval = 30;  // s
   bool shutdown = false;
   double maxDelay = 0;  // s
};

class DrainStory : public ::testing::Test {
 protected:
   using State = Maintenance::Unit::State;
   using MonIntfState = Maintenance::MonIntfState;

   static constexpr double startTime = 1000;

   DrainStory();
   ~DrainStory() override;

   // The host's configuration. The default profile is there from the start, with the values of ProfileSpec.
   void profile( std::string const & name, ProfileSpec const & spec );
   void defaultProfile( std::string const & name ) { state_.defaultProfile->profileNameIs( name ); }
   void select( std::string const & intf, std::string const & profileName );  // "" for none
   // A unit of one group that bears its name, whose interfaces are up and idle.
   void unit( std::string const & name, std::vector<std::string> const & intfs );
   void link( std::string const & intf, Interface::IntfOperStatus status );
   void linkDel( std::string const & intf );

   // Counters. Traffic grows them from now on, in bits per second; octets sets them and stops the growth.
   void traffic( std::string const & intf, unsigned long long inBps, unsigned long long outBps );
   void traffic( std::string const & intf, unsigned long long bps ) { traffic( intf, bps, bps ); }
   void octets( std::string const & intf, Brim::MaybeU63 in, Brim::MaybeU63 out );
   void countersDel( std::string const & intf );

   // The plug-in's life. start() returns when the mounts are complete.
   void start();
   void stop() { world_.stop(); }
   void restart() {
      stop();
      start();
   }

   // The stage manager. Each gives the unit its next generation and activates the stage; the unit's state follows.
   uint32_t enter( std::string const & unit );
   uint32_t exit( std::string const & unit );
   void unitState( std::string const & unit, State state ) { status( unit ).stateIs( state ); }
   // Removes a finished instance, progress first, and puts the unit where it belongs.
   void finishEnter( std::string const & unit );
   void finishExit( std::string const & unit );
   [[nodiscard]] bool enterComplete( std::string const & unit ) const;
   [[nodiscard]] bool exitComplete( std::string const & unit ) const;
   [[nodiscard]] static Kel::Name instance( std::string const & unit, uint32_t genId );

   void advance( double seconds );
   [[nodiscard]] double now() const { return world_.now(); }

   // Records
   [[nodiscard]] Maintenance::Unit::Status & status( std::string const & unit ) const;
   [[nodiscard]] Kel::Ptr<Maintenance::MonIntfStatus> monitored( std::string const & intf ) const;
   [[nodiscard]] Errdisable::CauseStatus & cause() const;
   [[nodiscard]] bool shutDown( std::string const & intf ) const;
   // A debug counter of the plug-in, by name.
   [[nodiscard]] uint64_t counter( std::string const & name ) const;

   // Every trace line so far, "LEVEL text", once tracing is on.
   void traceOn();
   [[nodiscard]] std::vector<std::string> const & trace() const { return trace_; }
   [[nodiscard]] bool traced( std::string const & line ) const;

   Sim::World world_{ RATEMON_PLUGIN_PATH, startTime };
   Maintenance::MaintenanceState const & state_ = world_.state();
   std::vector<std::string> logged_;  // system-log messages

 private:
   std::vector<std::string> trace_;
};

}  // namespace Test
