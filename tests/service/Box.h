// A box that exists only in memory, with the maintenance service and the plug-in on it as an agent runs them: links and
// traffic are what the test says, time moves with advance().
//
// The test plays the operator and the network. Everything that touches the service happens in a turn of the loop.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "evidence/Windows.h"
#include "kel/Json.h"
#include "maintenance/MaintenanceService.h"
#include "records/Names.h"
#include "world/World.h"

namespace Service {

using Evidence::StageResult;
using Evidence::Verdict;
using Maintenance::Unit::State;
using Requested = UnitService::Outcome;
using Ended = Evidence::Outcome;

constexpr double kbps = 1e3;
constexpr double Mbps = 1e6;

// Two units: fabric with up1 and up2, rack with up2 and down1. Every 10 s a sample, quiet for 30 s. `stages` as in the
// file; where it is empty, those of a file that names none.
std::string fileWith( std::string const & stages, std::string const & fabric = "up1, up2" );
Config::Config configOf( std::string const & text );

// The programs of a stage list: they run until the test says how they end.
class ProgramsOfTest final : public Hooks {
 public:
   void run( HookRequest const & request, Done done ) override;
   void giveUp( std::string const & unit ) override;
   // How the unit's program ends; empty for well.
   void end( std::string const & unit, std::string const & failure = "" );

   std::vector<std::string> started;  // "bgp enter fabric 1"
   std::vector<std::string> givenUp;  // units

 private:
   std::map<std::string, Done> running_;
};

class Box : public ::testing::Test {
 protected:
   Box();
   ~Box() override;

   // The service and, once it stands, the plug-in. The links are there already.
   void begin( std::string const & file );
   // Both are taken down in order.
   void end();
   // Both are gone from one moment to the next; the records stay as they are.
   void crash();
   std::vector<std::string> reload( std::string const & file );

   void link( std::string const & name, bool up, std::optional<Lumo::IntfKind> kind = {} );
   void linkGone( std::string const & name );
   void traffic( std::string const & name, double inBitsRate, double outBitsRate = 0 );
   void advance( double seconds ) { world_.advance( seconds ); }
   void inTurn( Kel::ActivityLoop::Work const & work ) { world_.inTurn( work ); }

   UnitService::Answer enter( std::string const & unit, std::vector<std::string> const & without = {} );
   UnitService::Answer exit( std::string const & unit );
   void programEnds( std::string const & unit, std::string const & failure = "" );

   [[nodiscard]] State state( std::string const & unit ) const;
   [[nodiscard]] std::string stage( std::string const & unit ) const;
   [[nodiscard]] bool ready( std::string const & unit );
   [[nodiscard]] Kel::Ptr<Evidence::Window const> window( std::string const & unit ) const;
   // Each stage of the window and how it ended: "ratemon done, verify running".
   [[nodiscard]] std::string stages( std::string const & unit ) const;
   [[nodiscard]] Verdict verdict( std::string const & unit, std::string const & intf ) const;
   [[nodiscard]] bool monitored( std::string const & intf ) const;
   // Of this kind, "fabric: text", in order.
   [[nodiscard]] std::vector<std::string> events( std::string const & kind ) const;
   // All records of the database, for comparing before with after.
   [[nodiscard]] std::string records() const;
   // Records of stage instances, of all kinds.
   [[nodiscard]] std::size_t stageRecords() const;

   // Its own agent has no configuration, and so there is none: the service is the test's.
   Sim::World world_{ RATEMON_PLUGIN_PATH, 1000 };
   Kel::Ptr<Dovra::EntityManager> const & database_ = world_.database();
   Maintenance::MaintenanceState & state_ = world_.state();
   ProgramsOfTest programs_;
   std::map<Lumo::IntfId, std::string> neverShut_;  // and why
   std::shared_ptr<EventLog> eventLog_ = std::make_shared<EventLog>();
   std::vector<Event> events_;
   EventLog::Listener listener_{ *eventLog_, [this]( Event const & event ) { events_.push_back( event ); } };
   std::unique_ptr<MaintenanceService> service_;
};

}  // namespace Service
