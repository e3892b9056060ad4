// The links of this box and their counters as a recording tells them: those that the configuration names, and what they
// are made of.
//
// Owned by the recorder while something is recorded. It knows what was said last, of every link, and says what has
// changed since, as lines of a scenario. That maintd takes a link down, and sets it up again, is not said: it is what
// the agent did and not what it found, and a replay with another configuration may do otherwise. So a link that is down
// while maintd holds it down counts as what it was before. One that is let go is said to come up late until it has,
// which means something only where a replay held it too; it is said to be down when it stays so for long.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/Config.h"
#include "links/LinkRecords.h"
#include "quill/CounterWriter.h"
#include "state/MaintenanceState.h"

namespace Host {

class RecordedBox {
 public:
   using Lines = std::vector<std::string>;

   // All outlive this.
   RecordedBox( Maintenance::MaintenanceState const & state, Service::LinkRecords const & links,
                KelQuill::CounterWriter const & counters )
      : state_( state ), links_( links ), counters_( counters ) {}

   // From now on those that it names as well.
   void configIs( Service::Config::Config const & config, Lines & lines );
   // Something of the link may have changed.
   void handleLink( Lumo::IntfId intf, Lines & lines );
   // The counters, as they stand at the end of a turn; `read`: when they were last to be read, none
   // if not since this was last asked. What comes before all other lines of the turn.
   void counters( std::optional<double> const & read, Lines & lines );
   // At the end of a turn: links that were let go and are still down, and that are not held any more.
   void handleTime( Lines & lines );

   // All of it, as it was said last.
   [[nodiscard]] Lines all() const;

 private:
   struct Counted {
      bool row = false;    // false: it has no counters
      bool known = false;  // they have been read
      uint64_t in = 0;
      uint64_t out = 0;
      uint64_t restarts = 0;
   };
   struct Said {
      std::optional<Service::LinkReport> report;  // none: it is not there
      bool ours = false;                          // down, on our account
      bool raised = false;                        // held, and set up by somebody all the same
      std::optional<double> letGo;                // s, since when it is not held any more and has not come up
      bool late = false;                          // said to come up later than it was let go
      Counted counted;
   };

   void nameIs( Lumo::IntfId intf, Lines & lines );
   void membersAre( Service::LinkReport const & report, Lines & lines );
   void count( Lumo::IntfId intf, Said & said, std::optional<double> const & read, Lines & changed,
               std::string & restarted );
   [[nodiscard]] bool held( Lumo::IntfId intf ) const;

   Maintenance::MaintenanceState const & state_;
   Service::LinkRecords const & links_;
   KelQuill::CounterWriter const & counters_;
   std::map<Lumo::IntfId, Said> said_;
   std::set<Lumo::IntfId> unread_;  // as was said last
   std::set<Lumo::IntfId> unreadNow_;
};

}  // namespace Host
