// The API before a service of its own, on a virtual clock and without links of a kernel.
#pragma once

#include <string>
#include <vector>

#include "api/Api.h"
#include "kel/ActivityLoop.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"

namespace Host {

class ApiBox {
 public:
   // Has a unit, of which one interface is there and one is not.
   void makeUnit();
   HttpAnswer ask( HttpRequest const & request );
   HttpAnswer ask( char const * method, std::string const & target, char const * user = "alice" ) {
      return ask( HttpRequest{ method, target, user } );
   }

 protected:
   class NoHooks final : public Service::Hooks {
      void run( Service::HookRequest const &, Done done ) override { done( "there are none" ); }
      void giveUp( std::string const & ) override {}
   };

   Kel::Ptr<Kel::VirtualClock> clock_{ new Kel::VirtualClock( 1000 ) };
   Kel::ActivityLoop loop_{ Kel::Ptr<Kel::Clock>( clock_ ) };
   Kel::Ptr<Dovra::EntityManager> database_{ new Dovra::EntityManager };
   Maintenance::MaintenanceState state_{ *database_ };
   KelQuill::CounterWriter counters_{ state_.counterWriterStatus, "" };
   Kel::Ptr<KelQuill::EntityManager> quill_{ new KelQuill::EntityManager( counters_.table() ) };
   Service::LinkRecords links_{ state_ };
   NoHooks hooks_;
   Service::MaintenanceService service_{ { database_, state_, quill_, links_, hooks_, {}, {} },
                                         Service::Config::Config() };
   Maintenance::PluginContext context_{ new Kel::Dir( "plugins" ), database_, quill_ };
   std::vector<std::string> reloadTrouble_;
   std::vector<std::string> objections_;  // of the guard
   std::vector<std::string> guarded_;     // what the guard was asked about
   std::string storeTrouble_;
   std::string storeTroubleOfTurn_;  // from the end of the next turn on
   Api api_{ *database_,
             service_,
             context_,
             [this]( std::string const & ) { return reloadTrouble_; },
             [this]( auto const & unit, auto const & without, auto const & session ) {
                guarded_.push_back( unit + "|" + ( without.empty() ? "" : without[0] ) + "|" + session );
                return objections_;
             },
             [this] { return storeTrouble_; } };
};

}  // namespace Host
