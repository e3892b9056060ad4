// Takes links down and gives them back as the error-disable entries say.
//
// Owned by the host's agent, and there only while that runs; when it goes, links stay as they are. At its construction
// links are brought into step with the entries that are there; later a link whose entries have changed is taken down
// when it has one of any cause, and given back when it has none: at the end of the turn, before anyone judges it. So an
// entry that is removed and written again in one turn moves no link.
//
// Every step is on record before it is made (HeldLinks.h), and on disk: `keep` is asked first, and where it cannot keep
// anything no link is touched until it can. So a death between a step and its record leaves a record that says what was
// about to be done, and the next start does it, once.
//
//    entry:    taking --keep--> link down --> held          removal:  releasing --keep--> link up --> no record
//              foundDown: was down before us                          foundDown, raised, released: --> no record
//
// Only links that we took down are set up. Somebody who sets a held link up is told of and not fought: the link is left
// as it is until its entry goes, but for the next start of the agent, which takes it down once more. One that was down
// before us is taken down when it is set up, once. A link that is made again under a name that has an entry is another
// link, and is taken down; one that is renamed keeps its record, and is given back when its old name's entry goes or
// another link bears that name. After a start of the machine a link is as the machine made it: with an entry it is held
// again, without one it is not touched. What an operator has released is left alone until its entry goes. The loopback
// is never touched.
//
// What fails is recorded and told. It is tried again when somebody asks, which the owner does from time to time while
// something waits, and when the link changes after a moment, or its entry at any time.
// A write and a switch call may run anyone's handlers: what was found before is looked up again after it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "events/Events.h"
#include "kel/Dir.h"
#include "kel/ReactorMap.h"
#include "links/HeldLinks.h"
#include "links/LinkSwitch.h"

namespace Service {

class LinkControl {
 public:
   // What the host brings; `links` outlives this.
   struct Parts {
      Kel::Ptr<HeldLinkDir> held;
      Kel::Ptr<Kel::Dir const> causes;
      LinkSwitch & links;
      // Puts everything that was written so far on disk; false when it cannot. Empty: there is no disk.
      std::function<bool()> keep;
      // What an operator should hear of: what happened to a link. May be empty.
      std::function<void( Lumo::IntfId intf, Severity severity, std::string const & text )> tell;
      // Whether the links that are taken down are to keep their IPv6 addresses. Empty: no.
      std::function<bool()> preserveIpv6;
      std::string boot;  // identity of this boot of the machine
      // Of what was told, what belongs into the window of a stay besides: anything that somebody else had a hand in,
      // and what failed. Empty: there are none.
      std::function<void( Lumo::IntfId intf, std::string const & text )> note = {};
   };

   explicit LinkControl( Parts const & parts );
   ~LinkControl();

   // The link has come, gone, or was set up or down by anyone. Applied at the end of the turn.
   void handleLink( Lumo::IntfId intf );
   // What could not be kept or done is tried again: the store can be written again, the kernel answers again.
   void retry();
   // Whether a link waits for that.
   [[nodiscard]] bool waiting() const { return !waiting_.empty(); }

   // Why the link is not as its entry says, or that it is held since before the machine was started; for people, empty
   // when there is nothing to say.
   [[nodiscard]] static std::string remark( HeldLinkDir const & held, Lumo::IntfId intf );

 private:
   class Follow;
   class KelCauses;
   class KelCause;

   using Link = LinkSwitch::Link;
   using Record = Kel::Ptr<HeldLink>;
   // What is to be done once the record says so and is kept.
   enum class Step { nothing, takeDown, giveBack };

   void handleEntry( Lumo::IntfId intf );
   void handleCauses();
   void follow();
   template<class Act>
   void attempt( Lumo::IntfId intf, Act const & act );

   // Brings the record to where it has to be before the step that is returned.
   Step prepare( Lumo::IntfId intf );
   Step prepareHeld( Lumo::IntfId intf, Record const & record, Link const & own );
   Step prepareRelease( Lumo::IntfId intf, Record const & record, Link const & own );
   Step prepareTaking( Record const & record );
   Step takeOnceMore( Record const & record );
   Step begin( Lumo::IntfId intf, Link const & link, Record const & former );
   [[nodiscard]] std::optional<Link> linkOf( HeldLink const & record ) const;
   [[nodiscard]] bool isTaken( HeldLink const & record ) const;
   [[nodiscard]] Record recordOf( int index, Lumo::IntfId besides ) const;
   [[nodiscard]] int addressesToKeep( int index ) const;
   void forget( Lumo::IntfId intf );
   void postpone( std::vector<Lumo::IntfId> const & down, std::vector<Lumo::IntfId> const & up );

   void takeDown( Lumo::IntfId intf );
   void giveBack( Lumo::IntfId intf );
   [[nodiscard]] std::string preserveAddresses( HeldLink const & record );
   void failed( Lumo::IntfId intf, std::string const & text );
   void succeeded( Lumo::IntfId intf );

   [[nodiscard]] bool hasEntry( Lumo::IntfId intf ) const;
   [[nodiscard]] bool pausing( Lumo::IntfId intf ) const;
   void tell( Lumo::IntfId intf, std::string const & text, Severity severity = Severity::notice ) const;
   void note( Lumo::IntfId intf, std::string const & text, Severity severity = Severity::warning ) const;

   Parts const parts_;
   Kel::Name const boot_;
   bool starting_ = true;
   std::set<Lumo::IntfId> changed_;           // to be followed
   std::set<Lumo::IntfId> untried_;           // recorded as being taken down, and nothing was done yet
   std::set<Lumo::IntfId> waiting_;           // for retry()
   std::map<Lumo::IntfId, double> failedAt_;  // s
   std::unique_ptr<Follow> const follow_;
   Kel::ReactorMap<KelCause, Kel::Name, LinkControl> cause_;
   std::unique_ptr<KelCauses> kelCauses_;
};

}  // namespace Service
