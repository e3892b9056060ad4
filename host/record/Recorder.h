// Records what happens on this box as a scenario that maintsim replays: links, counters, requests, configurations, and
// what was decided.
//
//    links, counters, requests, reloads, decisions --> Recorder --> Journal --> Recording, one for each client
//
// Owned by the agent; it has nothing to do until somebody records. From then on it has the counters read once a second,
// on the beat of the rate monitor's wheel: where that samples on a beat the two share one read. Whatever happens in a
// turn is gathered as it happens and told at the end of the last of the turns that follow from it at once, with that
// one's time; a turn that takes samples is told
// with how late it came, because a load interval that is short by a microsecond is short. It changes nothing.
//
// Several recordings share all of this. They differ in where they begin: with everything as it is then. Units that are
// under way are begun again by the replay, as after a restart of the agent.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/Config.h"
#include "decisions/Decisions.h"
#include "dovra/EntityManager.h"
#include "links/LinkRecords.h"
#include "maintenance/MaintenanceService.h"
#include "quill/CounterWriter.h"
#include "quill/EntityManager.h"
#include "record/Journal.h"
#include "record/RecordedBox.h"
#include "record/Recording.h"

namespace Host {

class Recorder {
 public:
   // All outlive this.
   struct Parts {
      Dovra::EntityManager & database;
      Maintenance::MaintenanceState & state;
      Service::LinkRecords & links;
      KelQuill::CounterWriter const & rows;
      KelQuill::EntityManager const & counters;
      Service::MaintenanceService & service;
      std::function<double()> wallClockOffset;  // s to add to Kel::now() for Unix time
      std::string host;                         // its name
      std::string version;                      // of maintd; empty: it has none
   };

   // Hears of links and requests by the places that those have for one listener.
   explicit Recorder( Parts parts );
   Recorder( Recorder const & ) = delete;
   Recorder & operator=( Recorder const & ) = delete;
   // Recordings that are being made hear nothing more; whoever sends them has stopped them before.
   ~Recorder();

   // In the turn in which the plug-in is started: its wheel begins to turn in the next.
   void handlePluginStart();
   // The counters were read, or could not be, in this turn.
   void handleRead();
   // The service has taken over another configuration.
   void handleConfig();

   // From this turn's end on; for so many seconds, or until nobody reads it. In a turn.
   [[nodiscard]] std::shared_ptr<HttpStream> record( std::optional<double> seconds );

 private:
   class Phase;
   class Beat;
   class TurnTold;
   // What has been said so far, while somebody records.
   struct Active;

   void begin();
   void handleRequest( Service::UnitService::Request const & request );
   void handleDecision( Service::Decision const & decision );
   void phaseIs( double time ) { phase_ = time; }
   [[nodiscard]] double beatAfter( double time ) const;
   void line( std::string text );
   void cause( std::string text );  // a line of which something comes
   void endTurn();
   void tellTurn();
   [[nodiscard]] bool anybodyRecords();
   [[nodiscard]] std::deque<std::string> beginning( double clock ) const;

   Parts const parts_;
   double phase_;  // s, a beat of the wheel
   std::unique_ptr<Phase> const phaseTimer_;
   std::unique_ptr<Beat> const beat_;
   std::unique_ptr<TurnTold> const turnEnd_;
   std::unique_ptr<Active> active_;  // null while nobody records
};

}  // namespace Host
